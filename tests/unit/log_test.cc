#include "hai/log.h"

#include <limits>
#include <string>
#include <string_view>

#include "tests/support/hai_test.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using testing_support::Events;
using testing_support::LevelQueries;
using testing_support::SetLevelAnswer;
using testing_support::SetTrace;
using LogTest = testing_support::HaiTest;

constexpr LogSite kSite{"src/some/file", "SomeFunction", 123, kErrorLevel};

TEST_F(LogTest, HasTheLevelsOfTheLogFormat) {
  EXPECT_EQ(kTraceLevel, 10);
  EXPECT_EQ(kErrorLevel, 12);
}

TEST_F(LogTest, WritesTheSiteAndTheFormattedText) {
  ZUSKUX_LOG(kSite, "%s is %u of %d%%", "this", 4294967295U, -1);

  EXPECT_THAT(Events(),
              ElementsAre("log 12 src/some/file SomeFunction:123 this is 4294967295 of -1%"));
}

TEST_F(LogTest, WritesOnlyTheNamedPartOfTheSource) {
  constexpr std::string_view kNames = "src/some/file SomeFunction";
  constexpr LogSite kPart{kNames.substr(0, 8), kNames.substr(14, 4), 1, kTraceLevel};
  ZUSKUX_LOG(kPart, "text");

  EXPECT_THAT(Events(), ElementsAre("log 10 src/some Some:1 text"));
}

TEST_F(LogTest, WritesLongTextsWhole) {
  const std::string text(10000, 'x');
  ZUSKUX_LOG(kSite, "%s", text.c_str());

  EXPECT_THAT(Events(), ElementsAre("log 12 src/some/file SomeFunction:123 " + text));
}

TEST_F(LogTest, WritesWithoutCheckingTheLevel) {
  SetTrace(false);
  constexpr LogSite kTraced{"f", "g", 1, kTraceLevel};
  ZUSKUX_LOG(kTraced, "text");

  EXPECT_THAT(Events(), ElementsAre("log 10 f g:1 text"));
  EXPECT_EQ(LevelQueries(), 0);
}

TEST_F(LogTest, TreatsEveryNumberBut0AsEnabled) {
  for (const int answer : {1, 2, -1, 256, 0x10000, std::numeric_limits<int>::min()}) {
    SetLevelAnswer([answer](int) { return answer; });
    EXPECT_TRUE(TraceEnabled()) << answer;
  }
  SetLevelAnswer([](int) { return 0; });
  EXPECT_FALSE(TraceEnabled());
}

TEST_F(LogTest, ChecksTheTraceLevelEachTime) {
  EXPECT_TRUE(TraceEnabled());
  SetTrace(false);
  EXPECT_FALSE(TraceEnabled());
  EXPECT_FALSE(TraceEnabled());
  EXPECT_EQ(LevelQueries(), 2);
  SetTrace(true);
  EXPECT_TRUE(TraceEnabled());
}

}  // namespace
}  // namespace dest_mng
