/// The set of pairs, against a std::set with the same pairs.

#include "reference/data_plane/pair_set.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace reference {
namespace {

std::vector<std::uint32_t> SecondsOf(const PairSet& pairs, std::uint32_t first) {
  std::vector<std::uint32_t> seconds;
  pairs.ForEach(first, [&seconds](std::uint32_t second) { seconds.push_back(second); });
  return seconds;
}

TEST(PairSetTest, IsEmptyAtFirst) {
  EXPECT_TRUE(SecondsOf(PairSet(), 0).empty());
  EXPECT_TRUE(SecondsOf(PairSet(), 7).empty());
}

TEST(PairSetTest, HasAPairOnce) {
  PairSet pairs;
  pairs.Insert({7, 1});
  pairs.Insert({7, 1});
  EXPECT_EQ(SecondsOf(pairs, 7), std::vector<std::uint32_t>{1});
  pairs.Erase({7, 1});
  EXPECT_TRUE(SecondsOf(pairs, 7).empty());
  pairs.Erase({7, 1});
}

TEST(PairSetTest, FindsTheExtremes) {
  PairSet pairs;
  pairs.Insert({0, 0});
  pairs.Insert({4294967295, 4294967295});
  EXPECT_EQ(SecondsOf(pairs, 0), std::vector<std::uint32_t>{0});
  EXPECT_EQ(SecondsOf(pairs, 4294967295), std::vector<std::uint32_t>{4294967295});
}

struct Order {
  const char* name;
  // Different for each place below 2^16.
  std::uint32_t (*at)(std::uint32_t place);
};

class PairSetOrderTest : public testing::TestWithParam<Order> {};

// Several blocks.
TEST_P(PairSetOrderTest, KeepsManyPairsInOrder) {
  constexpr std::uint32_t kPairs = 1U << 16;
  PairSet pairs;
  std::set<std::uint32_t> expected;
  for (std::uint32_t place = 0; place < kPairs; ++place) {
    const std::uint32_t second = GetParam().at(place);
    pairs.Insert({5, second});
    expected.insert(second);
  }
  pairs.Insert({4, 1});
  pairs.Insert({6, 1});
  EXPECT_EQ(SecondsOf(pairs, 5), std::vector<std::uint32_t>(expected.begin(), expected.end()));
  for (std::uint32_t place = 0; place < kPairs; ++place) pairs.Erase({5, GetParam().at(place)});
  EXPECT_TRUE(SecondsOf(pairs, 5).empty());
  EXPECT_EQ(SecondsOf(pairs, 4), std::vector<std::uint32_t>{1});
  EXPECT_EQ(SecondsOf(pairs, 6), std::vector<std::uint32_t>{1});
}

INSTANTIATE_TEST_SUITE_P(
    , PairSetOrderTest,
    testing::Values(Order{"Ascending", [](std::uint32_t place) { return place; }},
                    Order{"Descending", [](std::uint32_t place) { return 65'535 - place; }},
                    // An odd factor permutes the numbers below a power of two.
                    Order{"Scattered",
                          [](std::uint32_t place) { return place * 40'503 % 65'536; }}),
    [](const auto& test) { return test.param.name; });

TEST(PairSetTest, HasWhatASetHasAfterAnyChanges) {
  std::mt19937 random(1);
  const auto below = [&random](std::uint32_t bound) {
    return static_cast<std::uint32_t>(random() % bound);
  };
  PairSet pairs;
  std::set<PairSet::Pair> expected;
  // First it mostly grows, then it mostly shrinks.
  for (int step = 0; step < 40'000; ++step) {
    const PairSet::Pair pair(below(20), below(500));
    if (below(4) == 0 || (step > 20'000 && below(4) != 0)) {
      pairs.Erase(pair);
      expected.erase(pair);
    } else {
      pairs.Insert(pair);
      expected.insert(pair);
    }
    if (step % 1'000 != 0) continue;
    for (std::uint32_t first = 0; first < 20; ++first) {
      std::vector<std::uint32_t> seconds;
      for (auto it = expected.lower_bound({first, 0}); it != expected.lower_bound({first + 1, 0});
           ++it) {
        seconds.push_back(it->second);
      }
      ASSERT_EQ(SecondsOf(pairs, first), seconds) << "step " << step;
    }
  }
}

}  // namespace
}  // namespace reference
