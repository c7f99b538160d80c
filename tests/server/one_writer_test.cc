// At most one client at a time changes the server's tables.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "reference/server/hal_server.h"
#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "wire.pb.h"

namespace reference {
namespace {

using ::testing::ElementsAre;

constexpr int kHello = 1;
constexpr int kGoodbye = 2;
constexpr int kInstallVlan = 5;
constexpr int kBegin = 17;
constexpr int kEnd = 18;
constexpr int kInSync = 19;
constexpr int kHeartbeat = 20;
constexpr int kReadTables = 21;
constexpr int kTableEnd = 23;

constexpr std::uint32_t kOtherWriter = 1;
constexpr std::uint32_t kTakenOver = 2;

std::string WriterHello(const std::string& program, bool take_over = false) {
  wire::Hello hello;
  hello.set_protocol_version(1);
  hello.set_protocol_minor_version(1);
  hello.set_program(program);
  hello.set_writes(true);
  hello.set_take_over(take_over);
  return FrameBytes(kHello, 0, hello.SerializeAsString());
}

std::string VlanBytes(std::uint32_t id) { return Vlan(id, 1500).SerializeAsString(); }

std::string NameOf(const std::string& program) {
  return '"' + program + "\" (pid " + std::to_string(getpid()) + ')';
}

std::string Refusal(const std::string& writer) {
  return NameOf(writer) + " programs this server, which has one writer at a time";
}

int TypeOf(const std::optional<RawFrame>& frame) { return frame ? frame->type : -1; }

std::uint64_t Removed(const std::optional<RawFrame>& in_sync) {
  wire::TableSummary summary;
  EXPECT_EQ(TypeOf(in_sync), kInSync);
  EXPECT_TRUE(in_sync && summary.ParseFromString(in_sync->payload));
  return summary.removed();
}

/// The first frame that makes a client a writer.
struct Attempt {
  const char* name;
  std::string bytes;
  // Number of frames before the refusal.
  std::size_t answers;
};

class SecondWriterTest : public ::testing::TestWithParam<Attempt> {};

TEST_P(SecondWriterTest, LearnsWhoTheFirstOneIsAndDoesNotDisturbItsReinstall) {
  TestServer server;
  RawClient first(server.path());
  first.Send(WriterHello("first"));
  ASSERT_EQ(TypeOf(first.Receive()), kHello);
  first.Send(FrameBytes(kInstallVlan, 1, VlanBytes(1)) + FrameBytes(kInstallVlan, 2, VlanBytes(2)) +
             FrameBytes(kBegin, 3) + FrameBytes(kInstallVlan, 4, VlanBytes(1)));
  ASSERT_EQ(first.ReceiveFrames(3).size(), 3U);

  RawClient second(server.path());
  second.Send(GetParam().bytes);
  EXPECT_EQ(second.ReceiveFrames(GetParam().answers).size(), GetParam().answers);
  EXPECT_EQ(second.Receive(), (RawFrame{kGoodbye, kOtherWriter, Refusal("first")}));
  EXPECT_TRUE(second.Ended());
  EXPECT_EQ(server.Lines().back(), "client 2: " + NameOf("test") + " refused: " + Refusal("first"));

  first.Send(kEnd, 5);
  EXPECT_EQ(Removed(first.Receive()), 1U);
  const auto entries = server.Tables().Entries(HalKind::kVlan);
  EXPECT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries.count(1), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Attempts, SecondWriterTest,
    ::testing::Values(Attempt{"ByItsHello", WriterHello("test"), 0},
                      Attempt{"ByARequest",
                              HelloBytes() + FrameBytes(kInstallVlan, 1, VlanBytes(9)), 1},
                      Attempt{"ByABegin", HelloBytes() + FrameBytes(kBegin, 1), 1},
                      Attempt{"ByAnEnd", HelloBytes() + FrameBytes(kEnd, 1), 1}),
    [](const auto& tested) { return tested.param.name; });

class OneWriterTest : public ::testing::Test {
 protected:
  // A client that the server has accepted as its writer.
  std::unique_ptr<RawClient> Writer(const std::string& program, bool take_over = false) {
    auto client = std::make_unique<RawClient>(server_.path());
    client->Send(WriterHello(program, take_over));
    EXPECT_EQ(TypeOf(client->Receive()), kHello);
    return client;
  }

