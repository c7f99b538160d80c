#include "reference/hal/latency.h"

#include <algorithm>
#include <numeric>

namespace reference {
namespace {

constexpr unsigned BitWidth(std::uint64_t value) {
  return value == 0 ? 0U : 64U - static_cast<unsigned>(__builtin_clzll(value));
}

constexpr std::uint64_t BoundAt(std::size_t place) {
  return static_cast<std::uint64_t>(kLatencyBounds[place].count());
}

constexpr bool BoundsHaveDifferentWidths() {
  for (std::size_t place = 1; place < kLatencyBounds.size(); ++place) {
    if (BitWidth(BoundAt(place)) <= BitWidth(BoundAt(place - 1))) return false;
  }
  return true;
}
static_assert(BoundsHaveDifferentWidths(), "the bounds are too close for `PlaceOfBound`");

// For each bit width, the place of the first bound of that width or a larger one.
constexpr std::array<std::uint8_t, 65> kPlaceOfWidth = [] {
  std::array<std::uint8_t, 65> places{};
  for (unsigned width = 0; width < places.size(); ++width) {
    std::size_t place = 0;
    while (place < kLatencyBounds.size() && BitWidth(BoundAt(place)) < width) ++place;
    places[width] = static_cast<std::uint8_t>(place);
  }
  return places;
}();

// The place of the first bound that is at least `value`. A binary search takes several times as
// long.
std::size_t PlaceOfBound(std::uint64_t value) {
  const std::size_t place = kPlaceOfWidth[BitWidth(value)];
  return place < kLatencyBounds.size() && BoundAt(place) < value ? place + 1 : place;
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
  const std::size_t place = PlaceOfBound(value);
  if (place < within_.size()) ++within_[place];
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
