#include "hai/text.h"

#include <cstdint>
#include <limits>
#include <string>

#include "tests/support/hai_test.h"

namespace dest_mng {
namespace {

using testing_support::AllocationCount;

// The size of the text that fits before the first allocation.
constexpr std::size_t kBuffer = 512;

// `size` characters, no two adjacent ones equal.
std::string Letters(std::size_t size) {
  std::string letters(size, ' ');
  for (std::size_t i = 0; i < size; ++i) letters[i] = static_cast<char>('a' + i % 26);
  return letters;
}

TEST(TextTest, IsEmptyAtFirst) { EXPECT_EQ(Text().str(), ""); }

TEST(TextTest, JoinsItsPieces) {
  Text text;
  text.Append("a");
  text.Append("");
  text.Append("bc");

  EXPECT_EQ(text.str(), "abc");
}

TEST(TextTest, KeepsZeroBytes) {
  Text text;
  text.Append({"a\0b", 3});

  EXPECT_EQ(text.str(), std::string("a\0b", 3));
}

TEST(TextTest, KeepsGrowingAfterARead) {
  Text text;
  text.Append("a");
  EXPECT_EQ(text.str(), "a");
  text.Append("b");
  EXPECT_EQ(text.str(), "ab");
}

// Two pieces that end exactly at the end of the buffer, one off, or beyond it, in every
// combination.
TEST(TextTest, LosesNothingAtTheEndOfTheBuffer) {
  for (const std::size_t first : {std::size_t{0}, std::size_t{1}, kBuffer - 1, kBuffer, kBuffer + 1,
                                  2 * kBuffer, 2 * kBuffer + 1}) {
    for (const std::size_t second : {std::size_t{0}, std::size_t{1}, std::size_t{2}, kBuffer - 1,
                                     kBuffer, kBuffer + 1, 3 * kBuffer}) {
      Text text;
      text.Append(Letters(first));
      text.Append(Letters(second));
      text.Append("end");

      EXPECT_EQ(text.str(), Letters(first) + Letters(second) + "end") << first << ", " << second;
    }
  }
}

TEST(TextTest, LosesNothingInManyPieces) {
  Text text;
  std::string expected;
  for (std::size_t size = 0; size < 100; ++size) {
    text.Append(Letters(size));
    expected += Letters(size);
  }

  EXPECT_EQ(text.str(), expected);
}

TEST(TextTest, AllocatesOnlyForTheResultWhileTheBufferSuffices) {
  const std::string piece = Letters(kBuffer / 2);
  const std::size_t before = AllocationCount();
  Text text;
  text.Append(piece);
  text.Append(piece);
  EXPECT_EQ(AllocationCount(), before);
  const std::string line = text.str();

  EXPECT_EQ(AllocationCount(), before + 1);
  EXPECT_EQ(line, piece + piece);
}

TEST(TextTest, AllocatesNothingForANumberThatFits) {
  const std::string piece = Letters(kBuffer - 20);
  const std::size_t before = AllocationCount();
  Text text;
  text.Append(piece);
  text.AppendDecimal(std::numeric_limits<std::uint64_t>::max());

  EXPECT_EQ(AllocationCount(), before);
  EXPECT_EQ(text.str(), piece + "18446744073709551615");
}

TEST(TextTest, AllocatesBeyondTheBuffer) {
  const std::string piece = Letters(kBuffer);
  const std::size_t before = AllocationCount();
  Text text;
  text.Append(piece);
  text.Append("+");

  EXPECT_GT(AllocationCount(), before);
  EXPECT_EQ(text.str(), piece + "+");
}

TEST(TextTest, WritesDecimals) {
  Text text;
  for (const std::uint32_t number : {0U, 7U, 10U, 4294967295U}) {
    text.AppendDecimal(number);
    text.Append(" ");
  }
  text.AppendDecimal(std::numeric_limits<std::uint64_t>::max());
  text.Append(" ");
  text.AppendDecimal(std::numeric_limits<std::int64_t>::min());

  EXPECT_EQ(text.str(), "0 7 10 4294967295 18446744073709551615 -9223372036854775808");
}

// Numbers that begin at the end of the buffer and up to 24 places before it.
TEST(TextTest, LosesNoDigitAtTheEndOfTheBuffer) {
  for (std::size_t first = kBuffer - 24; first <= kBuffer; ++first) {
    Text decimal;
    decimal.Append(Letters(first));
    decimal.AppendDecimal(std::numeric_limits<std::uint64_t>::max());
    decimal.Append("end");
    EXPECT_EQ(decimal.str(), Letters(first) + "18446744073709551615end");
  }
}

}  // namespace
}  // namespace dest_mng
