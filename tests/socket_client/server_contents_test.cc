/// Reading a server's contents: invalid answers.

#include "reference/socket_client/server_contents.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/socket_client/fake_server.h"

namespace reference {
namespace {

using std::string_literals::operator""s;

class ServerContentsTest : public testing::Test {
 protected:
  // Reads while `serve` plays the server. Returns the error, or nothing.
  std::string Mistake(const std::function<void()>& serve, const ReadLimits& limits = {}) {
    auto reading = std::async(std::launch::async, [this, limits]() -> std::string {
      try {
        ReadServerContents(server_.path(), "test", limits);
        return {};
      } catch (const std::runtime_error& error) {
        return error.what();
      }
    });
    server_.Accept();
    serve();
    return reading.get();
  }

  // The error for an answer of that type and payload to a request for the tables.
  std::string MistakeOf(FrameType type, const std::string& payload) {
    return Mistake([&] {
      server_.Greet();
      EXPECT_EQ(server_.Next().type, FrameType::kReadTables);
      server_.SendFrame(type, 0, payload);
    });
  }

  // The error for an answer of `sent` table entries, `interval` apart, and then the end, if it gets
  // that far.
  std::string MistakeOfEntries(std::uint32_t sent, const ReadLimits& limits,
                               std::chrono::milliseconds interval = {}) {
    return Mistake(
        [&] {
          server_.Greet();
          EXPECT_EQ(server_.Next().type, FrameType::kReadTables);
          for (std::uint32_t i = 0; i < sent && server_.Send(kEntry); ++i) {
            std::this_thread::sleep_for(interval);
          }
          server_.SendFrame(FrameType::kTableEnd, 0, "");
        },
        limits);
  }

  // VLAN 1, as a frame of 13 bytes.
  const std::string kEntry = "\x16\0\0\0\0\0\0\5\1\0\0\0\1"s;

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

TEST_F(ServerContentsTest, AGoodbyeIsReported) {
  EXPECT_EQ(MistakeOf(FrameType::kGoodbye, "enough\x1B"), Text("it says enough\\x1b"));
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
  EXPECT_EQ(
      mistake.rfind("the HAL server on " + server_.path() + ": its answer is not a frame: ", 0), 0U)
      << mistake;
}

TEST_F(ServerContentsTest, AsManyEntriesAsAllowedAreRead) {
  ReadLimits limits;
  limits.entries = 1'000;
  EXPECT_EQ(MistakeOfEntries(1'000, limits), "");
}

TEST_F(ServerContentsTest, AServerThatRepeatsAnEntryForeverIsLeft) {
  ReadLimits limits;
  limits.entries = 1'000;
  EXPECT_EQ(MistakeOfEntries(10'000'000, limits), Text("it sends more than 1000 table entries"));
}

TEST_F(ServerContentsTest, TotalBytesAreBounded) {
  ReadLimits limits;
  const std::size_t hello = HelloFrame().size();
  const std::size_t table_end = kFrameHeaderSize;
  limits.bytes = hello + 10 * kEntry.size() + table_end;
  EXPECT_EQ(MistakeOfEntries(10, limits), "");
  EXPECT_EQ(MistakeOfEntries(11, limits),
            Text("it sends more than " + std::to_string(limits.bytes) + " bytes"));
}

TEST_F(ServerContentsTest, TotalTimeIsBoundedEvenIfTheServerIsNeverSilent) {
  ReadLimits limits;
  limits.time = std::chrono::milliseconds(1'000);
  EXPECT_EQ(MistakeOfEntries(10'000, limits, std::chrono::milliseconds(1)),
            Text("it has not sent its tables within 1000 ms"));
}

TEST_F(ServerContentsTest, AServerThatFallsSilentIsLeft) {
  ReadLimits limits;
  limits.silence = std::chrono::milliseconds(1'000);
  EXPECT_EQ(Mistake(
                [this] {
                  server_.Greet();
                  EXPECT_EQ(server_.Next().type, FrameType::kReadTables);
                  EXPECT_TRUE(server_.AwaitClosed());
                },
                limits),
            Text("no answer: Connection timed out"));
}

TEST_F(ServerContentsTest, AClosedConnectionIsNoAnswer) {
  EXPECT_EQ(Mistake([this] { server_.Close(); }), Text("it closed the connection"));
}

// docs/wire_protocol.md promises these.
TEST(ReadLimitsTest, AreTheDocumentedOnes) {
  const ReadLimits limits;
  EXPECT_EQ(limits.entries, 16'777'216U);
  EXPECT_EQ(limits.bytes, 1'073'741'824U);
  EXPECT_EQ(limits.time, std::chrono::seconds(120));
  EXPECT_EQ(limits.silence, std::chrono::seconds(10));
}

}  // namespace
}  // namespace reference
