#include "reference/server/hal_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "tests/support/gate.h"
#include "tests/support/refused_accepts.h"
#include "tests/support/test_folder.h"
#include "wire.pb.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

constexpr int kGoodbye = 2;
constexpr int kInstallVrf = 3;
constexpr int kInstallVlan = 5;
constexpr int kDestroyVlan = 6;
constexpr int kInstallHost = 8;
constexpr int kInstallMpls = 13;
constexpr int kBegin = 17;
constexpr int kEnd = 18;
constexpr int kInSync = 19;
constexpr int kHeartbeat = 20;
constexpr int kReadTables = 21;
constexpr int kTableEntry = 22;
constexpr int kTableEnd = 23;

std::string VlanBytes(std::uint32_t id, std::uint32_t mtu = 1500) {
  return Vlan(id, mtu).SerializeAsString();
}

template <typename Message>
Message Parse(const std::string& payload) {
  Message message;
  EXPECT_TRUE(message.ParseFromString(payload));
  return message;
}

// "vlan 2, host 1", without the empty ones.
template <typename Kinds>
std::string Counts(const Kinds& kinds) {
  std::string text;
  for (const wire::KindSummary& kind : kinds) {
    if (kind.count() == 0) continue;
    text += (text.empty() ? "" : ", ") + kind.kind() + ' ' + std::to_string(kind.count());
  }
  return text;
}