  TestServer server_;
};

TEST_F(OneWriterTest, WelcomesReaders) {
  const auto writer = Writer("writer");
  RawClient reader(server_.path());
  ASSERT_TRUE(reader.Greet());
  reader.Send(FrameBytes(kHeartbeat, 1) + FrameBytes(kReadTables, 2));
  EXPECT_EQ(TypeOf(reader.Receive()), kHeartbeat);
  EXPECT_EQ(TypeOf(reader.Receive()), kTableEnd);
  writer->Send(kInstallVlan, 1, VlanBytes(1));
  EXPECT_EQ(writer->Receive(), Result(1, 0, 1));
}

TEST_F(OneWriterTest, StaysOneWhenAReaderLeaves) {
  const auto writer = Writer("writer");
  {
    RawClient reader(server_.path());
    ASSERT_TRUE(reader.Greet());
    reader.EndSending();
    EXPECT_TRUE(reader.Ended());
  }
  RawClient second(server_.path());
  second.Send(WriterHello("second"));
  EXPECT_EQ(second.Receive(), (RawFrame{kGoodbye, kOtherWriter, Refusal("writer")}));
}

TEST_F(OneWriterTest, IsTakenOver) {
  const auto first = Writer("first");
  first->Send(FrameBytes(kInstallVlan, 1, VlanBytes(1)) + FrameBytes(kBegin, 2));
  ASSERT_EQ(first->Receive(), Result(1, 0, 1));

  const auto second = Writer("second", true);
  EXPECT_EQ(first->Receive(),
            (RawFrame{kGoodbye, kTakenOver, NameOf("second") + " has taken over"}));
  EXPECT_TRUE(first->Ended());
  // The second writer cannot end the first one's reinstall.
  second->Send(FrameBytes(kEnd, 1));
  EXPECT_EQ(Removed(second->Receive()), 0U);
  second->Send(FrameBytes(kBegin, 2) + FrameBytes(kInstallVlan, 3, VlanBytes(3)) +
               FrameBytes(kEnd, 4));
  EXPECT_EQ(second->Receive(), Result(3, 0, 3));
  EXPECT_EQ(Removed(second->Receive()), 1U);
  EXPECT_THAT(server_.Lines(),
              ElementsAre("client 1: \"first\" connected",
                          "client 1: " + NameOf("second") + " has taken over; connection closed",
                          "client 2: \"second\" connected"));
}

TEST_F(OneWriterTest, CarriesOutNothingThatComesAfterATakeOver) {
  const auto first = Writer("first");
  server_.Hold(std::chrono::milliseconds(100));
  RawClient second(server_.path());
  second.Send(WriterHello("second", true));
  ASSERT_EQ(TypeOf(second.Receive()), kHello);
  first->Send(kInstallVlan, 1, VlanBytes(1));
  EXPECT_EQ(TypeOf(first->Receive()), kGoodbye);
  EXPECT_TRUE(first->Ended());
  EXPECT_EQ(server_.Tables().size(HalKind::kVlan), 0U);
}

TEST_F(OneWriterTest, MayTakeOverFromNobody) {
  const auto writer = Writer("writer", true);
  writer->Send(kInstallVlan, 1, VlanBytes(1));
  EXPECT_EQ(writer->Receive(), Result(1, 0, 1));
}

TEST_F(OneWriterTest, IsFollowedAtOnceWhenItEnds) {
  auto first = Writer("first");
  // Fills the socket with more than the server takes in one read, so that most of it is unread when
  // the next writer comes. The frames need no answers, which could not be sent.
  std::string marks;
  while (marks.size() < 1'000'000) marks += FrameBytes(kBegin, 1);
  server_.Hold(std::chrono::milliseconds(300));
  EXPECT_GT(first->SendWhileTaken(marks, std::chrono::milliseconds(20)), 150'000U);
  first.reset();
  const auto second = Writer("second");
  second->Send(kInstallVlan, 1, VlanBytes(2));
  EXPECT_EQ(second->Receive(), Result(1, 0, 2));
}

TEST_F(OneWriterTest, IsFollowedWhenItLeavesBesideAReader) {
  RawClient reader(server_.path());
  ASSERT_TRUE(reader.Greet());
  const auto first = Writer("first");
  first->EndSending();
  EXPECT_TRUE(first->Ended());
  Writer("second");
}

TEST_F(OneWriterTest, IsFollowedByOneThatWasRefusedBefore) {
  auto first = Writer("first");
  {
    RawClient refused(server_.path());
    refused.Send(WriterHello("second"));
    EXPECT_EQ(TypeOf(refused.Receive()), kGoodbye);
  }
  first.reset();
  Writer("second");
}

TEST_F(OneWriterTest, LogsARepeatedRefusalOnce) {
  const auto writer = Writer("writer");
  for (const char* const program : {"one", "one", "one", "two"}) {
    RawClient refused(server_.path());
    refused.Send(WriterHello(program));
    EXPECT_EQ(TypeOf(refused.Receive()), kGoodbye);
    EXPECT_TRUE(refused.Ended());
  }
  EXPECT_THAT(server_.Lines(),
              ElementsAre("client 1: \"writer\" connected",
                          "client 2: " + NameOf("one") + " refused: " + Refusal("writer"),
                          "client 5: " + NameOf("two") + " refused: " + Refusal("writer")));
  RawClient reader(server_.path());
  ASSERT_TRUE(reader.Greet());
  reader.Send(kReadTables, 1);
  const auto end = reader.Receive();
  ASSERT_EQ(TypeOf(end), kTableEnd);
  wire::ServerStatus status;
  ASSERT_TRUE(status.ParseFromString(end->payload));
  EXPECT_EQ(status.refused_connections(), 4U);
}

}  // namespace
}  // namespace reference
