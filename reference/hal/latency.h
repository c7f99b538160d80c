#ifndef ZUSKUX_REFERENCE_HAL_LATENCY_H_
#define ZUSKUX_REFERENCE_HAL_LATENCY_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace reference {

/// Upper bounds for counts of durations.
inline constexpr std::array<std::chrono::nanoseconds, 19> kLatencyBounds = {
    std::chrono::microseconds(10),  std::chrono::microseconds(25),   std::chrono::microseconds(50),
    std::chrono::microseconds(100), std::chrono::microseconds(250),  std::chrono::microseconds(500),
    std::chrono::milliseconds(1),   std::chrono::microseconds(2500), std::chrono::milliseconds(5),
    std::chrono::milliseconds(10),  std::chrono::milliseconds(25),   std::chrono::milliseconds(50),
    std::chrono::milliseconds(100), std::chrono::milliseconds(250),  std::chrono::milliseconds(500),
    std::chrono::seconds(1),        std::chrono::milliseconds(2500), std::chrono::seconds(5),
    std::chrono::seconds(10)};

/// The duration of a stage. Percentiles are at most an eighth too high; the rest is exact.
struct StageLatency {
  std::uint64_t count = 0;
  std::chrono::nanoseconds p50{0};
  std::chrono::nanoseconds p90{0};
  std::chrono::nanoseconds p99{0};
  std::chrono::nanoseconds max{0};
  std::chrono::nanoseconds sum{0};
  /// For each of `kLatencyBounds`, how many durations were at most that long.
  std::array<std::uint64_t, kLatencyBounds.size()> up_to{};
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
  // For each of `kLatencyBounds`, how many durations were longer than the bound before, if any, and
  // at most that long.
  std::array<std::uint64_t, kLatencyBounds.size()> within_{};
  std::uint64_t count_ = 0;
  std::uint64_t max_ = 0;
  std::uint64_t sum_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_LATENCY_H_
