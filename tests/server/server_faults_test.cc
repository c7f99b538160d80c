#include "reference/server/server_faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "reference/hal/request_observer.h"
#include "reference/server/fault_file.h"
#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "wire.pb.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr int kInstallVrf = 3;
constexpr int kInstallVlan = 5;
constexpr int kDestroyVlan = 6;
constexpr int kInstallHost = 8;
constexpr int kBegin = 17;
constexpr int kEnd = 18;
constexpr int kInSync = 19;
constexpr int kHeartbeat = 20;
constexpr int kReadTables = 21;

const RawFrame kBeat{kHeartbeat, 99, ""};

// Installs of VLANs; each id is also the sequence.
std::string Installs(std::uint32_t first, std::uint32_t last) {
  std::string bytes;
  for (std::uint32_t id = first; id <= last; ++id) {
    bytes += FrameBytes(kInstallVlan, id, Vlan(id).SerializeAsString());
  }
  return bytes;
}

// The successes of those installs.
std::vector<RawFrame> Successes(std::uint32_t first, std::uint32_t last) {
  std::vector<RawFrame> frames;
  for (std::uint32_t id = first; id <= last; ++id) frames.push_back(Result(id, 0, id));
  return frames;
}

// Sends a hello, `bytes` and a heartbeat. Returns all answers between those to the hello and to the
// heartbeat, or up to the end.
std::vector<RawFrame> Converse(RawClient* client, const std::string& bytes) {
  EXPECT_TRUE(client->Greet());
  client->Send(bytes + FrameBytes(kHeartbeat, 99));
  std::vector<RawFrame> frames;
  while (auto frame = client->Receive()) {
    if (*frame == kBeat) break;
    frames.push_back(*frame);
  }
  return frames;
}

std::vector<RawFrame> Converse(TestServer* server, const std::string& bytes) {
  RawClient client(server->path());
  return Converse(&client, bytes);
}

TEST(ServerFaults, RefusesConnections) {
  TestServer server(R"(fault { what: "refuse" nth: 2 times: 2 })");
  EXPECT_TRUE(RawClient(server.path()).Greet());
  for (int count = 0; count < 2; ++count) {
    RawClient refused(server.path());
    EXPECT_EQ(refused.Receive(), (RawFrame{2, 0, "refused by a fault"}));
    EXPECT_TRUE(refused.Ended());
  }
  EXPECT_TRUE(RawClient(server.path()).Greet());
}

TEST(ServerFaults, RefusesConnectionsAlsoWithoutRoomForThem) {
  HalServerOptions options;
  options.max_clients = 1;
  TestServer server(R"(fault { what: "refuse" nth: 2 })", options);
  RawClient first(server.path());
  first.Greet();
  RawClient second(server.path());
  EXPECT_EQ(second.Receive()->payload, "refused by a fault");
}

TEST(ServerFaults, ClosesConnectionsOnAccept) {
  TestServer server(R"(fault { what: "close-on-accept" })");
  EXPECT_TRUE(RawClient(server.path()).Ended());
  EXPECT_TRUE(RawClient(server.path()).Greet());
}

TEST(ServerFaults, AnswersWithoutApplying) {
  TestServer server(
      R"(fault { what: "answer" of: "install-vlan" nth: 2 times: 2 code: 4000000000 })");
  EXPECT_THAT(
      Converse(&server, FrameBytes(kInstallVrf, 9, Vrf(9).SerializeAsString()) + Installs(1, 4)),
      ElementsAre(Result(9, 0, 9), Result(1, 0, 1), Result(2, 4000000000, 2),
                  Result(3, 4000000000, 3), Result(4, 0, 4)));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 2U);
}

TEST(ServerFaults, CountsTheRequestsOfAKind) {
  TestServer server(R"(fault { what: "answer" of: "vlan" nth: 2 code: 1 })");
  EXPECT_THAT(
      Converse(&server, Installs(1, 1) + FrameBytes(kInstallVrf, 9, Vrf(9).SerializeAsString()) +
                            FrameBytes(kDestroyVlan, 2, Vlan(1).SerializeAsString())),
      ElementsAre(Result(1, 0, 1), Result(9, 0, 9), Result(2, 1, 1)));
}

