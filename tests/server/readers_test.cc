// Clients that read large tables, while the server still serves a writer. With ZUSKUX_LONG_TESTS=1
// in the environment, the tables have 1,000,000 entries.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "reference/server/hal_server.h"
#include "reference/socket_client/server_contents.h"
#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "wire.pb.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kGoodbye = 2;
constexpr int kInstallVlan = 5;
constexpr int kHeartbeat = 20;
constexpr int kReadTables = 21;
constexpr int kTableEntry = 22;
constexpr int kTableEnd = 23;

std::uint32_t EntryCount() {
  return std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 1'000'000 : 50'000;
}

std::string VlanBytes(std::uint32_t id) { return Vlan(id, 1500).SerializeAsString(); }

class ReadersTest : public ::testing::Test {
 protected:
  void Fill(std::uint32_t count) {
    ASSERT_TRUE(writer_.Greet());
    for (std::uint32_t id = 1; id <= count;) {
      std::string requests;
      const std::uint32_t end = std::min(id + 1'000, count + 1);
      const std::size_t answers = end - id;
      for (; id < end; ++id) requests += FrameBytes(kInstallVlan, id & 0xFFFFFF, VlanBytes(id));
      ASSERT_TRUE(writer_.Send(requests));
      ASSERT_EQ(writer_.ReceiveFrames(answers).size(), answers);
    }
  }

  // How long the server takes to answer the writer.
  milliseconds HeartbeatTime() {
    const auto start = steady_clock::now();
    EXPECT_TRUE(writer_.Send(kHeartbeat, 1));
    EXPECT_EQ(writer_.Receive(), (RawFrame{kHeartbeat, 1, ""}));
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  }

  // A client that asks for the tables but does not read them yet.
  std::unique_ptr<RawClient> Reader() {
    auto reader = std::make_unique<RawClient>(server_.path());
    EXPECT_TRUE(reader->Greet());
    EXPECT_TRUE(reader->Send(kReadTables, 1));
    return reader;
  }

  static HalServerOptions Options() {
    HalServerOptions options;
    options.max_table_readings = 20;
    return options;
  }

  TestServer server_{Options()};
  RawClient writer_{server_.path()};
};

TEST_F(ReadersTest, DoNotKeepTheServerFromItsWriter) {
  constexpr int kReaders = 20;
  const std::uint32_t count = EntryCount();
  Fill(count);
  std::atomic<int> reading{kReaders};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      ReadLimits limits;
      limits.time = std::chrono::minutes(10);
      EXPECT_EQ(ReadServerContents(server_.path(), "reader", limits).entries.size(), count);
      --reading;
    });
  }
  const auto start = steady_clock::now();
  milliseconds longest{0};
  int heartbeats = 0;
  while (reading != 0) {
    longest = std::max(longest, HeartbeatTime());
    ++heartbeats;
  }
  for (std::thread& reader : readers) reader.join();
  // A client considers a server dead after 6 seconds of silence.
  EXPECT_LT(longest, std::chrono::seconds(5));
  EXPECT_GT(heartbeats, 10);
  const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  std::cout << kReaders << " readers of " << count << " entries: " << time.count() << " ms, "
            << heartbeats << " heartbeats, the longest " << longest.count() << " ms\n";
}

