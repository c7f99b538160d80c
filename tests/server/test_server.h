#ifndef ZUSKUX_TESTS_SERVER_TEST_SERVER_H_
#define ZUSKUX_TESTS_SERVER_TEST_SERVER_H_

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "reference/server/fault_file.h"
#include "reference/server/hal_server.h"
#include "tests/support/test_folder.h"

namespace reference {

/// A HAL server on its own thread in the test's process, until the end of the test.
class TestServer {
 public:
  TestServer() : TestServer(HalServerOptions()) {}

  /// Replaces path and log of `options`.
  explicit TestServer(HalServerOptions options) {
    options.path = path();
    options.log = [this](LogLevel level, const std::string& line) { AddLine(level, line); };
    server_.emplace(&io_, std::move(options));
    thread_ = std::thread([this] { io_.run(); });
  }

  /// Uses the faults of a fault file; a crash restarts the server within the process.
  explicit TestServer(const std::string& faults, HalServerOptions options = {})
      : TestServer(std::move(options), ParseFaults(faults)) {}

  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;
  ~TestServer() { Stop(); }

  std::string path() const { return folder_.Path("hal.sock"); }

  /// A copy of the server's tables, taken between two of its steps.
  HalTables Tables() {
    return Call([this] { return server_->tables(); });
  }

  std::uint64_t Generation() {
    return Call([this] { return server_->generation(); });
  }

  /// Blocks the server's thread for `time`; returns immediately.
  void Hold(std::chrono::milliseconds time) {
    boost::asio::post(io_, [time] { std::this_thread::sleep_for(time); });
  }

  /// Ends the server.
  void Stop() {
    if (!thread_.joinable()) return;
    boost::asio::post(io_, [this] { server_.reset(); });
    thread_.join();
  }

  /// The lines of the log so far.
  std::vector<std::string> Lines() {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

  /// The level of a line in the log.
  LogLevel LevelOf(const std::string& line) {
    const std::lock_guard lock(mutex_);
    return levels_.at(line);
  }

  /// The log lines of the faults so far.
  std::vector<std::string> FaultLines() {
    const std::lock_guard lock(mutex_);
    return fault_lines_;
  }

  /// The lines of the log since the previous call.
  std::vector<std::string> TakeLines() {
    const std::lock_guard lock(mutex_);
    levels_.clear();
    return std::exchange(lines_, {});
  }

  /// Waits, 5 seconds at most, until the log has `count` lines. Returns the lines.
  std::vector<std::string> WaitForLines(std::size_t count) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (Lines().size() < count && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return Lines();
  }

 private:
  TestServer(HalServerOptions options, std::unique_ptr<ServerFaults> faults)
      : TestServer(WithFaults(std::move(options), faults.get())) {
    faults_ = std::move(faults);
  }

  std::unique_ptr<ServerFaults> ParseFaults(const std::string& text) {
    const auto log = [this](LogLevel, const std::string& line) {
      const std::lock_guard lock(mutex_);
      fault_lines_.push_back(line);
    };
    auto plan = ParseFaultFile(text, {log, [] {}});
    if (auto* const errors = std::get_if<std::vector<Diagnostic>>(&plan)) {
      ADD_FAILURE() << FormatDiagnostic("faults", errors->front());
      std::abort();
    }
    return std::get<std::unique_ptr<ServerFaults>>(std::move(plan));
  }

  static HalServerOptions WithFaults(HalServerOptions options, ServerFaults* faults) {
    options.faults = faults;
    return options;
  }

  // Runs `function` on the server's thread.
  template <typename Function>
  std::invoke_result_t<Function> Call(Function function) {
    std::packaged_task<std::invoke_result_t<Function>()> task(std::move(function));
    auto result = task.get_future();
    boost::asio::post(io_, [&task] { task(); });
    return result.get();
  }

  void AddLine(LogLevel level, const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
    levels_[line] = level;
  }

  TestFolder folder_;
  std::mutex mutex_;
  std::vector<std::string> lines_;
  std::map<std::string, LogLevel> levels_;
  std::vector<std::string> fault_lines_;
  // Outlives the server.
  std::unique_ptr<ServerFaults> faults_;
  boost::asio::io_context io_{1};
  std::optional<HalServer> server_;
  std::thread thread_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SERVER_TEST_SERVER_H_