TEST(ServerFaults, FillsTables) {
  TestServer server(R"(fault { what: "table-full" of: "vlan" entries: 2 times: 2 })");
  EXPECT_THAT(Converse(&server, Installs(1, 2) + Installs(1, 1) + Installs(3, 5)),
              ElementsAre(Result(1, 0, 1), Result(2, 0, 2), Result(1, 0, 1), Result(3, 5, 3),
                          Result(4, 5, 4), Result(5, 0, 5)));
}

TEST(ServerFaults, ClosesBeforeApplying) {
  TestServer server(R"(fault { what: "close-before" nth: 2 })");
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 1));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 1U);
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
}

TEST(ServerFaults, ClosesAfterApplying) {
  TestServer server(R"(fault { what: "close-after" nth: 2 })");
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 1));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 2U);
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
}

TEST(ServerFaults, CrashesAndStartsAgainEmpty) {
  for (const char* const what : {"crash-before", "crash-after"}) {
    SCOPED_TRACE(what);
    TestServer server("fault { what: \"" + std::string(what) + "\" nth: 2 times: 2 }");
    RawClient other(server.path());
    other.Greet();
    for (int count = 0; count < 2; ++count) {
      const std::uint64_t generation = server.Generation();
      RawClient client(server.path());
      client.Greet();
      // One at a time: it is undefined whether earlier answers survive a crash.
      if (count == 0) {
        client.Send(Installs(1, 1));
        EXPECT_EQ(client.Receive(), Result(1, 0, 1));
      }
      client.Send(Installs(2, 2));
      EXPECT_TRUE(client.Ended());
      EXPECT_EQ(server.Tables().size(HalKind::kVlan), 0U);
      EXPECT_NE(server.Generation(), generation);
    }
    EXPECT_TRUE(other.Ended());
    const auto tables = Converse(&server, FrameBytes(kReadTables, 1));
    ASSERT_THAT(tables, SizeIs(1));
    wire::ServerStatus status;
    ASSERT_TRUE(status.ParseFromString(tables.back().payload));
    EXPECT_EQ(status.requests(), 0U);
    EXPECT_EQ(status.connections(), 1U);
    EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
  }
}

// Counts the starts that it sees.
class StartObserver : public RequestObserver {
 public:
  int starts() const { return starts_; }

  std::uint64_t Request(const HalRequest& /*request*/, const void* /*wrapper*/) override {
    return 1;
  }
  void Result(std::uint64_t /*number*/, const HalRequest& /*request*/, HalReturnCode /*code*/,
              std::string_view /*reason*/) override {}
  void BeginReinstall() override {}
  void EndReinstall() override {}
  void ObjectStateChanged(const HalObjectState& /*state*/) override {}
  void ServerFound() override { ++starts_; }
  void Event(std::string_view /*line*/) override {}

 private:
  std::atomic<int> starts_ = 0;
};

TEST(ServerFaults, CountsFromZeroAfterACrash) {
  TestServer server("fault { what: \"refuse\" } fault { what: \"crash-before\" }");
  RawClient refused(server.path());
  while (refused.Receive()) continue;
  EXPECT_THAT(Converse(&server, Installs(1, 1)), ElementsAre());
  const auto frames = Converse(&server, FrameBytes(kReadTables, 1));
  ASSERT_THAT(frames, SizeIs(1));
  wire::ServerStatus status;
  ASSERT_TRUE(status.ParseFromString(frames[0].payload));
  EXPECT_EQ(status.requests(), 0U);
  EXPECT_EQ(status.connections(), 1U);
  EXPECT_EQ(status.refused_connections(), 0U);
}

TEST(ServerFaults, TheObserverSeesACrashAsAStart) {
  StartObserver observer;
  HalServerOptions options;
  options.observer = &observer;
  TestServer server(R"(fault { what: "crash-before" })", options);
  EXPECT_EQ(observer.starts(), 1);
  EXPECT_THAT(Converse(&server, Installs(1, 1)), ElementsAre());
  // Waits for the end of the crash.
  server.Generation();
  EXPECT_EQ(observer.starts(), 2);
}