// Installs VLANs 1 to `count`, a thousand in one write.
void InstallVlans(RawClient* client, std::uint32_t count) {
  for (std::uint32_t id = 1; id <= count;) {
    std::string requests;
    for (int i = 0; i < 1'000; ++i, ++id) requests += FrameBytes(kInstallVlan, id, VlanBytes(id));
    client->Send(requests);
    ASSERT_THAT(client->ReceiveFrames(1'000), SizeIs(1'000));
  }
}

// A client that takes no part in the conversation under test and must still be served.
class Bystander {
 public:
  explicit Bystander(const std::string& path) : client_(path) {
    EXPECT_TRUE(client_.Greet().has_value());
  }

  void ExpectServed() {
    ++sequence_;
    client_.Send(kHeartbeat, sequence_);
    const auto answer = client_.Receive();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(*answer, (RawFrame{kHeartbeat, sequence_, ""}));
  }

 private:
  RawClient client_;
  std::uint32_t sequence_ = 0;
};

TEST(HalServer, DescribesItselfInItsHello) {
  HalServerOptions options;
  options.table_capacity = 1000;
  options.max_payload = 2000;
  TestServer server(options);
  RawClient client(server.path());
  const auto frame = client.Greet();
  ASSERT_TRUE(frame.has_value());
  EXPECT_EQ(frame->type, 1);
  const auto hello = Parse<wire::Hello>(frame->payload);
  EXPECT_EQ(hello.protocol_version(), 1U);
  EXPECT_THAT(hello.program(), ::testing::StartsWith("zuskux-hal "));
  EXPECT_EQ(hello.generation(), server.Generation());
  EXPECT_EQ(hello.table_capacity(), 1000U);
  EXPECT_EQ(hello.max_payload(), 2000U);
  EXPECT_THAT(server.Lines(), ElementsAre("client 1: \"test\" connected"));
}

// docs/wire_protocol.md and docs/threat_model.md promise these.
TEST(HalServer, HasTheDocumentedLimits) {
  const HalServerOptions options;
  EXPECT_EQ(options.max_payload, 65'536U);
  EXPECT_EQ(options.max_clients, 64U);
  EXPECT_EQ(options.max_table_readings, 32U);
  EXPECT_EQ(options.hello_timeout, std::chrono::seconds(5));
  EXPECT_EQ(options.idle_timeout, std::chrono::seconds(30));
}

TEST(HalServer, HasAGenerationOfItsOwn) {
  TestServer one;
  TestServer other;
  EXPECT_NE(one.Generation(), 0U);
  EXPECT_NE(one.Generation(), other.Generation());
}

TEST(HalServer, AnswersAConversation) {
  TestServer server;
  RawClient client(server.path());
  ASSERT_TRUE(client.Greet());
  encapsulation::MplsMessage mpls = MplsOn(9, 5);
  mpls.set_pass_through_value(77);
  // Sent all at once; the answers keep the order.
  client.Send(FrameBytes(kInstallVrf, 1, Vrf(7).SerializeAsString()) +
              FrameBytes(kInstallVlan, 2, VlanBytes(5)) +
              FrameBytes(kInstallHost, 3, HostOn(6, 4).SerializeAsString()) +
              FrameBytes(kInstallMpls, 4, mpls.SerializeAsString()) +
              FrameBytes(kInstallVlan, 5, VlanBytes(5, 9000)) +
              FrameBytes(kInstallVlan, 0xFFFFFF, "\xFF") + FrameBytes(kInstallVlan, 6, "") +
              FrameBytes(kHeartbeat, 7) + FrameBytes(kDestroyVlan, 8, VlanBytes(5)));
  EXPECT_THAT(client.ReceiveFrames(9),
              ElementsAre(Result(1, 0, 7), Result(2, 0, 5), Result(3, 1, 6), Result(4, 0, 9, 77),
                          Result(5, 3, 5), Result(0xFFFFFF, 6, 0), Result(6, 6, 0),
                          RawFrame{kHeartbeat, 7, ""}, Result(8, 0, 5)));
  const HalTables tables = server.Tables();
  EXPECT_EQ(tables.size(HalKind::kVrf), 1U);
  EXPECT_EQ(tables.size(HalKind::kVlan), 0U);
  EXPECT_EQ(tables.size(HalKind::kHost), 0U);
  EXPECT_EQ(tables.Entries(HalKind::kMpls).at(9), mpls.SerializeAsString());
}

TEST(HalServer, ReportsHowLongItHadARequest) {
  TestServer server;
  RawClient client(server.path());
  ASSERT_TRUE(client.Greet());
  const auto start = steady_clock::now();
  client.Send(kInstallVlan, 1, VlanBytes(1));
  const auto result = client.Receive();
  const auto time = steady_clock::now() - start;
  ASSERT_TRUE(result);
  EXPECT_LE(std::chrono::nanoseconds(result->hal_ns), time);
}

TEST(HalServer, WarnsOfAClientThatLeavesInTheMiddleOfAFrame) {
  TestServer server;
  std::optional<RawClient> client(server.path());
  ASSERT_TRUE(client->Greet());
  client.emplace(server.path()).Send(HelloBytes().substr(0, 5));
  client.reset();
  EXPECT_THAT(server.WaitForLines(3),
              UnorderedElementsAre("client 1: \"test\" connected", "client 1: left",
                                   "client 2: left in the middle of a frame"));
  EXPECT_EQ(server.LevelOf("client 1: left"), LogLevel::kInfo);
  EXPECT_EQ(server.LevelOf("client 2: left in the middle of a frame"), LogLevel::kWarning);
}

TEST(HalServer, ReadsFramesThatComeByteByByte) {
  TestServer server;
  RawClient client(server.path());
  for (const char byte : HelloBytes() + FrameBytes(kInstallVlan, 2, VlanBytes(5))) {
    client.Send(std::string(1, byte));
  }
  EXPECT_THAT(client.ReceiveFrames(2), ElementsAre(::testing::_, Result(2, 0, 5)));
}

TEST(HalServer, KeepsThePayloadAsReceived) {
  TestServer server;
  RawClient client(server.path());
  client.Greet();
  // The id comes after the other field, in an order that this schema would not write.
  const std::string payload = "\x28\x64\x18\x05";
  client.Send(kInstallVlan, 1, payload);
  EXPECT_EQ(client.Receive(), Result(1, 0, 5));
  EXPECT_EQ(server.Tables().Entries(HalKind::kVlan).at(5), payload);
  EXPECT_EQ(server.Tables().digest(HalKind::kVlan).sum, EntryHash(5, payload));
}

TEST(HalServer, EndOfReinstallRemovesWhatWasNotNamedAndReportsTheRest) {
  TestServer server;
  RawClient client(server.path());
  client.Greet();
  for (std::uint32_t id = 1; id <= 3; ++id) client.Send(kInstallVlan, id, VlanBytes(id));
  client.Send(kInstallVrf, 4, Vrf(7).SerializeAsString());
  ASSERT_THAT(client.ReceiveFrames(4), SizeIs(4));

  client.Send(FrameBytes(kBegin, 5) + FrameBytes(kInstallVlan, 6, VlanBytes(1)) +
              FrameBytes(kInstallVlan, 7, VlanBytes(2, 9000)) + FrameBytes(kEnd, 8));
  const auto frames = client.ReceiveFrames(3);
  ASSERT_THAT(frames, SizeIs(3));
  EXPECT_EQ(frames[0], Result(6, 0, 1));
  EXPECT_EQ(frames[1], Result(7, 0, 2));
  EXPECT_EQ(frames[2].type, kInSync);
  EXPECT_EQ(frames[2].sequence, 8U);
  const auto summary = Parse<wire::TableSummary>(frames[2].payload);
  EXPECT_EQ(summary.removed(), 2U);
  EXPECT_EQ(Counts(summary.kinds()), "vlan 2");
  ASSERT_EQ(summary.kinds_size(), 5);
  EXPECT_EQ(summary.kinds(0).kind(), "vrf");
  EXPECT_EQ(summary.kinds(0).digest(), 0U);
  EXPECT_EQ(summary.kinds(1).digest(),
            EntryHash(1, VlanBytes(1), EntryHashFunction::kFnv1a) +
                EntryHash(2, VlanBytes(2, 9000), EntryHashFunction::kFnv1a));
}

// More entries than it hashes in one step.
TEST(HalServer, UsesTheHashFunctionThatTheClientKnows) {
  constexpr std::uint32_t kEntries = 20'000;
  TestServer server;
  RawClient first(server.path());
  first.Greet();
  InstallVlans(&first, kEntries);
  first.EndSending();
  EXPECT_TRUE(first.Ended());

  struct Client {
    char minor_version;
    EntryHashFunction function;
  };
  for (const auto& [minor_version, function] :
       {Client{0, EntryHashFunction::kFnv1a}, Client{3, EntryHashFunction::kFnv1a},
        Client{4, EntryHashFunction::kXxh3}, Client{5, EntryHashFunction::kXxh3},
        Client{1, EntryHashFunction::kFnv1a}}) {
    SCOPED_TRACE(static_cast<int>(minor_version));
    std::uint64_t expected = 0;
    for (std::uint32_t id = 1; id <= kEntries; ++id) {
      expected += EntryHash(id, VlanBytes(id), function);
    }
    RawClient client(server.path());
    client.Greet(HelloBytes(minor_version));
    // What follows the end is carried out after the answer.
    client.Send(FrameBytes(kEnd, 1) + FrameBytes(kDestroyVlan, 2, VlanBytes(1)) +
                FrameBytes(kInstallVlan, 3, VlanBytes(1)));
    const auto frames = client.ReceiveFrames(3);
    ASSERT_THAT(frames, SizeIs(3));
    ASSERT_EQ(frames[0].type, kInSync);
    const auto summary = Parse<wire::TableSummary>(frames[0].payload);
    EXPECT_EQ(summary.removed(), 0U);
    EXPECT_EQ(Counts(summary.kinds()), "vlan " + std::to_string(kEntries));
    EXPECT_EQ(summary.kinds(1).digest(), expected);
    client.EndSending();
    EXPECT_TRUE(client.Ended());
  }
}

TEST(HalServer, AReinstallThatDoesNotEndRemovesNothing) {
  TestServer server;
  {
    RawClient client(server.path());
    client.Greet();
    client.Send(FrameBytes(kInstallVlan, 1, VlanBytes(1)) +
                FrameBytes(kInstallVlan, 2, VlanBytes(2)) + FrameBytes(kBegin, 3) +
                FrameBytes(kInstallVlan, 4, VlanBytes(1)));
    ASSERT_THAT(client.ReceiveFrames(3), SizeIs(3));
  }
  server.WaitForLines(2);
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 2U);

  // An end without the client's own begin does not end the open reinstall.
  RawClient other(server.path());
  other.Greet();
  other.Send(kEnd, 5);
  auto in_sync = other.Receive();
  ASSERT_TRUE(in_sync);
  EXPECT_EQ(Parse<wire::TableSummary>(in_sync->payload).removed(), 0U);
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 2U);

  other.Send(FrameBytes(kBegin, 6) + FrameBytes(kEnd, 7));
  in_sync = other.Receive();
  ASSERT_TRUE(in_sync);
  EXPECT_EQ(Parse<wire::TableSummary>(in_sync->payload).removed(), 2U);
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 0U);
}

