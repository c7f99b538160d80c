/// Durations as percentiles.

#include "reference/hal/latency.h"

#include <gtest/gtest.h>

namespace reference {
namespace {

using std::chrono::nanoseconds;

TEST(LatencyHistogramTest, NothingIsZero) {
  const StageLatency latency = LatencyHistogram().Summary();
  EXPECT_EQ(latency.count, 0U);
  EXPECT_EQ(latency.p50, nanoseconds(0));
  EXPECT_EQ(latency.p99, nanoseconds(0));
  EXPECT_EQ(latency.max, nanoseconds(0));
}

TEST(LatencyHistogramTest, SmallDurationsAreExact) {
  for (int value = 0; value < 16; ++value) {
    LatencyHistogram histogram;
    histogram.Add(nanoseconds(value));
    histogram.Add(nanoseconds(1'000'000));
    EXPECT_EQ(histogram.Summary().p50, nanoseconds(value));
  }
}

TEST(LatencyHistogramTest, PercentilesAreAtMostAnEighthTooHigh) {
  LatencyHistogram histogram;
  for (int value = 1; value <= 100'000; ++value) histogram.Add(nanoseconds(value));
  const StageLatency latency = histogram.Summary();
  EXPECT_EQ(latency.count, 100'000U);
  EXPECT_EQ(latency.max, nanoseconds(100'000));
  const auto expect_near = [](nanoseconds actual, nanoseconds exact) {
    EXPECT_GE(actual, exact);
    EXPECT_LE(actual, exact * 9 / 8);
  };
  expect_near(latency.p50, nanoseconds(50'000));
  expect_near(latency.p90, nanoseconds(90'000));
  expect_near(latency.p99, nanoseconds(99'000));
}

TEST(LatencyHistogramTest, APercentileIsReachedByThatManyAtLeast) {
  LatencyHistogram histogram;
  for (const int value : {1, 2, 3}) histogram.Add(nanoseconds(value));
  const StageLatency latency = histogram.Summary();
  EXPECT_EQ(latency.p50, nanoseconds(2));
  EXPECT_EQ(latency.p90, nanoseconds(3));
}

TEST(LatencyHistogramTest, APercentileIsTheLongestOfItsBucketUpToTheMaximum) {
  LatencyHistogram histogram;
  histogram.Add(nanoseconds(1'000));
  EXPECT_EQ(histogram.Summary().p50, nanoseconds(1'000));
  histogram.Add(nanoseconds(2'000));
  // The bucket holds 960 to 1023 ns.
  EXPECT_EQ(histogram.Summary().p50, nanoseconds(1'023));
}

TEST(LatencyHistogramTest, TheMaximumNeedNotBeTheLast) {
  LatencyHistogram histogram;
  histogram.Add(nanoseconds(1'000));
  histogram.Add(nanoseconds(10));
  EXPECT_EQ(histogram.Summary().max, nanoseconds(1'000));
}

TEST(LatencyHistogramTest, TheMaximumIsNoPercentile) {
  LatencyHistogram histogram;
  for (int i = 0; i < 999; ++i) histogram.Add(nanoseconds(10));
  histogram.Add(nanoseconds(1'000));
  const StageLatency latency = histogram.Summary();
  EXPECT_EQ(latency.p90, nanoseconds(10));
  EXPECT_EQ(latency.p99, nanoseconds(10));
  EXPECT_EQ(latency.max, nanoseconds(1'000));
}

TEST(LatencyHistogramTest, EveryPowerOfTwoAndItsNeighboursAreInBounds) {
  for (int bit = 0; bit < 63; ++bit) {
    for (const std::int64_t value : {(std::int64_t{1} << bit) - 1, std::int64_t{1} << bit}) {
      LatencyHistogram histogram;
      histogram.Add(nanoseconds(value));
      histogram.Add(nanoseconds::max());
      const std::int64_t p50 = histogram.Summary().p50.count();
      EXPECT_GE(p50, value);
      EXPECT_LE(p50 - value, value / 8);
      EXPECT_EQ(histogram.Summary().max, nanoseconds::max());
    }
  }
}

TEST(LatencyHistogramTest, ANegativeDurationCountsAsNone) {
  LatencyHistogram histogram;
  histogram.Add(nanoseconds(-5));
  EXPECT_EQ(histogram.Summary().count, 1U);
  EXPECT_EQ(histogram.Summary().max, nanoseconds(0));
}

TEST(LatencyHistogramTest, CountsUpToABoundAreExact) {
  for (const nanoseconds bound : kLatencyBounds) {
    LatencyHistogram histogram;
    histogram.Add(bound - nanoseconds(1));
    histogram.Add(bound);
    histogram.Add(bound + nanoseconds(1));
    const StageLatency latency = histogram.Summary();
    for (std::size_t i = 0; i < kLatencyBounds.size(); ++i) {
      const nanoseconds other = kLatencyBounds.at(i);
      EXPECT_EQ(latency.up_to.at(i), other < bound    ? 0U
                                     : other == bound ? 2U
                                                      : 3U)
          << bound.count() << " ns, up to " << other.count() << " ns";
    }
  }
}

TEST(LatencyHistogramTest, DurationsAreSummedUp) {
  LatencyHistogram histogram;
  histogram.Add(nanoseconds(5));
  histogram.Add(std::chrono::hours(1));
  histogram.Add(nanoseconds(-7));
  const StageLatency latency = histogram.Summary();
  EXPECT_EQ(latency.sum, std::chrono::hours(1) + nanoseconds(5));
  // Longer than the last bound.
  EXPECT_EQ(latency.up_to.back(), 2U);
  EXPECT_EQ(latency.count, 3U);
}

}  // namespace
}  // namespace reference
