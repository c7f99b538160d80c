#include "reference/text/diagnostics.h"

#include <gtest/gtest.h>

namespace reference {
namespace {

TEST(FormatDiagnosticTest, LeavesOutTheNumbersThatAreZero) {
  EXPECT_EQ(FormatDiagnostic("a.txtpb", {{3, 7}, "text"}), "a.txtpb:3:7: text");
  EXPECT_EQ(FormatDiagnostic("a.txtpb", {{3, 0}, "text"}), "a.txtpb:3: text");
  EXPECT_EQ(FormatDiagnostic("a.txtpb", {{0, 0}, "text"}), "a.txtpb: text");
}

TEST(FormatDiagnosticTest, IsSafeToShow) {
  EXPECT_EQ(FormatDiagnostic("a\u202e", {{3, 7}, "b\u009b"}), R"(a\u202e:3:7: b\u009b)");
}

TEST(DiagnosticsTest, AreInTheOrderOfTheirPlaces) {
  Diagnostics diagnostics;
  EXPECT_TRUE(diagnostics.empty());
  diagnostics.Add({2, 1}, "c");
  diagnostics.Add({1, 5}, "a");
  diagnostics.Add({1, 5}, "b");
  const std::vector<Diagnostic> taken = diagnostics.Take();
  ASSERT_EQ(taken.size(), 3U);
  EXPECT_EQ(taken[0].text + taken[1].text + taken[2].text, "abc");
}

TEST(DiagnosticsTest, NameTheRange) {
  Diagnostics diagnostics;
  EXPECT_TRUE(diagnostics.CheckRange({1, 1}, "mtu", 5, {5, 9}));
  EXPECT_TRUE(diagnostics.CheckRange({1, 1}, "mtu", 9, {5, 9}));
  EXPECT_TRUE(diagnostics.empty());
  EXPECT_FALSE(diagnostics.CheckRange({1, 1}, "mtu", 10, {5, 9}));
  EXPECT_FALSE(diagnostics.CheckRange({1, 2}, "mtu", -1, {5, 9}));
  const std::vector<Diagnostic> taken = diagnostics.Take();
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_EQ(taken[0].text, "mtu 10 is out of range; use 5 to 9");
  EXPECT_EQ(taken[1].text, "mtu -1 is out of range; use 5 to 9");
}

TEST(JoinTest, SeparatesWithCommas) {
  EXPECT_EQ(Join({}), "");
  EXPECT_EQ(Join({"a"}), "a");
  EXPECT_EQ(Join({"a", "b"}), "a, b");
}

}  // namespace
}  // namespace reference