TEST(HalServer, ShowsItsTables) {
  TestServer server;
  std::this_thread::sleep_for(milliseconds(5));
  RawClient client(server.path());
  client.Greet();
  client.Send(FrameBytes(kInstallVlan, 1, VlanBytes(300)) +
              FrameBytes(kInstallVlan, 2, VlanBytes(5)) +
              FrameBytes(kInstallVrf, 3, Vrf(0).SerializeAsString()) + FrameBytes(kReadTables, 4) +
              FrameBytes(kHeartbeat, 5));
  const auto frames = client.ReceiveFrames(8);
  ASSERT_THAT(frames, SizeIs(8));
  EXPECT_EQ(frames[3],
            (RawFrame{kTableEntry, 4, std::string(5, '\0') + Vrf(0).SerializeAsString()}));
  EXPECT_EQ(frames[4], (RawFrame{kTableEntry, 4, '\x01' + Big(5) + VlanBytes(5)}));
  EXPECT_EQ(frames[5], (RawFrame{kTableEntry, 4, '\x01' + Big(300) + VlanBytes(300)}));
  EXPECT_EQ(frames[6].type, kTableEnd);
  EXPECT_EQ(frames[6].sequence, 4U);
  const auto status = Parse<wire::ServerStatus>(frames[6].payload);
  EXPECT_EQ(status.generation(), server.Generation());
  EXPECT_EQ(Counts(status.kinds()), "vrf 1, vlan 2");
  EXPECT_EQ(status.requests(), 3U);
  EXPECT_EQ(status.connections(), 1U);
  EXPECT_EQ(status.refused_connections(), 0U);
  EXPECT_THAT(status.uptime_ms(), AllOf(Ge(5U), Le(60'000U)));
  EXPECT_EQ(frames[7], (RawFrame{kHeartbeat, 5, ""}));
}

TEST(HalServer, AnswersAClientThatHasEndedSending) {
  TestServer server;
  RawClient client(server.path());
  client.Send(HelloBytes() + FrameBytes(kInstallVlan, 1, VlanBytes(5)));
  client.EndSending();
  EXPECT_THAT(client.ReceiveFrames(2), ElementsAre(::testing::_, Result(1, 0, 5)));
  EXPECT_TRUE(client.Ended());
  EXPECT_THAT(server.WaitForLines(2),
              ElementsAre("client 1: \"test\" connected", "client 1: left"));
}

TEST(HalServer, StopsWhileClientsAreConnected) {
  TestServer server;
  RawClient greeted(server.path());
  greeted.Greet();
  RawClient silent(server.path());
  server.Stop();
  EXPECT_TRUE(greeted.Ended());
  EXPECT_TRUE(silent.Ended());
  EXPECT_FALSE(std::filesystem::exists(server.path()));
}

TEST(HalServer, AcceptsClientsOnceThereAreFileDescriptorsAgain) {
  TestServer server;
  std::optional<RawClient> client;
  {
    const auto start = steady_clock::now();
    const RefusedAccepts accepts;
    client.emplace(server.path());
    const auto lines = server.WaitForLines(3);
    EXPECT_THAT(lines, AllOf(SizeIs(Ge(3)), Each("cannot accept a client: Too many open files")));
    // It tries again after a pause.
    EXPECT_GE(steady_clock::now() - start, milliseconds(100) * static_cast<int>(lines.size() - 1));
  }
  EXPECT_TRUE(client->Greet().has_value());
}

TEST(HalServer, ServesWithoutALog) {
  const TestFolder folder;
  boost::asio::io_context io;
  HalServerOptions options;
  options.path = folder.Path("hal.sock");
  HalServer server(&io, options);
  std::thread thread([&io] { io.run(); });
  EXPECT_TRUE(RawClient(options.path).Greet());
  io.stop();
  thread.join();
}

TEST(HalServer, RefusesClientsAboveItsLimit) {
  HalServerOptions options;
  options.max_clients = 2;
  TestServer server(options);
  Bystander one(server.path());
  {
    Bystander two(server.path());
    RawClient third(server.path());
    EXPECT_EQ(third.Receive(),
              (RawFrame{kGoodbye, 0, "the server has 2 clients, which is its limit"}));
    EXPECT_TRUE(third.Ended());
    two.ExpectServed();
  }
  EXPECT_THAT(server.WaitForLines(4),
              ElementsAre("client 1: \"test\" connected", "client 2: \"test\" connected",
                          "client 3: refused, the server has 2 clients, which is its limit",
                          "client 2: left"));
  RawClient fourth(server.path());
  fourth.Greet();
  fourth.Send(kReadTables, 1);
  const auto end = fourth.Receive();
  ASSERT_TRUE(end.has_value());
  EXPECT_EQ(Parse<wire::ServerStatus>(end->payload).refused_connections(), 1U);
  one.ExpectServed();
}

TEST(HalServer, ClosesAClientThatSaysNoHello) {
  HalServerOptions options;
  options.hello_timeout = milliseconds(50);
  TestServer server(options);
  Bystander bystander(server.path());
  RawClient client(server.path());
  client.Send(HelloBytes().substr(0, 5));
  EXPECT_EQ(client.Receive(), (RawFrame{kGoodbye, 0, "no hello in time"}));
  EXPECT_TRUE(client.Ended());
  EXPECT_THAT(server.Lines(), ElementsAre("client 1: \"test\" connected",
                                          "client 2: no hello in time; connection closed"));
  bystander.ExpectServed();
}

TEST(HalServer, ClosesAClientThatIsIdle) {
  HalServerOptions options;
  options.idle_timeout = milliseconds(2'000);
  options.max_clients = 2;
  TestServer server(options);
  RawClient busy(server.path());
  ASSERT_TRUE(busy.Greet());
  RawClient idle(server.path());
  ASSERT_TRUE(idle.Greet());
  for (std::uint32_t beat = 0; !idle.IsReadable(milliseconds(50)); ++beat) {
    ASSERT_LT(beat, 100U);
    busy.Send(kHeartbeat, beat);
    EXPECT_EQ(busy.Receive(), (RawFrame{kHeartbeat, beat, ""}));
  }
  EXPECT_EQ(idle.Receive(), (RawFrame{kGoodbye, 0, "no byte sent or received for 2000 ms"}));
  EXPECT_TRUE(idle.Ended());
  EXPECT_EQ(server.Lines().back(),
            "client 2: no byte sent or received for 2000 ms; connection closed");
  busy.Send(kHeartbeat, 1);
  EXPECT_EQ(busy.Receive(), (RawFrame{kHeartbeat, 1, ""}));
  RawClient next(server.path());
  EXPECT_EQ(next.Greet()->type, 1);
}

TEST(HalServer, DoesNotCallAClientIdleThatIsGone) {
  const TestFolder folder;
  boost::asio::io_context io;
  std::optional<RawClient> client;
  std::vector<std::string> lines;
  HalServerOptions options;
  options.path = folder.Path("hal.sock");
  options.idle_timeout = milliseconds(1);
  // The client leaves, and its time passes, before the server can look at either.
  options.log = [&](LogLevel, const std::string& line) {
    lines.push_back(line);
    if (line != "client 1: \"test\" connected") return;
    client.reset();
    std::this_thread::sleep_for(2 * options.idle_timeout);
  };
  const HalServer server(&io, options);
  client.emplace(options.path);
  client->Send(HelloBytes());
  while (lines.size() < 2) ASSERT_EQ(io.run_one_for(kPatience), 1U);
  io.poll();
  EXPECT_THAT(lines, ElementsAre("client 1: \"test\" connected", "client 1: lost, Broken pipe"));
}

TEST(HalServer, ClosesAReaderThatDoesNotRead) {
  HalServerOptions options;
  options.idle_timeout = milliseconds(2'000);
  TestServer server(options);
  {
    RawClient writer(server.path());
    writer.Greet();
    // More than the sockets' buffers hold.
    InstallVlans(&writer, 20'000);
  }
  server.WaitForLines(2);
  RawClient reader(server.path());
  reader.Greet();
  reader.Send(kReadTables, 1);
  EXPECT_THAT(
      server.WaitForLines(4),
      ElementsAre("client 1: \"test\" connected", "client 1: left", "client 2: \"test\" connected",
                  "client 2: no byte sent or received for 2000 ms; connection closed"));
}

// Each test takes longer than the limit, and its client is never silent for that long.
class NotIdleTest : public ::testing::Test {
 protected:
  static HalServerOptions Options() {
    HalServerOptions options;
    options.idle_timeout = milliseconds(3'000);
    return options;
  }
};

TEST_F(NotIdleTest, IsAClientThatAwaitsLateAnswers) {
  TestServer server(
      R"(fault { what: "delay" nth: 1 ms: 1500 } fault { what: "delay" nth: 2 ms: 3000 }
         fault { what: "delay" nth: 3 ms: 4500 })",
      Options());
  RawClient client(server.path());
  client.Greet();
  for (std::uint32_t id = 1; id <= 3; ++id) client.Send(kInstallVlan, id, VlanBytes(id));
  EXPECT_THAT(client.ReceiveFrames(3),
              ElementsAre(Result(1, 0, 1), Result(2, 0, 2), Result(3, 0, 3)));
}

TEST_F(NotIdleTest, IsAReaderThatReadsSlowly) {
  constexpr std::size_t kEntries = 60'000;
  constexpr std::size_t kPieces = 30;
  TestServer server(Options());
  RawClient client(server.path());
  client.Greet();
  InstallVlans(&client, kEntries);
  client.Send(kReadTables, 1);
  for (std::size_t piece = 0; piece < kPieces; ++piece) {
    std::this_thread::sleep_for(milliseconds(150));
    ASSERT_THAT(client.ReceiveFrames(kEntries / kPieces), SizeIs(kEntries / kPieces));
  }
  EXPECT_EQ(client.Receive()->type, kTableEnd);
}

TEST_F(NotIdleTest, IsAReaderThatGetsByteAfterByte) {
  constexpr std::uint32_t kEntries = 15'000;
  HalServerOptions options;
  options.idle_timeout = milliseconds(2'000);
  TestServer server(R"(fault { what: "one-byte-writes" nth: 2 })", options);
  {
    RawClient writer(server.path());
    writer.Greet();
    InstallVlans(&writer, kEntries);
  }
  RawClient client(server.path());
  client.Greet();
  client.Send(kReadTables, 1);
  const auto frames = client.ReceiveFrames(kEntries + 1);
  ASSERT_EQ(frames.size(), kEntries + 1);
  EXPECT_EQ(frames.back().type, kTableEnd);
}

// Invalid streams, and how the server answers them.
struct BadStream {
  const char* name;
  std::string bytes;
  const char* reason;
  // Number of frames before the goodbye.
  std::size_t answers = 0;
};

std::string WithHello(const std::string& bytes) { return HelloBytes() + bytes; }

class BadStreamTest : public ::testing::TestWithParam<BadStream> {};

TEST_P(BadStreamTest, EndsInOneLineAndAGoodbyeAndLeavesOthersAlone) {
  TestServer server;
  Bystander bystander(server.path());
  RawClient client(server.path());
  client.Send(GetParam().bytes);
  EXPECT_THAT(client.ReceiveFrames(GetParam().answers), SizeIs(GetParam().answers));
  EXPECT_EQ(client.Receive(), (RawFrame{kGoodbye, 0, GetParam().reason}));
  EXPECT_TRUE(client.Ended());
  bystander.ExpectServed();

  std::vector<std::string> lines = server.Lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "client 2: " + std::string(GetParam().reason) + "; connection closed");
  // The earlier lines report the hellos.
  lines.pop_back();
  EXPECT_THAT(lines, ::testing::Each(HasSubstr("connected")));
}

INSTANTIATE_TEST_SUITE_P(
    Streams, BadStreamTest,
    ::testing::Values(
        BadStream{"WrongVersion", FrameBytes(1, 0, "\x08\x07"),
                  "the client speaks protocol version 7, the server version 1"},
        BadStream{"NoVersion", FrameBytes(1, 0, ""),
                  "the client speaks protocol version 0, the server version 1"},
        BadStream{"HelloThatDoesNotDecode", FrameBytes(1, 0, "\xFF"), "its hello does not decode"},
        BadStream{"RequestBeforeHello", FrameBytes(kInstallVlan, 1, VlanBytes(5)),
                  "the first frame is of type 5, not a hello"},
        BadStream{"HeartbeatBeforeHello", FrameBytes(kHeartbeat, 1),
                  "the first frame is of type 20, not a hello"},
        BadStream{"Garbage", "GET / HTTP/1.1\r\n\r\n", "unknown frame type 71"},
        BadStream{"Zeros", std::string(8, '\0'), "unknown frame type 0"},
        BadStream{"TooLongBeforeHello", "\x01" + std::string(3, '\0') + Big(65537),
                  "payload of 65537 bytes is longer than the limit of 65536"},
        BadStream{"TooLong", WithHello("\x05" + std::string(3, '\0') + Big(0xFFFFFFFF)),
                  "payload of 4294967295 bytes is longer than the limit of 65536", 1},
        BadStream{"UnknownType", WithHello(FrameBytes(25, 0)), "unknown frame type 25", 1},
        BadStream{"SecondHello", WithHello(HelloBytes()), "unexpected frame of type 1", 1},
        BadStream{"ServersFrame", WithHello(FrameBytes(16, 1, std::string(16, '\0'))),
                  "unexpected frame of type 16", 1},
        BadStream{"HeartbeatWithPayload", WithHello(FrameBytes(kHeartbeat, 1, "x")),
                  "frame of type 20 has a payload of 1 bytes, but must have none", 1},
        BadStream{"AnswersFirst",
                  WithHello(FrameBytes(kInstallVlan, 1, VlanBytes(5)) + std::string(8, '\xFF')),
                  "unknown frame type 255", 2}),
    [](const auto& tested) { return tested.param.name; });

TEST(HalServer, EscapesAndShortensTheNameOfAClient) {
  TestServer server;
  RawClient client(server.path());
  wire::Hello hello;
  hello.set_protocol_version(1);
  hello.set_program("a\n\xFF\x1B[31m\"" + std::string(10'000, 'x'));
  client.Send(1, 0, hello.SerializeAsString());
  ASSERT_TRUE(client.Receive());
  EXPECT_THAT(server.Lines(), ElementsAre("client 1: \"a\\n\\xff\\x1b[31m\\\"" +
                                          std::string(55, 'x') + "\" connected"));
}

TEST(HalServer, EveryTruncationOfAConversationEndsIt) {
  TestServer server;
  Bystander bystander(server.path());
  const std::string stream = WithHello(FrameBytes(kInstallVlan, 1, VlanBytes(5)));
  for (std::size_t size = 0; size < stream.size(); ++size) {
    SCOPED_TRACE(size);
    const std::size_t lines = server.Lines().size();
    const bool greeted = size >= HelloBytes().size();
    RawClient client(server.path());
    client.Send(stream.substr(0, size));
    client.EndSending();
    EXPECT_THAT(client.ReceiveFrames(greeted ? 1 : 0), SizeIs(greeted ? 1 : 0));
    EXPECT_TRUE(client.Ended());
    const bool whole = size == 0 || size == HelloBytes().size();
    const char* const expected = size == 0 ? ": left without a hello"
                                 : whole   ? ": left"
                                           : ": left in the middle of a frame";
    const auto now = server.WaitForLines(lines + (greeted ? 2 : 1));
    ASSERT_EQ(now.size(), lines + (greeted ? 2 : 1));
    EXPECT_EQ(now.back(), "client " + std::to_string(size + 2) + expected);
  }
  bystander.ExpectServed();
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 0U);
}

TEST(HalServer, SurvivesRandomStreams) {
  TestServer server;
  Bystander bystander(server.path());
  std::mt19937 random(3);
  for (int round = 0; round < 500; ++round) {
    SCOPED_TRACE(round);
    std::string bytes(random() % 200, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // Most streams begin validly, to get further: with a hello and a request's header.
    if (round % 4 != 0) {
      bytes = WithHello(FrameBytes(3 + static_cast<int>(random() % 13), 1, bytes)) + bytes;
    }
    RawClient client(server.path());
    client.Send(bytes);
    client.EndSending();
    while (client.Receive()) continue;
    EXPECT_TRUE(client.Ended());
    if (round % 50 == 0) bystander.ExpectServed();
  }
  bystander.ExpectServed();
  for (const std::string& line : server.Lines()) EXPECT_THAT(line.size(), Le(200U));
}

TEST(HalServer, PausesReadingFromAClientThatDoesNotRead) {
  HalServerOptions options;
  options.max_unsent = 10'000;
  TestServer server(options);
  Bystander bystander(server.path());
  RawClient client(server.path());
  client.Greet();
  constexpr std::uint32_t kRequests = 200'000;
  std::string requests;
  for (std::uint32_t sequence = 0; sequence < kRequests; ++sequence) {
    requests += FrameBytes(kInstallVlan, sequence, VlanBytes(1));
  }
  const std::size_t taken = client.SendWhileTaken(requests, milliseconds(200));
  // The sockets' buffers hold a few hundred kilobytes, and the server little more.
  EXPECT_LT(taken, requests.size() / 2);
  bystander.ExpectServed();

  std::thread sender([&client, &requests, taken] {
    EXPECT_TRUE(client.Send(std::string_view(requests).substr(taken)));
  });
  std::uint32_t answers = 0;
  while (answers < kRequests && client.Receive() == Result(answers, 0, 1)) ++answers;
  EXPECT_EQ(answers, kRequests);
  sender.join();
}

TEST(HalServer, AnswersReadingsOfTheTablesOneAfterAnother) {
  HalServerOptions options;
  options.max_unsent = 10'000;
  TestServer server(options);
  RawClient client(server.path());
  client.Greet();
  constexpr std::uint32_t kEntries = 2'000;
  for (std::uint32_t id = 1; id <= kEntries; ++id) {
    client.Send(kInstallVlan, id, VlanBytes(id));
    ASSERT_TRUE(client.Receive());
  }
  // The answers to these far exceed the limit on waiting bytes.
  std::string readings;
  for (std::uint32_t sequence = 0; sequence < 1'000; ++sequence) {
    readings += FrameBytes(kReadTables, sequence);
  }
  client.Send(readings);
  Bystander bystander(server.path());
  bystander.ExpectServed();
  for (std::uint32_t sequence = 0; sequence < 3; ++sequence) {
    const auto frames = client.ReceiveFrames(kEntries + 1);
    ASSERT_THAT(frames, SizeIs(kEntries + 1));
    EXPECT_EQ(frames.front().type, kTableEntry);
    EXPECT_EQ(frames.back().type, kTableEnd);
    EXPECT_EQ(frames.back().sequence, sequence);
  }
}

TEST(HalServer, SurvivesAClientThatLeavesWhileItIsAnswered) {
  TestServer server;
  for (int round = 0; round < 20; ++round) {
    RawClient client(server.path());
    std::string stream = HelloBytes();
    for (std::uint32_t sequence = 0; sequence < 1'000; ++sequence) {
      stream += FrameBytes(kInstallVlan, sequence, VlanBytes(1));
    }
    client.SendWhileTaken(stream, milliseconds(50));
  }
  Bystander bystander(server.path());
  bystander.ExpectServed();
}

}  // namespace
}  // namespace reference
