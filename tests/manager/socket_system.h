#ifndef ZUSKUX_TESTS_MANAGER_SOCKET_SYSTEM_H_
#define ZUSKUX_TESTS_MANAGER_SOCKET_SYSTEM_H_

#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "reference/manager/engine/manager.h"
#include "reference/manager/views/report.h"
#include "reference/socket_client/server_contents.h"
#include "reference/socket_client/socket_hal.h"

namespace reference {

/// A manager connected to the server on `socket`.
class SocketSystem {
 public:
  SocketSystem(const std::string& socket, RequestObserver* observer,
               std::function<void(std::uint64_t)> on_results = {})
      : SocketSystem(OptionsFor(socket), observer, std::move(on_results)) {}

  /// Replaces the log of `options`.
  SocketSystem(SocketHalOptions options, RequestObserver* observer,
               std::function<void(std::uint64_t)> on_results = {})
      : socket_(options.path),
        manager_(&io_, {{}, {}, {}, std::move(on_results)}),
        hal_(WithLog(std::move(options))) {
    hal_.Observe(observer);
  }

  /// Reconnects quickly.
  static SocketHalOptions OptionsFor(const std::string& socket) {
    SocketHalOptions options;
    options.path = socket;
    options.reconnect_first = std::chrono::milliseconds(1);
    options.reconnect_last = std::chrono::milliseconds(5);
    return options;
  }

  void Start(const Site& site) {
    manager_.Apply(site);
    manager_.Start(&hal_);
  }

  /// Runs until the manager has finished and is in sync with the current server, and `killed`
  /// returns that no server will be killed any more. Returns what that server holds.
  TableEntries Settle(const std::function<bool()>& killed) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < end) {
      io_.run_for(std::chrono::milliseconds(1));
      io_.restart();
      if (!killed() || !manager_.finished() || hal_.counters().unfinished != 0) continue;
      try {
        const ServerContents contents = ReadServerContents(socket_, "test");
        if (contents.status.generation() == in_sync_generation_) return contents.entries;
      } catch (const std::runtime_error&) {
        // The server has just been killed, and the loss has not been noticed yet.
      }
    }
    ADD_FAILURE() << "never finished: " << Summary(manager_.database()).text();
    return {};
  }

  /// Runs until the manager has finished; false if it does not in time.
  bool Finish() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!manager_.finished() && std::chrono::steady_clock::now() < end) {
      io_.run_for(std::chrono::milliseconds(1));
      io_.restart();
    }
    return manager_.finished();
  }

  /// Runs for a while, whatever happens.
  void RunFor(std::chrono::milliseconds time) {
    io_.run_for(time);
    io_.restart();
  }

  /// How often the tables differed from the requested ones.
  int not_in_sync() const { return not_in_sync_; }
  const SocketHal& hal() const { return hal_; }
  const DestDatabase& database() const { return manager_.database(); }
  bool complete() const { return Summary(manager_.database()).complete(); }

 private:
  SocketHalOptions WithLog(SocketHalOptions options) {
    options.log = [this](LogLevel, const std::string& line) { OnLine(line); };
    return options;
  }

  void OnLine(const std::string& line) {
    static const std::string kGeneration = ", generation ";
    if (line.rfind("in sync", 0) == 0) in_sync_generation_ = generation_;
    if (line.rfind("NOT in sync", 0) == 0) ++not_in_sync_;
    const auto place = line.find(kGeneration);
    if (place == std::string::npos) return;
    generation_ = std::stoull(line.substr(place + kGeneration.size()), nullptr, 16);
  }

  const std::string socket_;
  // The connected server's. Used on the connection's thread.
  std::uint64_t generation_ = 0;
  std::atomic<std::uint64_t> in_sync_generation_ = 0;
  std::atomic<int> not_in_sync_ = 0;
  boost::asio::io_context io_;
  Manager manager_;
  // Destroyed before the manager.
  SocketHal hal_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_SOCKET_SYSTEM_H_
