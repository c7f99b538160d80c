#include "reference/manager/program/event_feed.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace reference {
namespace {

TEST(EventFeedTest, SendsEachClientWhatHappensWhileItFollows) {
  EventFeed feed;
  feed.Add("before");
  const Answer early = feed.Follow();
  feed.Add("one");
  const Answer late = feed.Follow();
  feed.Add("two");
  EXPECT_EQ(early().text, "{\"event\":\"one\"}\n{\"event\":\"two\"}\n");
  EXPECT_EQ(late().text, "{\"event\":\"two\"}\n");
  EXPECT_EQ(early().text, "");
  EXPECT_EQ(early().next, AnswerPiece::Next::kLater);
}

TEST(EventFeedTest, ReportsHowManyASlowClientMissed) {
  EventFeed feed;
  const Answer slow = feed.Follow();
  for (std::size_t i = 0; i < EventFeed::kMaxQueued + 3; ++i) feed.Add("x");
  const std::string text = slow().text;
  const std::string event = "{\"event\":\"x\"}\n";
  const std::string missed = "{\"missed\":3}\n";
  EXPECT_EQ(text.size(), EventFeed::kMaxQueued * event.size() + missed.size());
  EXPECT_EQ(text.substr(text.size() - missed.size()), missed);
  feed.Add("after");
  EXPECT_EQ(slow().text, "{\"event\":\"after\"}\n");
}

TEST(EventFeedTest, ForgetsAClientWhoseAnswerIsGone) {
  EventFeed feed;
  std::optional<Answer> gone = feed.Follow();
  gone.reset();
  feed.Add("nobody follows");
  const Answer next = feed.Follow();
  feed.Add("x");
  EXPECT_EQ(next().text, "{\"event\":\"x\"}\n");
}

}  // namespace
}  // namespace reference