TEST(ServerFaults, CrashesInAReinstall) {
  TestServer server(R"(fault { what: "crash-before" in_reinstall: true nth: 2 })");
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
  {
    RawClient client(server.path());
    client.Greet();
    client.Send(FrameBytes(kBegin, 1) + Installs(1, 1));
    EXPECT_EQ(client.Receive(), Result(1, 0, 1));
    // A new begin restarts the count.
    client.Send(FrameBytes(kBegin, 2) + Installs(2, 2));
    EXPECT_EQ(client.Receive(), Result(2, 0, 2));
    client.Send(Installs(3, 3));
    EXPECT_TRUE(client.Ended());
  }
  const auto frames =
      Converse(&server, FrameBytes(kBegin, 1) + Installs(1, 3) + FrameBytes(kEnd, 4));
  ASSERT_THAT(frames, SizeIs(4));
  EXPECT_EQ(frames[3].type, kInSync);
}

TEST(ServerFaults, ACrashEndsAReinstall) {
  TestServer server(R"(fault { what: "crash-before" in_reinstall: true nth: 2 times: 2 })");
  RawClient client(server.path());
  client.Greet();
  client.Send(FrameBytes(kBegin, 1) + Installs(1, 2));
  while (client.Receive()) continue;
  EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
}

TEST(ServerFaults, StrikesOnlyBeforeTheEndOfAReinstall) {
  TestServer server(R"(fault { what: "swallow" in_reinstall: true nth: 2 })");
  EXPECT_THAT(Converse(&server, FrameBytes(kBegin, 1) + Installs(1, 1) + FrameBytes(kEnd, 2) +
                                    Installs(3, 4)),
              SizeIs(4));
}

struct CutCase {
  const char* what;
  std::size_t bytes;
};

TEST(ServerFaults, CutsAResult) {
  for (const CutCase& cut : {CutCase{"cut-in-header", 4}, CutCase{"cut-in-body", 14}}) {
    SCOPED_TRACE(cut.what);
    TestServer server("fault { what: \"" + std::string(cut.what) + "\" nth: 2 }");
    RawClient client(server.path());
    client.Greet();
    client.Send(Installs(1, 3));
    EXPECT_EQ(client.Receive(), Result(1, 0, 1));
    const std::string result = FrameBytes(16, 2, Result(2, 0, 2).payload + std::string(4, '\0'));
    EXPECT_EQ(client.ReceiveBytes(100), result.substr(0, cut.bytes));
    EXPECT_EQ(server.Tables().size(HalKind::kVlan), 2U);
    EXPECT_EQ(Converse(&server, Installs(1, 3)), Successes(1, 3));
  }
}

// A stream does not show where a write ended.
TEST(ServerFaults, TheFateOfAConnectionIsThatOfItsFault) {
  using Fate = ServerFaults::ConnectionFate;
  const auto fate_with = [](const std::string& fault) {
    const auto plan = ParseFaultFile(fault, {[](LogLevel, const std::string&) {}, [] {}});
    return std::get<std::unique_ptr<ServerFaults>>(plan)->OnAccept();
  };
  EXPECT_EQ(fate_with(R"(fault { what: "refuse" })").entry, Fate::Entry::kRefuse);
  EXPECT_EQ(fate_with(R"(fault { what: "close-on-accept" })").entry, Fate::Entry::kClose);
  EXPECT_TRUE(fate_with(R"(fault { what: "one-byte-writes" })").one_byte_writes);
  EXPECT_EQ(fate_with(R"(fault { what: "slow-reads" bytes_per_second: 7 })").read_bytes_per_second,
            7U);
  const Fate none = fate_with(R"(fault { what: "swallow" })");
  EXPECT_EQ(none.entry, Fate::Entry::kServe);
  EXPECT_FALSE(none.one_byte_writes);
  EXPECT_EQ(none.read_bytes_per_second, 0U);
}

TEST(ServerFaults, WritesByteByByte) {
  TestServer server(R"(fault { what: "one-byte-writes" })");
  EXPECT_EQ(Converse(&server, Installs(1, 100)), Successes(1, 100));
}

