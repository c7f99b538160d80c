#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/socket_client/kept_vrfs.h"
#include "reference/socket_client/outstanding_requests.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"

namespace reference {

/// What stands between the host's thread and the connection's: requests on their way to the server,
/// and what ended without it. Takes and gives; calls nothing of the host.
///
/// Callable on any thread, though what says "connection" is called on the connection's only.
class ClientQueue {
 public:
  using Clock = std::chrono::steady_clock;

  /// A request that ended without an answer; without its payload.
  struct Ended {
    HalRequest request;
    HalReturnCode code{};
  };

  /// What became of a request that is given to the queue.
  struct Taken {
    HalReturnCode code{};
    /// Nothing else is under way: it can be written at once. Otherwise `wake` says what to do.
    bool alone = false;
    /// The connection has to be woken up.
    bool wake = false;
  };

  /// A reinstall that was ended by the frame of that sequence.
  struct EndedReinstall {
    std::uint32_t sequence = 0;
    /// 0 when it was not begun with this server.
    std::uint32_t number = 0;
    Clock::time_point begin;
  };

  explicit ClientQueue(const SocketHalOptions& options);

  Taken Submit(const HalRequest& request);
  /// Whether the connection has to be woken up.
  bool Mark(FrameType mark);
  bool HasRoom();

  HalConnectionCounters counters() const;
  HalLatencies latencies() const;
  SocketHalStatistics statistics() const;

  /// Gives all that waits, instead of what `frames` held. False when there is nothing, or when what
  /// an earlier call gave is still being written.
  bool TakeFrames(std::string* frames);
  /// What the last call gave was written.
  void Written();
  /// Whether the connection has to be woken up.
  bool WakeDue();

  /// Connection: it is awake; nothing asks for a wake-up until it calls `Awake`.
  void StayAwake();
  /// Connection: what comes from now on may ask for another wake-up. Whether there are deadlines to
  /// watch now, with `Expire`.
  bool Awake();
  /// Connection: there is a server, which takes payloads of that size; what waited is on its way.
  void Connect(std::size_t max_payload);
  /// Connection: there is no server any more, or still none: everything outstanding has ended.
  void Disconnect();
  /// Connection: what ended since the last time, instead of what `ended` held.
  void TakeEnded(std::vector<Ended>* ended);
  /// Connection: appends a frame that asks for a sign of life.
  void AddHeartbeat();
  /// Connection: the request that a result belongs to, which came at `now` and which the server had
  /// for `hal_time`; nothing for a result that has none, or comes too late, after counting it. VRF
  /// requests have no result to deliver.
  std::optional<OutstandingRequest> Answer(std::uint32_t sequence, Clock::time_point now,
                                           std::chrono::nanoseconds hal_time);
  /// Connection: ends what is overdue; the time at which to look again. Nothing when a request that
  /// comes later will ask for a wake-up, to have its deadline watched.
  std::optional<Clock::time_point> Expire(Clock::time_point now);
  /// Connection: the VRF request that the server must have lost, without its payload: it has no
  /// answer by its deadline, but a later one has. Behind it, nothing would ever be free again.
  std::optional<HalRequest> LostVrf(Clock::time_point now);
  /// Connection: the reinstall whose end has that sequence, once; nothing, after counting it, for
  /// one that nobody waits for.
  std::optional<EndedReinstall> TakeEndedReinstall(std::uint32_t sequence);
  /// Connection: whether the host is to be told that there is room; true once.
  bool TakeRoomDue();
  /// Connection: counts a result whose delivery begins, and a report of the server found.
  void CountResult() { results_.fetch_add(1, std::memory_order_relaxed); }
  void CountServerFound();

 private:
  enum class Server {
    /// The first attempt to connect is not over.
    kUnknown,
    kNone,
    kFound,
  };

  /// A request, or a mark, from before there was a server.
  struct Early {
    HalRequest request;
    std::optional<FrameType> mark;
  };

  // All of these with `mutex_` held.
  std::optional<HalReturnCode> Refusal(const HalRequest& request) const;
  bool Fits(std::size_t payload_size) const;
  std::size_t MaxPayload() const;
  bool RoomNow() const;
  void Accept(const HalRequest& request);
  void Send(const HalRequest& request);
  void SendMark(FrameType mark);
  void Append(FrameType type, std::uint32_t sequence, const std::string& payload);
  void End(const HalRequest& request, HalReturnCode code);
  bool HasWork() const;
  bool WakeFor(bool work);

  const std::size_t max_entries_;
  const std::size_t max_bytes_;
  const std::chrono::milliseconds deadline_;

  mutable std::mutex mutex_;
  // Guarded by `mutex_`:
  Server server_ = Server::kUnknown;
  std::size_t server_max_payload_ = kDefaultMaxPayload;
  std::vector<Early> early_;
  std::size_t early_bytes_ = 0;
  KeptVrfs kept_vrfs_;
  OutstandingRequests outstanding_;
  // Payload bytes of the outstanding VRF requests.
  std::size_t outstanding_vrf_bytes_ = 0;
  std::vector<Ended> ended_;

  // Frames that wait, and how many of them are requests and marks.
  std::string frames_;
  std::size_t frames_counted_ = 0;
  // What is being written meanwhile.
  bool writing_ = false;
  std::size_t writing_bytes_ = 0;
  std::size_t writing_counted_ = 0;
  std::uint64_t writing_up_to_ = 0;

  bool wake_pending_ = false;
  // Whether the connection looks at the deadlines some time without being woken up, and has to be
  // woken up for that.
  bool deadlines_watched_ = false;
  bool deadlines_to_watch_ = false;
  bool room_wanted_ = false;

  std::uint32_t mark_sequence_ = 0;
  std::uint32_t reinstalls_ = 0;
  // Of the reinstall that is open with this server; number 0 when there is none.
  EndedReinstall open_reinstall_;
  std::optional<EndedReinstall> ended_reinstall_;

  HalConnectionCounters counters_;
  LatencyHistogram queue_latency_;
  LatencyHistogram wire_latency_;
  LatencyHistogram hal_latency_;
  std::uint64_t wake_ups_ = 0;
  std::uint64_t writes_ = 0;

  std::atomic<std::uint64_t> results_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_CLIENT_QUEUE_H_
