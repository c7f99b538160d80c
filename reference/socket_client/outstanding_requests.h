#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "reference/hal/hal_request.h"

namespace reference {

/// A request that was passed to the connection and has not been answered.
struct OutstandingRequest {
  /// Without the payload, except for VRFs that have not expired: they may have to be sent again.
  HalRequest request;
  std::chrono::steady_clock::time_point submitted;
  /// When the socket accepted it.
  std::optional<std::chrono::steady_clock::time_point> written;
  /// The reinstall that it is part of, 0 for none, and the hash of its entry.
  std::uint32_t reinstall = 0;
  std::uint64_t hash = 0;
  /// Its deadline passed, and that outcome was delivered.
  bool expired = false;
};

/// The requests in flight, in the order in which they were sent: a ring in which a request's place
/// is its sequence number. So all sequence numbers in use differ, and nothing is allocated.
///
/// A place becomes free once it and all before it are answered or have expired. An expired request
/// waits for its answer until a later request is answered or takes its place.
///
/// Used by one thread at a time.
class OutstandingRequests {
 public:
  /// `capacity` is from 1 to 2^23.
  OutstandingRequests(std::size_t capacity, std::uint32_t first_sequence);

  /// Number of unanswered requests.
  std::size_t size() const { return size_; }
  /// Number of places in use.
  std::size_t places() const { return tail_ - std::max(head_, unexpired_); }
  bool full() const { return places() == slots_.size(); }

  /// Appends a request and returns its sequence number. Do not call when full.
  std::uint32_t Add(OutstandingRequest request);

  /// Removes and returns the request with that number; nothing if there is none.
  std::optional<OutstandingRequest> Take(std::uint32_t sequence);

  /// Records that everything outstanding, up to that count of added requests, was written at `now`.
  void MarkWritten(std::uint64_t up_to, std::chrono::steady_clock::time_point now);
  /// How many requests were added so far, for `MarkWritten`.
  std::uint64_t added() const { return tail_; }

  /// The oldest request that has not expired; null if there is none. Valid until the next call of
  /// another function.
  const OutstandingRequest* OldestUnexpired();
  /// Marks the request that `OldestUnexpired` returned as expired and returns it. Its place keeps
  /// no payload.
  HalRequest ExpireOldest();

  /// Removes and returns all requests, in order.
  std::vector<OutstandingRequest> TakeAll();

 private:
  std::optional<OutstandingRequest>& SlotOf(std::uint64_t place) {
    return slots_[place % slots_.size()];
  }
  void ForgetExpiredBefore(std::uint64_t place);
  // A no-op if the request there was answered or has not expired.
  void ForgetExpired(std::uint64_t place);

  // Empty if the request was answered before one in front of it.
  std::vector<std::optional<OutstandingRequest>> slots_;
  const std::uint32_t first_sequence_;
  // Places count all requests ever added.
  std::uint64_t head_ = 0;
  std::uint64_t tail_ = 0;
  std::uint64_t unwritten_ = 0;
  // Every request in front of it has been answered or has expired.
  std::uint64_t unexpired_ = 0;
  std::size_t size_ = 0;
  // Number of expired requests; if 0, `ForgetExpiredBefore` is a no-op.
  std::size_t expired_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