TEST_F(ReadersTest, AreRefusedAboveTheLimit) {
  Fill(50'000);
  std::vector<std::unique_ptr<RawClient>> readers;
  for (int i = 0; i < 20; ++i) {
    readers.push_back(Reader());
    EXPECT_EQ(readers.back()->ReceiveFrames(1).size(), 1U);
  }
  EXPECT_EQ(Reader()->Receive(),
            (RawFrame{kGoodbye, 0, "20 clients already read the tables, which is the limit"}));
  // Room appears when a reading ends and when a reader disconnects.
  EXPECT_EQ(readers.front()->ReceiveFrames(50'000).back().type, kTableEnd);
  EXPECT_EQ(Reader()->ReceiveFrames(50'001).back().type, kTableEnd);
  readers.pop_back();
  EXPECT_EQ(Reader()->ReceiveFrames(50'001).back().type, kTableEnd);
}

TEST_F(ReadersTest, ReadingsInOneWriteAreAnsweredOneAfterTheOther) {
  constexpr std::uint32_t kEntries = 10;
  // More than may be in progress at a time.
  constexpr std::uint32_t kReadings = 100;
  Fill(kEntries);
  std::string readings;
  for (std::uint32_t reading = 0; reading < kReadings; ++reading) {
    readings += FrameBytes(kReadTables, reading);
  }
  RawClient reader(server_.path());
  ASSERT_TRUE(reader.Greet());
  ASSERT_TRUE(reader.Send(readings));
  for (std::uint32_t reading = 0; reading < kReadings; ++reading) {
    SCOPED_TRACE(reading);
    const auto frames = reader.ReceiveFrames(kEntries + 1);
    ASSERT_EQ(frames.size(), kEntries + 1);
    for (const RawFrame& frame : frames) EXPECT_EQ(frame.sequence, reading);
    EXPECT_EQ(frames.back().type, kTableEnd);
  }
}

// Larger than what the server examines in one turn.
class LargeReinstallTest : public ReadersTest {
 protected:
  static constexpr std::uint32_t kEntries = 100'000;
  static constexpr int kBegin = 17;
  static constexpr int kEnd = 18;
  static constexpr int kInSync = 19;
  static constexpr std::uint32_t kTakenOver = 2;

  static wire::TableSummary SummaryIn(const std::optional<RawFrame>& frame) {
    wire::TableSummary summary;
    EXPECT_TRUE(frame && frame->type == kInSync && summary.ParseFromString(frame->payload));
    return summary;
  }
};

TEST_F(LargeReinstallTest, EndsBeforeTheFramesThatFollow) {
  Fill(kEntries);
  writer_.Send(FrameBytes(kBegin, 1) + FrameBytes(kInstallVlan, 2, VlanBytes(9)) +
               FrameBytes(kEnd, 3) + FrameBytes(kInstallVlan, 4, VlanBytes(10)) +
               FrameBytes(kHeartbeat, 5));
  EXPECT_EQ(writer_.Receive(), Result(2, 0, 9));
  const auto end = writer_.Receive();
  EXPECT_EQ(SummaryIn(end).removed(), kEntries - 1);
  EXPECT_EQ(end->sequence, 3U);
  EXPECT_EQ(writer_.Receive(), Result(4, 0, 10));
  EXPECT_EQ(writer_.Receive(), (RawFrame{kHeartbeat, 5, ""}));
  EXPECT_EQ(server_.Tables().size(HalKind::kVlan), 2U);
}

TEST_F(LargeReinstallTest, TakesTurnsWithOtherClients) {
  Fill(kEntries);
  server_.Hold(milliseconds(100));
  writer_.Send(FrameBytes(kBegin, 1) + FrameBytes(kEnd, 2));
  RawClient second(server_.path());
  wire::Hello hello;
  hello.set_protocol_version(1);
  hello.set_program("second");
  hello.set_writes(true);
  hello.set_take_over(true);
  second.Send(FrameBytes(1, 0, hello.SerializeAsString()));
  ASSERT_TRUE(second.Receive());
  // The takeover did not wait for the end of the reinstall, which stops where it is.
  const auto goodbye = writer_.Receive();
  ASSERT_TRUE(goodbye);
  EXPECT_EQ(goodbye->type, kGoodbye);
  EXPECT_EQ(goodbye->sequence, kTakenOver);
  EXPECT_TRUE(writer_.Ended());
  const std::size_t left = server_.Tables().size(HalKind::kVlan);
  EXPECT_GT(left, 0U);
  second.Send(FrameBytes(kBegin, 1) + FrameBytes(kInstallVlan, 2, VlanBytes(9)) +
              FrameBytes(kEnd, 3));
  EXPECT_EQ(second.Receive(), Result(2, 0, 9));
  EXPECT_EQ(SummaryIn(second.Receive()).kinds(1).count(), 1U);
}

TEST_F(ReadersTest, SeeTheChangesThatAreMadeWhileTheyRead) {
  constexpr std::uint32_t kEntries = 20'000;
  Fill(kEntries);
  const auto reader = Reader();
  ASSERT_EQ(reader->ReceiveFrames(100).size(), 100U);
  // An entry far from the position of the reading.
  ASSERT_TRUE(writer_.Send(7, 1, Vlan(1, 9000).SerializeAsString()));
  EXPECT_EQ(writer_.Receive(), Result(1, 0, 1));
  const auto frames = reader->ReceiveFrames(kEntries - 99);
  ASSERT_EQ(frames.size(), kEntries - 99);
  EXPECT_EQ(frames.back().type, kTableEnd);
  EXPECT_EQ(frames[frames.size() - 2],
            (RawFrame{kTableEntry, 1, '\x01' + Big(1) + Vlan(1, 9000).SerializeAsString()}));
}

}  // namespace
}  // namespace reference
