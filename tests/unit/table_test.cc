#include "hai/table.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace dest_mng {
namespace {

constexpr std::array kTable = {10, 11, 12};

TEST(EntryOrTest, ReturnsTheEntryOfAValueInTheTable) {
  EXPECT_EQ(EntryOr(kTable, 0, -1), 10);
  EXPECT_EQ(EntryOr(kTable, 1, -1), 11);
  EXPECT_EQ(EntryOr(kTable, 2, -1), 12);
}

TEST(EntryOrTest, ReturnsTheFallbackOutsideTheTable) {
  EXPECT_EQ(EntryOr(kTable, 3, -1), -1);
  EXPECT_EQ(EntryOr(kTable, -1, -1), -1);
  EXPECT_EQ(EntryOr(kTable, std::numeric_limits<int>::max(), -1), -1);
  EXPECT_EQ(EntryOr(kTable, std::numeric_limits<int>::min(), -1), -1);
}

TEST(EntryOrTest, IsAConstant) {
  static_assert(EntryOr(kTable, 2, -1) == 12);
  static_assert(EntryOr(std::array<int, 1>{10}, 1, 7) == 7);
  EXPECT_EQ(EntryOr(std::array<int, 1>{10}, 1, 7), 7);
}

}  // namespace
}  // namespace dest_mng
