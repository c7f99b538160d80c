#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/entry_hash.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/socket_client/outstanding_requests.h"
#include "reference/wire/frame.h"

namespace reference {

/// The connection's side of a `ClientQueue`: frames go to the server, answers come back, and ended
/// requests are collected for reporting. Called on the connection's thread.
class ConnectionQueue {
 public:
  using Clock = std::chrono::steady_clock;

  /// A request that ended without an answer; without its payload.
  struct Ended {
    HalRequest request;
    HalReturnCode code{};
  };

  /// A result that arrived.
  struct Answer {
    std::uint32_t sequence = 0;
    ResultPayload result;
  };

  /// A request and its answer. Refers to the `Answer`.
  struct Answered {
    // A copy in place takes fewer instructions than one that is then moved.
    // NOLINTNEXTLINE(modernize-pass-by-value)
    Answered(const OutstandingRequest& outstanding, const ResultPayload* answer)
        : request(outstanding), result(answer) {}

    OutstandingRequest request;
    const ResultPayload* result;

    /// Whether a server may answer the request like that.
    bool valid() const { return result->id == request.id && IsHalCode(result->code); }
  };

  /// A reinstall, ended by the frame with that sequence.
  struct EndedReinstall {
    std::uint32_t sequence = 0;
    /// 0 if it did not begin with this server.
    std::uint32_t number = 0;
    Clock::time_point begin;
    Clock::time_point end;
  };

  ConnectionQueue() = default;
  ConnectionQueue(const ConnectionQueue&) = delete;
  ConnectionQueue& operator=(const ConnectionQueue&) = delete;
  virtual ~ConnectionQueue() = default;

  /// A server was found that accepts payloads of that size and knows the hash function: queues what
  /// waited for it.
  virtual void ServerFound(std::size_t max_payload, EntryHashFunction hash_function) = 0;
  /// The server was lost, or there is still none: everything outstanding ends, except VRF requests,
  /// which are kept for the next server.
  virtual void ServerLost() = 0;

  /// The thread is awake and will check the queue: no wake-ups until `AllowWakeUps`.
  virtual void SuppressWakeUps() = 0;
  /// Requests from now on ask for a wake-up again. Returns whether to call `EndOverdue`, because
  /// there is a first deadline to watch.
  virtual bool AllowWakeUps() = 0;
  /// A wake-up has arrived; the caller checks the queue. Returns as `AllowWakeUps`.
  virtual bool TakeWakeUp() = 0;

  /// As on the host's side.
  virtual bool TakeFrames(std::string* frames) = 0;
  virtual void ConfirmWritten() = 0;
  /// Appends a heartbeat to the waiting frames.
  virtual void AddHeartbeat() = 0;

  /// Replaces `answered` with the requests to which the answers belong, and removes them. `now` is
  /// when the answers arrived. Counts an answer that belongs to no request as late. Stops after one
  /// that is not valid.
  virtual void TakeAnswered(const std::vector<Answer>& answers, Clock::time_point now,
                            std::vector<Answered>* answered) = 0;
  /// Counts one of those requests as finished, because its report is about to begin.
  virtual void CountDelivery() = 0;
  /// Removes and returns the reinstall whose end has that sequence. If there is none, counts the
  /// answer as late and returns nothing.
  virtual std::optional<EndedReinstall> TakeEndedReinstall(std::uint32_t sequence) = 0;
  /// Removes and returns the reinstall whose end the server has not answered within the deadline.
  virtual std::optional<EndedReinstall> TakeOverdueReinstall(Clock::time_point now) = 0;
  /// Ends every overdue request. Returns when to call this again, or nothing if the next request
  /// will ask for a wake-up to have its deadline watched.
  virtual std::optional<Clock::time_point> EndOverdue(Clock::time_point now) = 0;

  /// Replaces `ended` with the requests that have ended since the last call.
  virtual void TakeEnded(std::vector<Ended>* ended) = 0;
  /// Whether to report room to the host; true once after one or more `HasRoom` calls returned
  /// false.
  virtual bool TakeRoomReport() = 0;

  /// Counts a result whose report is about to begin.
  virtual void CountResult() = 0;
  /// Counts a server-found report.
  virtual void CountServerFound() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_CONNECTION_QUEUE_H_
