#ifndef ZUSKUX_REFERENCE_HAL_LATENCY_H_
#define ZUSKUX_REFERENCE_HAL_LATENCY_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace reference {

/// The duration of a stage. Percentiles are at most an eighth too high; `max` is exact.
struct StageLatency {
  std::uint64_t count = 0;
  std::chrono::nanoseconds p50{0};
  std::chrono::nanoseconds p90{0};
  std::chrono::nanoseconds p99{0};
  std::chrono::nanoseconds max{0};
};

/// The stages of a request. A VRF request counts when the client learns that it has ended.
struct HalLatencies {
  /// From the request call until the HAL's side, or the socket, has taken the request.
  StageLatency queue;
  /// From then until the result arrives, minus the HAL's own time. Empty for a HAL in the same
  /// process.
  StageLatency wire;
  /// In the HAL, until the request has been carried out.
  StageLatency hal;
};

/// Counts durations in a fixed number of buckets: eight for each power of two nanoseconds. Used by
/// one thread at a time.
class LatencyHistogram {
 public:
  /// Negative durations count as 0.
  void Add(std::chrono::nanoseconds latency);
  StageLatency Summary() const;

 private:
  static constexpr unsigned kSubBits = 3;
  static constexpr std::size_t kBuckets = (64 - kSubBits + 1) << kSubBits;

  static std::size_t BucketOf(std::uint64_t value);
  static std::uint64_t LastOf(std::size_t bucket);
  std::chrono::nanoseconds Percentile(unsigned percent) const;

  std::array<std::uint64_t, kBuckets> counts_{};
  std::uint64_t count_ = 0;
  std::uint64_t max_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_LATENCY_H_
