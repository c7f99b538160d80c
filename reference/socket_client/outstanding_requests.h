#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "reference/hal/hal_request.h"

namespace reference {

/// A request that was handed to the connection and has not been answered.
struct OutstandingRequest {
  /// Without the payload, except of VRFs, which may have to be sent again.
  HalRequest request;
  std::chrono::steady_clock::time_point submitted;
  /// When the socket had taken it.
  std::optional<std::chrono::steady_clock::time_point> written;
  /// The reinstall that it is part of, 0 for none, and its entry's hash there.
  std::uint32_t reinstall = 0;
  std::uint64_t hash = 0;
  /// Its result was delivered when its time was up.
  bool expired = false;

  bool ResultIsDue() const { return !expired && HasResult(request.operation); }
};

/// The requests on their way, in the order in which they were sent: a ring in which a request's
/// place is its sequence number. So no number is given twice at a time, and nothing is allocated.
///
/// A place is free again when it and all before it are answered. What is expired in front of an
/// answered request does not wait for its answer any more. What cannot expire does, and holds up
/// all behind it.
///
/// Used by one thread at a time.
class OutstandingRequests {
 public:
  /// `capacity` is from 1 to 2^23.
  OutstandingRequests(std::size_t capacity, std::uint32_t first_sequence);

  /// How many are not answered.
  std::size_t size() const { return size_; }
  /// How many places are not free.
  std::size_t places() const { return tail_ - head_; }
  bool full() const { return places() == slots_.size(); }

  /// Adds a request behind the others and returns its sequence number. Not when full.
  std::uint32_t Add(OutstandingRequest request);

  /// Takes out the request of that number; nothing when there is none.
  std::optional<OutstandingRequest> Take(std::uint32_t sequence);

  /// Everything that is outstanding up to now was written at that time.
  void MarkWritten(std::uint64_t up_to, std::chrono::steady_clock::time_point now);
  /// How many were added so far, for `MarkWritten`.
  std::uint64_t added() const { return tail_; }

  /// The oldest request that can still expire: it has a result, which was not delivered; null when
  /// there is none. Valid until something else is called.
  const OutstandingRequest* OldestUnexpired();
  /// Marks the one that `OldestUnexpired` returned.
  void ExpireOldest();

  /// The oldest request, when one that was sent after it has been answered and it cannot expire;
  /// else null. Valid until something else is called.
  const OutstandingRequest* OldestOvertaken();

  /// Takes out all, in order.
  std::vector<OutstandingRequest> TakeAll();

 private:
  std::optional<OutstandingRequest>& SlotOf(std::uint64_t place) {
    return slots_[place % slots_.size()];
  }
  void ForgetExpiredBefore(std::uint64_t place);

  // Empty where a request was answered before one in front of it.
  std::vector<std::optional<OutstandingRequest>> slots_;
  const std::uint32_t first_sequence_;
  // Places count all requests ever added.
  std::uint64_t head_ = 0;
  std::uint64_t tail_ = 0;
  std::uint64_t unwritten_ = 0;
  // No place in front of it holds a request that can expire.
  std::uint64_t unexpired_ = 0;
  std::size_t size_ = 0;
  // Whether `ForgetExpiredBefore` may have something to do.
  std::size_t expired_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
