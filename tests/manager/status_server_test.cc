// The control socket when the system runs out of resources, and a client that finds no manager.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <string>

#include "reference/manager/views/status.h"
#include "tests/manager/process.h"
#include "tests/support/refused_accepts.h"

namespace reference {
namespace {

using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

class StatusServerTest : public ::testing::Test {
 protected:
  // Runs until the server has tried for the second time.
  void RunWithoutFileDescriptors() {
    const RefusedAccepts accepts;
    while (accepts.count() < 2 && io_.run_one_for(seconds(10)) != 0) continue;
    EXPECT_EQ(accepts.count(), 2);
  }

  // What the server sends until it closes the connection.
  std::string Received() {
    std::string text;
    bool closed = false;
    boost::asio::async_read(
        client_, boost::asio::dynamic_buffer(text),
        [&closed](const boost::system::error_code&, std::size_t) { closed = true; });
    while (!closed && io_.run_one_for(seconds(10)) != 0) continue;
    EXPECT_TRUE(closed);
    return text;
  }

  const ScratchDirectory files_{};
  const std::string path_ = files_.File("control.sock");
  boost::asio::io_context io_;
  boost::asio::local::stream_protocol::socket client_{io_};
  int asked_ = 0;
};

TEST_F(StatusServerTest, AnswersOnceThereAreFileDescriptorsAgain) {
  StatusServer server(&io_, path_, [this] {
    ++asked_;
    return std::string("the status");
  });
  client_.connect(path_);
  RunWithoutFileDescriptors();
  EXPECT_EQ(asked_, 0);
  EXPECT_EQ(Received(), "the status");
  EXPECT_EQ(asked_, 1);
}

TEST_F(StatusServerTest, StopsWhileItWaitsForFileDescriptors) {
  {
    StatusServer server(&io_, path_, [] { return std::string(); });
    client_.connect(path_);
    RunWithoutFileDescriptors();
    EXPECT_FALSE(io_.stopped());
  }
  io_.run_for(seconds(10));
  EXPECT_TRUE(io_.stopped());
}

TEST_F(StatusServerTest, IsTheOnlyOneOnItsSocketAlsoAfterTheSocketWasRemoved) {
  const auto status = [] { return std::string(); };
  const StatusServer server(&io_, path_, status);
  unlink(path_.c_str());
  EXPECT_THAT(
      [&] { StatusServer(&io_, path_, status); },
      ThrowsMessage<boost::system::system_error>(HasSubstr("another program listens on " + path_)));
}

TEST_F(StatusServerTest, NobodyListens) {
  EXPECT_THAT([this] { ReadStatus(path_); },
              ThrowsMessage<std::runtime_error>(
                  HasSubstr("the manager on " + path_ + ": cannot connect: No such file")));
}

TEST_F(StatusServerTest, APathThatNoAddressHolds) {
  const std::string path = "/" + std::string(200, 'x');
  EXPECT_THAT([&path] { ReadStatus(path); },
              ThrowsMessage<std::runtime_error>(
                  HasSubstr("the manager on " + path + ": cannot connect: File name too long")));
}

TEST_F(StatusServerTest, AnAnswerThatIsNoStatus) {
  for (const char* const answer : {"", "{}", "no JSON"}) {
    std::ostringstream out;
    EXPECT_THAT(
        [&] { WriteStatus(answer, &out); },
        ThrowsMessage<std::runtime_error>(HasSubstr("the answer is no status of a manager: ")))
        << answer;
  }
}

}  // namespace
}  // namespace reference
