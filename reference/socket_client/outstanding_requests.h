#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_request.h"

namespace reference {

/// A request that was passed to the connection and has not been answered. Small, because thousands
/// of them compete with everything else for the processor's caches.
struct OutstandingRequest {
  /// The request without its payload.
  HalRequest Request() const { return {operation, id, secondary_id, {}, number}; }

  HalOperation operation{};
  /// Its deadline passed, and that outcome was delivered.
  bool expired = false;
  std::uint32_t id = 0;
  std::uint32_t secondary_id = 0;
  /// The reinstall that it is part of; 0 for none.
  std::uint32_t reinstall = 0;
  std::uint64_t number = 0;
  /// The hash of its entry, within a reinstall.
  std::uint64_t hash = 0;
  std::chrono::steady_clock::time_point submitted;
  /// When the socket accepted it.
  std::optional<std::chrono::steady_clock::time_point> written;
};

/// The requests in flight, in the order in which they were sent: a ring in which a request's place
/// is its sequence number. So all sequence numbers in use differ, and nothing is allocated, except
/// for payloads that are kept.
///
/// A place becomes free once it and all before it are answered or have expired. An expired request
/// waits for its answer until a later request is answered or takes its place.
///
/// Used by one thread at a time.
class OutstandingRequests {
 public:
  /// A new request, and its sequence number.
  struct Added {
    OutstandingRequest* outstanding;
    std::uint32_t sequence;
  };

  /// `capacity` is from 1 to 2^23.
  OutstandingRequests(std::size_t capacity, std::uint32_t first_sequence);

  /// Number of unanswered requests.
  std::size_t size() const { return size_; }
  /// Bytes of the payloads that are kept.
  std::size_t payload_bytes() const { return payload_bytes_; }
  /// Number of places in use.
  std::size_t places() const { return tail_ - std::max(head_, unexpired_); }
  bool full() const { return places() == capacity_; }

  /// Appends a request that is not part of a reinstall, for the caller to adjust, and keeps its
  /// payload for `TakeAll` if `keep_payload`. Do not call when full.
  Added Add(const HalRequest& request, bool keep_payload,
            std::chrono::steady_clock::time_point submitted);

  /// Removes and returns the request with that number; null if there is none.
  /// Valid until the next `Add`.
  const OutstandingRequest* Take(std::uint32_t sequence);

  /// Records that everything outstanding, up to that count of added requests, was written at `now`.
  void MarkWritten(std::uint64_t up_to, std::chrono::steady_clock::time_point now);
  /// How many requests were added so far, for `MarkWritten`.
  std::uint64_t added() const { return tail_; }

  /// The oldest request that has not expired; null if there is none. Valid until the next call of
  /// another function.
  const OutstandingRequest* OldestUnexpired();
  /// Marks the request that `OldestUnexpired` returned as expired and returns it. Drops its
  /// payload.
  HalRequest ExpireOldest();

  /// Removes all requests. Returns those that have not expired, in order, with the payloads that
  /// were kept.
  std::vector<HalRequest> TakeAll();

 private:
  static constexpr std::size_t kCacheLine = 64;
  struct alignas(kCacheLine) Slot {
    OutstandingRequest outstanding;
    /// False if the request was answered before one in front of it.
    bool in_use = false;
    /// Whether its payload is kept.
    bool has_payload = false;
  };
  static_assert(sizeof(Slot) == kCacheLine, "finding a request would miss the caches twice");

  Slot& SlotOf(std::uint64_t place) { return slots_[place & (slots_.size() - 1)]; }
  void Free(std::uint64_t place);
  std::string TakePayload(std::uint64_t place);
  void ForgetExpiredBefore(std::uint64_t place);
  // A no-op if the request there was answered or has not expired.
  void ForgetExpired(std::uint64_t place);

  const std::size_t capacity_;
  // A power of two, so that finding a place needs no division.
  std::vector<Slot> slots_;
  const std::uint32_t first_sequence_;
  // Places count all requests ever added.
  std::uint64_t head_ = 0;
  std::uint64_t tail_ = 0;
  std::uint64_t unwritten_ = 0;
  // Every request in front of it has been answered or has expired.
  std::uint64_t unexpired_ = 0;
  std::size_t size_ = 0;
  // By place.
  std::map<std::uint64_t, std::string> payloads_;
  std::size_t payload_bytes_ = 0;
  // Number of expired requests; if 0, `ForgetExpiredBefore` is a no-op.
  std::size_t expired_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_OUTSTANDING_REQUESTS_H_