TEST(ServerFaults, ReadsSlowly) {
  TestServer server(R"(fault { what: "slow-reads" bytes_per_second: 500 })");
  const auto start = steady_clock::now();
  // 22 bytes of hello, 26 of the two installs, 8 of the heartbeat.
  EXPECT_EQ(Converse(&server, Installs(1, 2)), Successes(1, 2));
  EXPECT_GE(steady_clock::now() - start, milliseconds(2 * 48));
  const auto again = steady_clock::now();
  EXPECT_EQ(Converse(&server, Installs(1, 200)), Successes(1, 200));
  EXPECT_LT(steady_clock::now() - again, milliseconds(4'000));
}

TEST(ServerFaults, DelaysResults) {
  TestServer server(R"(fault { what: "delay" nth: 2 ms: 100 })");
  RawClient client(server.path());
  const auto start = steady_clock::now();
  EXPECT_THAT(Converse(&client, Installs(1, 3)), ElementsAre(Result(1, 0, 1), Result(3, 0, 3)));
  EXPECT_EQ(client.Receive(), Result(2, 0, 2));
  EXPECT_GE(steady_clock::now() - start, milliseconds(100));
}

TEST(ServerFaults, SleepsUntilAResultIsDue) {
  TestServer server(R"(fault { what: "delay" ms: 2000 })");
  RawClient client(server.path());
  client.Greet();
  const std::clock_t start = std::clock();
  client.Send(Installs(1, 1));
  EXPECT_EQ(client.Receive(), Result(1, 0, 1));
  // When none is left, it sleeps too.
  std::this_thread::sleep_for(milliseconds(1'000));
  EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10) << "processor time";
}

// A late result wakes the server while it is already reading.
TEST(ServerFaults, DelaysResultsOfAClientThatKeepsSending) {
  TestServer server(R"(fault { what: "delay" ms: 1 })");
  RawClient client(server.path());
  client.Greet();
  client.Send(Installs(1, 1));
  EXPECT_EQ(client.Receive(), Result(1, 0, 1));
  // Sends more than the server takes in one read.
  server.Hold(milliseconds(200));
  std::string beats;
  std::vector<RawFrame> expected;
  for (std::uint32_t sequence = 1; sequence <= 16'000; ++sequence) {
    beats += FrameBytes(kHeartbeat, sequence);
    expected.push_back({kHeartbeat, sequence, ""});
  }
  client.Send(beats);
  EXPECT_EQ(client.ReceiveFrames(expected.size()), expected);
}

TEST(ServerFaults, ReordersResultsInAWindow) {
  TestServer server(R"(seed: 5 fault { what: "reorder" window: 8 ms: 20 times: 16 })");
  RawClient client(server.path());
  EXPECT_THAT(Converse(&client, Installs(1, 20)), Successes(17, 20));
  for (const std::uint32_t first : {1U, 9U}) {
    auto frames = client.ReceiveFrames(8);
    EXPECT_NE(frames, Successes(first, first + 7));
    std::sort(frames.begin(), frames.end(),
              [](const RawFrame& a, const RawFrame& b) { return a.sequence < b.sequence; });
    EXPECT_EQ(frames, Successes(first, first + 7));
  }
}

TEST(ServerFaults, DuplicatesResults) {
  TestServer server(R"(fault { what: "duplicate" nth: 2 })");
  EXPECT_THAT(Converse(&server, Installs(1, 3)),
              ElementsAre(Result(1, 0, 1), Result(2, 0, 2), Result(2, 0, 2), Result(3, 0, 3)));
}

TEST(ServerFaults, SwallowsResults) {
  TestServer server(R"(fault { what: "swallow" nth: 2 })");
  EXPECT_THAT(Converse(&server, Installs(1, 3)), ElementsAre(Result(1, 0, 1), Result(3, 0, 3)));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 3U);
}

TEST(ServerFaults, SendsStrayResults) {
  TestServer server(R"(fault { what: "stray" nth: 2 })");
  EXPECT_THAT(
      Converse(&server, Installs(1, 3)),
      ElementsAre(Result(1, 0, 1), Result(2, 0, 2), Result(0x800002, 0, 2), Result(3, 0, 3)));
}

TEST(ServerFaults, AnswersHeartbeatsInAPause) {
  TestServer server(R"(fault { what: "pause" nth: 2 ms: 150 })");
  RawClient client(server.path());
  client.Greet();
  client.Send(Installs(1, 1));
  EXPECT_EQ(client.Receive(), Result(1, 0, 1));
  const auto start = steady_clock::now();
  client.Send(FrameBytes(kBegin, 7) + Installs(2, 3) + FrameBytes(kEnd, 8));
  for (int count = 0; count < 3; ++count) {
    client.Send(kHeartbeat, 99);
    EXPECT_EQ(client.Receive(), kBeat);
  }
  EXPECT_LT(steady_clock::now() - start, milliseconds(150));
  EXPECT_THAT(client.ReceiveFrames(2), ElementsAre(Result(2, 0, 2), Result(3, 0, 3)));
  EXPECT_GE(steady_clock::now() - start, milliseconds(149));
  const auto in_sync = client.Receive();
  ASSERT_TRUE(in_sync);
  EXPECT_EQ(in_sync->type, kInSync);
  client.Send(Installs(4, 4));
  EXPECT_EQ(client.Receive(), Result(4, 0, 4));
}

TEST(ServerFaults, StallsHeartbeatsToo) {
  TestServer server(R"(fault { what: "stall" ms: 150 })");
  RawClient client(server.path());
  client.Greet();
  RawClient other(server.path());
  other.Greet();
  const auto start = steady_clock::now();
  client.Send(Installs(1, 1));
  // After the stall has begun.
  std::this_thread::sleep_for(milliseconds(50));
  other.Send(kHeartbeat, 99);
  EXPECT_EQ(other.Receive(), kBeat);
  EXPECT_GE(steady_clock::now() - start, milliseconds(150));
  EXPECT_EQ(client.Receive(), Result(1, 0, 1));
}

// The socket immediately accepts answers that are not delayed, so nothing else wakes the server.
TEST(ServerFaults, LateAnswersDoNotHoldUpFramesAlreadyRead) {
  constexpr std::uint32_t kLate = 40;
  constexpr std::uint32_t kHosts = 200;
  HalServerOptions options;
  // Little more than the room for the delayed answers.
  options.max_unsent = 1000;
  TestServer server(R"(fault { what: "delay" of: "vlan" ms: 600000 times: 40 })", options);
  RawClient client(server.path());
  client.Greet();
  std::string bytes = Installs(1, kLate);
  std::vector<RawFrame> expected;
  for (std::uint32_t id = 1; id <= kHosts; ++id) {
    bytes += FrameBytes(kInstallHost, 1000 + id, Host(id).SerializeAsString());
    expected.push_back(Result(1000 + id, 0, id));
  }
  client.Send(bytes);
  EXPECT_EQ(client.ReceiveFrames(kHosts), expected);
}

TEST(ServerFaults, StrikesByChanceAsTheSeedSays) {
  const auto strikes = [](const std::string& seed) {
    TestServer server("seed: " + seed +
                      R"( fault { what: "answer" one_in: 4 times: 1000 code: 1 })");
    std::string codes;
    for (const RawFrame& frame : Converse(&server, Installs(1, 200))) codes += frame.payload[3];
    return codes;
  };
  const std::string codes = strikes("7");
  ASSERT_EQ(codes.size(), 200U);
  EXPECT_GT(std::count(codes.begin(), codes.end(), 1), 25);
  EXPECT_LT(std::count(codes.begin(), codes.end(), 1), 90);
  EXPECT_EQ(strikes("7"), codes);
  EXPECT_NE(strikes("8"), codes);
}

TEST(ServerFaults, StrikeTogether) {
  TestServer server(R"(fault { what: "answer" code: 9 } fault { what: "duplicate" })");
  EXPECT_THAT(Converse(&server, Installs(1, 2)),
              ElementsAre(Result(1, 9, 1), Result(1, 9, 1), Result(2, 0, 2)));
}

}  // namespace
}  // namespace reference
