#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(DeadlineTest, IsSetForEachTest) {
  const unsigned seconds_left = alarm(0);
  EXPECT_GT(seconds_left, 0U);
  EXPECT_LE(seconds_left, unsigned{ZUSKUX_TEST_DEADLINE});
}

TEST(DeadlineTest, ATestThatHangsFailsByName) {
  const auto hang = [] {
    // Triggers the alarm now instead of at the deadline.
    alarm(1);
    while (true) pause();
  };
  EXPECT_EXIT(hang(), testing::ExitedWithCode(1),
              "FAILED.*DeadlineTest.ATestThatHangsFailsByName: not over after");
}

}  // namespace
