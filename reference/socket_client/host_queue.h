#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_HOST_QUEUE_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_HOST_QUEUE_H_

#include <string>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_request.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"

namespace reference {

/// The host's side of a `ClientQueue`: requests go in. Called on the thread that sends requests;
/// the counters on any thread.
///
/// Operations that return whether to wake the connection leave the waking to the caller, who posts
/// one wake-up to the connection's thread.
class HostQueue {
 public:
  /// What the caller must do after `Submit`.
  enum class Next {
    kNothing,
    kWakeConnection,
    /// No other request is in flight, or many wait: write the frames at once, then call
    /// `RequestWake`.
    kWriteNow,
  };

  struct Submission {
    /// Success, or the code with which the request was refused.
    HalReturnCode code{};
    Next next = Next::kNothing;
  };

  HostQueue() = default;
  HostQueue(const HostQueue&) = delete;
  HostQueue& operator=(const HostQueue&) = delete;
  virtual ~HostQueue() = default;

  /// Queues the request, or refuses it.
  virtual Submission Submit(const HalRequest& request) = 0;
  /// Queues the begin or the end of a reinstall. Returns whether to wake the connection.
  virtual bool SubmitMark(FrameType mark) = 0;
  /// Queues the end of a reinstall that has not begun, which the server answers with its digests;
  /// not while a reinstall is open or its end not answered. Returns whether to wake the connection.
  virtual bool AskForDigests() = 0;
  /// Whether a request of any size would be queued. After false, the connection reports room.
  virtual bool HasRoom() = 0;

  /// Replaces `frames` with everything waiting to be written. False if nothing waits, or while
  /// frames that either side took are still being written.
  virtual bool TakeFrames(std::string* frames) = 0;
  /// Confirms that the frames taken last have been written.
  virtual void ConfirmWritten() = 0;
  /// Called after a write. Returns whether to wake the connection, for anything that arrived
  /// meanwhile or for the room that the write made.
  virtual bool RequestWake() = 0;

  virtual HalConnectionCounters counters() const = 0;
  virtual HalLatencies latencies() const = 0;
  virtual SocketHalStatistics statistics() const = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_HOST_QUEUE_H_
