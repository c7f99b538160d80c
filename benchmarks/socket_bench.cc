// Requests through the library, over a socket to a HAL server, and their results back.
//
//   socket_bench SOCKET OBJECTS WINDOW     installs that many objects with the server that listens
//                                          there, WINDOW of them without an answer at most; prints
//                                          nanoseconds a request

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>

#include "benchmarks/destinations.h"
#include "reference/manager/adapters.h"
#include "reference/manager/notification_sink.h"
#include "reference/socket_client/socket_hal.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"

namespace {

using Clock = std::chrono::steady_clock;
using reference::HalKind;

/// Sends as fast as the HAL takes it, and counts what comes back.
class Sender : public reference::NotificationSink {
 public:
  Sender(const std::string& socket, std::size_t window) : hal_(Options(socket, window)) {
    SetNotificationSink(this);
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  ~Sender() override { reference::SetNotificationSink(nullptr); }

  void Connect() {
    dest_mng::Hai* const hai = dest_mng::Hai::GetInstance();
    hai->set_client(&hal_);
    hal_.Start({hai->hal_encap_callback(), [this] { Set(&found_); }, [this] { Set(&room_); }});
    WaitFor(&found_);
  }

  void Install(reference::Destination* destination) {
    while (!hal_.HasRoom()) WaitFor(&room_);
    reference::SendInstall(destination);
  }

  /// Waits for so many results; whether all were successes.
  bool AwaitResults(std::size_t count) {
    std::unique_lock lock(mutex_);
    awaited_ = count;
    changed_.wait(lock, [this] { return results_ >= awaited_; });
    return failures_ == 0;
  }

  void OnResult(const reference::HalResult& result) override {
    const std::lock_guard lock(mutex_);
    ++results_;
    if (!result.success) ++failures_;
    if (results_ == awaited_) changed_.notify_one();
  }
  void OnReinstall(HalKind /*kind*/) override {}

 private:
  static reference::SocketHalOptions Options(const std::string& socket, std::size_t window) {
    reference::SocketHalOptions options;
    options.path = socket;
    options.queue_entries = window;
    return options;
  }

  void Set(bool* flag) {
    const std::lock_guard lock(mutex_);
    *flag = true;
    changed_.notify_one();
  }

  void WaitFor(bool* flag) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [flag] { return *flag; });
    *flag = false;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by `mutex_`:
  bool found_ = false;
  bool room_ = false;
  std::size_t results_ = 0;
  std::size_t failures_ = 0;
  std::size_t awaited_ = 0;

  // Ends before what it reports to.
  reference::SocketHal hal_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::size_t objects = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0;
  if (objects == 0) {
    std::cerr << "usage: socket_bench SOCKET OBJECTS WINDOW\n";
    return 2;
  }
  bench::Destinations destinations = bench::MakeDestinations(objects);
  Sender sender(argv[1], std::strtoul(argv[3], nullptr, 10));
  sender.Connect();

  const Clock::time_point begin = Clock::now();
  bench::ForEach(&destinations, [&sender](auto* destination) { sender.Install(destination); });
  // The requests of VRFs have no result.
  const std::size_t vrfs = destinations[static_cast<std::size_t>(HalKind::kVrf)].size();
  const bool installed = sender.AwaitResults(objects - vrfs);
  const std::chrono::duration<double, std::nano> time = Clock::now() - begin;
  if (!installed) {
    std::cerr << "socket_bench: the server refused requests\n";
    return 1;
  }
  std::cout << "request " << time.count() / static_cast<double>(objects) << "\n";
  return 0;
}
