#include "reference/hal/latency.h"

#include <algorithm>
#include <numeric>

namespace reference {
namespace {

unsigned BitWidth(std::uint64_t value) {
  return value == 0 ? 0U : 64U - static_cast<unsigned>(__builtin_clzll(value));
}

}  // namespace

// Values below 2 * 2^kSubBits have one bucket each. Above that, the position of the highest bit and
// the kSubBits bits after it select the bucket.
std::size_t LatencyHistogram::BucketOf(std::uint64_t value) {
  const unsigned width = BitWidth(value);
  if (width <= kSubBits + 1) return value;
  const unsigned shift = width - kSubBits - 1;
  return (std::size_t{shift} << kSubBits) + (value >> shift);
}

std::uint64_t LatencyHistogram::LastOf(std::size_t bucket) {
  constexpr std::size_t kExact = std::size_t{2} << kSubBits;
  if (bucket < kExact) return bucket;
  const std::size_t shift = (bucket >> kSubBits) - 1;
  const std::uint64_t mantissa = bucket - (shift << kSubBits);
  return ((mantissa + 1) << shift) - 1;
}

void LatencyHistogram::Add(std::chrono::nanoseconds latency) {
  const auto value = static_cast<std::uint64_t>(std::max<std::int64_t>(latency.count(), 0));
  ++counts_.at(BucketOf(value));
  ++count_;
  max_ = std::max(max_, value);
  sum_ += value;
  const auto* const bound = std::lower_bound(kLatencyBounds.begin(), kLatencyBounds.end(),
                                             std::chrono::nanoseconds(value));
  if (bound == kLatencyBounds.end()) return;
  ++within_.at(static_cast<std::size_t>(bound - kLatencyBounds.begin()));
}

std::chrono::nanoseconds LatencyHistogram::Percentile(unsigned percent) const {
  const std::uint64_t rank = (count_ * percent + 99) / 100;
  std::uint64_t seen = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += counts_.at(bucket);
    if (seen >= rank) return std::chrono::nanoseconds(std::min(LastOf(bucket), max_));
  }
  return std::chrono::nanoseconds(max_);
}

StageLatency LatencyHistogram::Summary() const {
  StageLatency summary = {count_,
                          Percentile(50),
                          Percentile(90),
                          Percentile(99),
                          std::chrono::nanoseconds(max_),
                          std::chrono::nanoseconds(sum_),
                          {}};
  std::partial_sum(within_.begin(), within_.end(), summary.up_to.begin());
  return summary;
}

}  // namespace reference
