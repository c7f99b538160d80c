#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/socket_client/outstanding_requests.h"

namespace reference {

/// The connection's side of a `ClientQueue`: frames go to the server, answers come back, and what
/// ended is collected to be reported. Called on the connection's thread.
class ConnectionQueue {
 public:
  using Clock = std::chrono::steady_clock;

  /// A request that ended without an answer; without its payload.
  struct Ended {
    HalRequest request;
    HalReturnCode code{};
  };

  /// A reinstall that was ended by the frame of that sequence.
  struct EndedReinstall {
    std::uint32_t sequence = 0;
    /// 0 when it was not begun with this server.
    std::uint32_t number = 0;
    Clock::time_point begin;
  };

  ConnectionQueue() = default;
  ConnectionQueue(const ConnectionQueue&) = delete;
  ConnectionQueue& operator=(const ConnectionQueue&) = delete;
  virtual ~ConnectionQueue() = default;

  /// There is a server, which takes payloads of that size: queues what waited for it.
  virtual void ServerFound(std::size_t max_payload) = 0;
  /// There is no server any more, or still none: everything outstanding ends, except VRF requests,
  /// which are kept for the next server.
  virtual void ServerLost() = 0;

  /// The thread is awake and will look at the queue: no wake-ups until `AllowWakeUps`.
  virtual void SuppressWakeUps() = 0;
  /// What comes from now on asks for a wake-up again. Returns whether `EndOverdue` has to be
  /// called, because there is a first deadline to watch.
  virtual bool AllowWakeUps() = 0;

  /// As on the host's side.
  virtual bool TakeFrames(std::string* frames) = 0;
  virtual void ConfirmWritten() = 0;
  /// Appends a heartbeat to the frames that wait.
  virtual void AddHeartbeat() = 0;

  /// Takes out the request that a result belongs to; `now` is when it came, `hal_time` how long the
  /// server had the request. Nothing for a result that belongs to none, after counting it as late.
  virtual std::optional<OutstandingRequest> TakeAnswered(std::uint32_t sequence,
                                                         Clock::time_point now,
                                                         std::chrono::nanoseconds hal_time) = 0;
  /// Takes out the reinstall whose end has that sequence; nothing for one that nobody waits for,
  /// after counting it as late.
  virtual std::optional<EndedReinstall> TakeEndedReinstall(std::uint32_t sequence) = 0;
  /// Ends every request that is overdue. Returns when to call this again; nothing when a request
  /// that comes later will ask for a wake-up, to have its deadline watched.
  virtual std::optional<Clock::time_point> EndOverdue(Clock::time_point now) = 0;
  /// A VRF request that the server must have lost, without its payload: its deadline has passed,
  /// and a request sent after it has been answered. Its place would never be free again.
  virtual std::optional<HalRequest> FindLostVrf(Clock::time_point now) = 0;

  /// Replaces `ended` by what has ended since the last call.
  virtual void TakeEnded(std::vector<Ended>* ended) = 0;
  /// Whether to report room to the host; true once after each `HasRoom` that was false.
  virtual bool TakeRoomReport() = 0;

  /// Counts a result whose report begins.
  virtual void CountResult() = 0;
  /// Counts a report that the server was found.
  virtual void CountServerFound() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_
