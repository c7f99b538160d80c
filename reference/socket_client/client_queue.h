#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/socket_client/connection_queue.h"
#include "reference/socket_client/host_queue.h"
#include "reference/socket_client/kept_vrfs.h"
#include "reference/socket_client/outstanding_requests.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/support/mutex.h"
#include "reference/wire/frame.h"

namespace reference {

/// Connects the host's thread with the connection's: holds requests on their way to the server, and
/// those that ended without it. Each thread has its own interface. Owned by the connection; never
/// calls the host.
class ClientQueue : private HostQueue, private ConnectionQueue {
 public:
  explicit ClientQueue(const SocketHalOptions& options);

  HostQueue* host() { return this; }
  ConnectionQueue* connection() { return this; }

 private:
  using Clock = ConnectionQueue::Clock;

  Submission Submit(const HalRequest& request) override;
  bool SubmitMark(FrameType mark) override;
  bool AskForDigests() override;
  bool HasRoom() override;
  bool RequestWake() override;
  HalConnectionCounters counters() const override;
  HalLatencies latencies() const override;
  SocketHalStatistics statistics() const override;

  bool TakeFrames(std::string* frames) override;
  void ConfirmWritten() override;

  void ServerFound(std::size_t max_payload, EntryHashFunction hash_function) override;
  void ServerLost() override;
  void SuppressWakeUps() override;
  bool AllowWakeUps() override;
  bool TakeWakeUp() override;
  void AddHeartbeat() override;
  void TakeAnswered(const std::vector<Answer>& answers, Clock::time_point now,
                    std::vector<Answered>* answered) override;
  void CountDelivery() override {
    undelivered_.store(undelivered_.load(std::memory_order_relaxed) - 1, std::memory_order_release);
  }
  std::optional<EndedReinstall> TakeEndedReinstall(std::uint32_t sequence) override;
  std::optional<EndedReinstall> TakeOverdueReinstall(Clock::time_point now) override;
  std::optional<Clock::time_point> EndOverdue(Clock::time_point now) override;
  void TakeEnded(std::vector<Ended>* ended) override;
  bool TakeRoomReport() override;
  void CountResult() override {
    results_.store(results_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  void CountServerFound() override;

  enum class Server {
    /// The first attempt to connect has not ended.
    kUnknown,
    kNone,
    kFound,
  };

  /// A request or a mark from before there was a server.
  struct Early {
    HalRequest request;
    std::optional<FrameType> mark;
  };

  std::optional<HalReturnCode> Refusal(const HalRequest& request) const ZUSKUX_REQUIRES(mutex_);
  bool Fits(std::size_t payload_size) const ZUSKUX_REQUIRES(mutex_);
  std::size_t MaxPayload() const ZUSKUX_REQUIRES(mutex_);
  bool RoomNow() const ZUSKUX_REQUIRES(mutex_);
  std::size_t SureRoom() const ZUSKUX_REQUIRES(mutex_);
  void Accept(const HalRequest& request) ZUSKUX_REQUIRES(mutex_);
  void Send(const HalRequest& request) ZUSKUX_REQUIRES(mutex_);
  void SendMark(FrameType mark) ZUSKUX_REQUIRES(mutex_);
  void Append(FrameType type, std::uint32_t sequence, const std::string& payload)
      ZUSKUX_REQUIRES(mutex_);
  void CountAnswer(const OutstandingRequest& answered, Clock::time_point now,
                   std::chrono::nanoseconds hal_time) ZUSKUX_REQUIRES(mutex_);
  void End(const HalRequest& request, HalReturnCode code) ZUSKUX_REQUIRES(mutex_);
  bool HasWork() const ZUSKUX_REQUIRES(mutex_);
  bool WakeFor(bool work) ZUSKUX_REQUIRES(mutex_);

  const std::size_t max_entries_;
  const std::size_t max_bytes_;
  const std::chrono::milliseconds deadline_;

  mutable Mutex mutex_;
  Server server_ ZUSKUX_GUARDED_BY(mutex_) = Server::kUnknown;
  std::size_t server_max_payload_ ZUSKUX_GUARDED_BY(mutex_) = kDefaultMaxPayload;
  EntryHashFunction hash_function_ ZUSKUX_GUARDED_BY(mutex_) = EntryHashFunction::kXxh3;
  std::vector<Early> early_ ZUSKUX_GUARDED_BY(mutex_);
  std::size_t early_bytes_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  KeptVrfs kept_vrfs_ ZUSKUX_GUARDED_BY(mutex_);
  OutstandingRequests outstanding_ ZUSKUX_GUARDED_BY(mutex_);
  std::vector<Ended> ended_ ZUSKUX_GUARDED_BY(mutex_);

  // Frames waiting to be written, and how many of them are requests and marks.
  std::string frames_ ZUSKUX_GUARDED_BY(mutex_);
  std::size_t frames_counted_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  // The part that is being written.
  bool writing_ ZUSKUX_GUARDED_BY(mutex_) = false;
  std::size_t writing_bytes_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  std::size_t writing_counted_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  std::uint64_t writing_up_to_ ZUSKUX_GUARDED_BY(mutex_) = 0;

  // The connection's thread is awake and will check the queue.
  bool awake_ ZUSKUX_GUARDED_BY(mutex_) = false;
  // A wake-up is on its way to that thread.
  bool wake_posted_ ZUSKUX_GUARDED_BY(mutex_) = false;
  // Whether the connection checks the deadlines at some time without a wake-up. If not, the first
  // deadline needs one.
  bool deadlines_watched_ ZUSKUX_GUARDED_BY(mutex_) = false;
  bool deadlines_to_watch_ ZUSKUX_GUARDED_BY(mutex_) = false;
  bool room_wanted_ ZUSKUX_GUARDED_BY(mutex_) = false;
  // How many requests are sure to fit; 0 if unknown. Written with `mutex_` locked: anything but an
  // accepted request that takes room sets it to 0.
  std::atomic<std::size_t> sure_room_ = 0;

  std::uint32_t mark_sequence_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  std::uint32_t reinstalls_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  // The reinstall that is open with this server; number 0 if there is none.
  EndedReinstall open_reinstall_ ZUSKUX_GUARDED_BY(mutex_);
  std::optional<EndedReinstall> ended_reinstall_ ZUSKUX_GUARDED_BY(mutex_);

  HalConnectionCounters counters_ ZUSKUX_GUARDED_BY(mutex_);
  LatencyHistogram queue_latency_ ZUSKUX_GUARDED_BY(mutex_);
  LatencyHistogram wire_latency_ ZUSKUX_GUARDED_BY(mutex_);
  LatencyHistogram hal_latency_ ZUSKUX_GUARDED_BY(mutex_);
  std::uint64_t wake_ups_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  std::uint64_t writes_ ZUSKUX_GUARDED_BY(mutex_) = 0;

  // Only the connection's thread writes these two, so they need no atomic increments.
  // Answered requests that the connection has taken and not begun to report.
  std::atomic<std::size_t> undelivered_ = 0;
  std::atomic<std::uint64_t> results_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_
