// Requests over a socket to a HAL server, and their results back.
//
//     socket_bench SOCKET OBJECTS WINDOW client      installs OBJECTS objects in the server on
//                                                    SOCKET, at most WINDOW requests in flight;
//                                                    prints nanoseconds per request. The HAL client
//                                                    gets prepared messages.
//     socket_bench SOCKET OBJECTS WINDOW library     the same, but the library gets objects, makes
//                                                    the messages and takes the results

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/captured_requests.h"
#include "benchmarks/destinations.h"
#include "reference/hal/kinds.h"
#include "reference/manager/engine/adapters.h"
#include "reference/manager/engine/notification_sink.h"
#include "reference/record/wrapped_message.h"
#include "reference/socket_client/socket_hal.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"

namespace {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;
using reference::HalKind;
using reference::SocketHal;

constexpr std::size_t IndexOf(HalKind kind) { return static_cast<std::size_t>(kind); }

/// Sends requests as fast as the HAL takes them, from within the reports that the server was found
/// and that there is room, so that the measurement involves no other thread.
class Sender {
 public:
  /// `send` makes the request at that place.
  Sender(std::size_t requests, std::size_t results, std::function<void(std::size_t place)> send)
      : requests_(requests), unanswered_(results), send_(std::move(send)) {}

  /// From the first request to the last result; 0 if there were failures.
  Nanoseconds Run(SocketHal* hal, HalL3MplsEncapsulationClientCallbackItf* results) {
    hal_ = hal;
    const auto found = [this] {
      begin_ = Clock::now();
      Send();
    };
    hal_->Start({results, found, [this] { Send(); }});
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return has_ended_; });
    return failures_ == 0 ? end_ - begin_ : Nanoseconds::zero();
  }

  void CountResult(bool success) {
    if (!success) ++failures_;
    if (--unanswered_ > 0) return;
    end_ = Clock::now();
    const std::lock_guard lock(mutex_);
    has_ended_ = true;
    ended_.notify_one();
  }

 private:
  void Send() {
    while (next_ < requests_ && hal_->HasRoom()) send_(next_++);
  }

  SocketHal* hal_ = nullptr;
  // On the connection's thread, until the run ends:
  const std::size_t requests_;
  std::size_t next_ = 0;
  std::size_t unanswered_;
  std::size_t failures_ = 0;
  const std::function<void(std::size_t place)> send_;
  Clock::time_point begin_;
  Clock::time_point end_;

  std::mutex mutex_;
  std::condition_variable ended_;
  // Guarded by `mutex_`:
  bool has_ended_ = false;
};

/// The results as the HAL client delivers them.
class ClientResults : public reference::HalCallbackBase {
 public:
  Sender* sender = nullptr;

 private:
  void OnResult(reference::HalOperation /*operation*/, reference::HalReturnCode code,
                const reference::ResultIds& /*ids*/) override {
    sender->CountResult(code == reference::kHalSuccess);
  }
};

/// The results as they reach the library's controllers.
class LibraryResults : public reference::NotificationSink {
 public:
  Sender* sender = nullptr;

 private:
  void OnResult(const reference::HalResult& result) override {
    sender->CountResult(result.success);
  }
  void OnReinstall(HalKind /*kind*/) override {}
};

Nanoseconds MeasureClient(SocketHal* hal, std::size_t objects) {
  struct Ready {
    decltype(reference::OperationTraits::request) install;
    reference::WrappedMessage wrapped;
  };
  std::vector<Ready> ready;
  std::size_t results = 0;
  for (const reference::HalRequest& request : bench::CaptureRequests(objects)) {
    const reference::OperationTraits& traits = TraitsOf(request.operation);
    ready.push_back({traits.request, reference::WrapMessage(traits.kind, request.payload)});
    if (traits.report != nullptr) ++results;
  }

  ClientResults client_results;
  Sender sender(ready.size(), results, [hal, &ready](std::size_t place) {
    const Ready& request = ready[place];
    (hal->*request.install)(request.wrapped.message.get());
  });
  client_results.sender = &sender;
  return sender.Run(hal, &client_results);
}

Nanoseconds MeasureLibrary(SocketHal* hal, std::size_t objects) {
  bench::Destinations destinations = bench::MakeDestinations(objects);
  std::vector<reference::HaiObject*> ready;
  bench::ForEach(&destinations, [&ready](auto* destination) { ready.push_back(destination); });
  // VRF requests have no result.
  const std::size_t results = ready.size() - destinations[IndexOf(HalKind::kVrf)].size();

  LibraryResults library_results;
  Sender sender(ready.size(), results,
                [&ready](std::size_t place) { reference::SendInstall(ready[place]); });
  library_results.sender = &sender;
  reference::SetNotificationSink(&library_results);
  dest_mng::Hai* const hai = dest_mng::Hai::GetInstance();
  hai->set_client(hal);
  const Nanoseconds time = sender.Run(hal, hai->hal_encap_callback());
  hai->set_client(nullptr);
  reference::SetNotificationSink(nullptr);
  return time;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t objects = argc == 5 ? std::strtoul(argv[2], nullptr, 10) : 0;
  const std::string_view what = argc == 5 ? argv[4] : "";
  if (objects == 0 || (what != "client" && what != "library")) {
    std::cerr << "usage: socket_bench SOCKET OBJECTS WINDOW client|library\n";
    return 2;
  }
  reference::SocketHalOptions options;
  options.path = argv[1];
  options.queue_entries = std::strtoul(argv[3], nullptr, 10);
  SocketHal hal(options);
  const Nanoseconds time =
      what == "client" ? MeasureClient(&hal, objects) : MeasureLibrary(&hal, objects);
  if (time == Nanoseconds::zero()) {
    std::cerr << "socket_bench: the server refused requests\n";
    return 1;
  }
  std::cout << "request " << time.count() / static_cast<double>(objects) << "\n";
  return 0;
}
