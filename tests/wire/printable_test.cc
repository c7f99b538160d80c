/// Text of the other side in lines of ours.

#include "reference/wire/printable.h"

#include <gtest/gtest.h>

#include <string>

namespace reference {
namespace {

using std::string_literals::operator""s;

TEST(WirePrintableTest, LeavesPrintableCharacters) {
  std::string all;
  for (char character = ' '; character <= '~'; ++character) all += character;
  EXPECT_EQ(Printable(all), all);
}

TEST(WirePrintableTest, LeavesNothingElse) {
  EXPECT_EQ(Printable("a\0b\nc\x1B[2Jd\x7F\xC3\xA4"s), "a?b?c?[2Jd???");
}

TEST(WirePrintableTest, CutsLongTexts) {
  EXPECT_EQ(Printable(std::string(200, 'x')), std::string(200, 'x'));
  EXPECT_EQ(Printable(std::string(201, 'x')), std::string(200, 'x'));
}

}  // namespace
}  // namespace reference
