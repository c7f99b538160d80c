/// Reading what a server holds: answers that are none.

#include "reference/socket_client/server_contents.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <stdexcept>
#include <string>

#include "tests/socket_client/fake_server.h"

namespace reference {
namespace {

using std::string_literals::operator""s;

class ServerContentsTest : public testing::Test {
 protected:
  // Reads while `serve` plays the server; what was wrong, or nothing.
  std::string Mistake(const std::function<void()>& serve) {
    auto reading = std::async(std::launch::async, [this]() -> std::string {
      try {
        ReadServerContents(server_.path(), "test");
        return {};
      } catch (const std::runtime_error& error) {
        return error.what();
      }
    });
    server_.Accept();
    serve();
    return reading.get();
  }

  // What is wrong with an answer of that type and payload to the question for the tables.
  std::string MistakeOf(FrameType type, const std::string& payload) {
    return Mistake([&] {
      server_.Greet();
      EXPECT_EQ(server_.Next().type, FrameType::kReadTables);
      server_.SendFrame(type, 0, payload);
    });
  }

  std::string Text(const std::string& what) const {
    return "the HAL server on " + server_.path() + ": " + what +
           "; check that zuskux-hal runs and that this is its socket";
  }

  FakeServer server_;
};

TEST_F(ServerContentsTest, EmptyTablesAreRead) {
  EXPECT_EQ(MistakeOf(FrameType::kTableEnd, ""), "");
}

TEST_F(ServerContentsTest, AnotherTypeOfFrameIsNoAnswer) {
  EXPECT_EQ(MistakeOf(FrameType::kInSync, ""), Text("it answers with a frame of type 19"));
}

TEST_F(ServerContentsTest, AGoodbyeIsPassedOn) {
  EXPECT_EQ(MistakeOf(FrameType::kGoodbye, "enough\x1B"), Text("it says enough?"));
}

TEST_F(ServerContentsTest, AStatusThatDoesNotParseIsNoAnswer) {
  EXPECT_EQ(MistakeOf(FrameType::kTableEnd, "\x07"), Text("its answer does not decode"));
}

TEST_F(ServerContentsTest, AnEntryWithoutKindAndIdIsNoAnswer) {
  EXPECT_EQ(MistakeOf(FrameType::kTableEntry, "\1\0\0\0"s), Text("its answer does not decode"));
}

TEST_F(ServerContentsTest, AnEntryOfAnUnknownKindIsNoAnswer) {
  EXPECT_EQ(MistakeOf(FrameType::kTableEntry, "\5\0\0\0\1"s), Text("its answer does not decode"));
}

TEST_F(ServerContentsTest, BytesThatAreNoFrameAreNoAnswer) {
  const std::string mistake = Mistake([this] { server_.Send(std::string(8, '\xFF')); });
  EXPECT_EQ(mistake.rfind("the HAL server on " + server_.path() + ": its answer is no frame: ", 0),
            0U)
      << mistake;
}

TEST_F(ServerContentsTest, AClosedConnectionIsNoAnswer) {
  EXPECT_EQ(Mistake([this] { server_.Close(); }), Text("it closed the connection"));
}

}  // namespace
}  // namespace reference
