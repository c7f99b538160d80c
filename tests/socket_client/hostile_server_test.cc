/// If a server sends anything invalid, the client closes the connection with one log line, and
/// reconnects.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "reference/socket_client/socket_hal.h"
#include "tests/socket_client/fake_server.h"
#include "tests/socket_client/reported.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

/// A server's part of a conversation: what it sends instead of a hello, or after it.
struct Conversation {
  std::string name;
  bool greeted = false;
  std::string bytes;
  std::string line;
};

void PrintTo(const Conversation& conversation, std::ostream* out) { *out << conversation.name; }

std::string FrameOf(FrameType type, std::string_view payload = {}) {
  std::string frame;
  AppendFrame(type, 0, payload, &frame);
  return frame;
}

std::string Oversize() { return std::string("\x10\0\0\0\x7F\xFF\xFF\xFF", 8); }

const std::vector<Conversation>& Conversations() {
  static const std::vector<Conversation> kConversations = {
      {"UnknownTypeBeforeHello", false, std::string(8, '\xFF'),
       "HAL server closed, it sent no valid frame: unknown frame type 255"},
      {"TextBeforeHello", false, "HTTP/1.1 400 Bad Request\r\n",
       "HAL server closed, it sent no valid frame: unknown frame type 72"},
      {"ResultBeforeHello", false, FrameOf(FrameType::kResult, std::string(16, '\0')),
       "HAL server closed, it sent frame type 16 before its hello"},
      {"HelloThatDoesNotDecode", false, FrameOf(FrameType::kHello, "\xFF\xFF"),
       "HAL server closed, its hello does not decode"},
      {"OtherVersion", false, HelloFrame(2),
       "HAL server closed, it speaks protocol version 2 and this client version 1: update the "
       "older one"},
      {"EmptyHello", false, FrameOf(FrameType::kHello),
       "HAL server closed, it speaks protocol version 0 and this client version 1: update the "
       "older one"},
      {"UnknownType", true, std::string(8, '\0'),
       "HAL server closed, it sent no valid frame: unknown frame type 0"},
      {"Oversize", true, Oversize(),
       "HAL server closed, it sent no valid frame: payload of 2147483647 bytes is longer than the "
       "limit of 65536"},
      {"ShortResult", true, FrameOf(FrameType::kResult, std::string(15, '\0')),
       "HAL server closed, it sent a result of 15 bytes"},
      {"LongResult", true, FrameOf(FrameType::kResult, std::string(273, '\0')),
       "HAL server closed, it sent a result of 273 bytes"},
      {"SecondHello", true, HelloFrame(),
       "HAL server closed, it sent frame type 1, a second hello"},
      {"Request", true, FrameOf(FrameType{5}),
       "HAL server closed, it sent frame type 5, which no server sends"},
      {"TableEntry", true, FrameOf(FrameType::kTableEntry),
       "HAL server closed, it sent frame type 22, which no server sends"},
      {"HeartbeatWithPayload", true, FrameOf(FrameType::kHeartbeat, "x"),
       "HAL server closed, it sent a heartbeat with a payload"},
      {"SummaryThatDoesNotDecode", true, FrameOf(FrameType::kInSync, "\xFF\xFF"),
       "HAL server closed, its table summary does not decode"},
  };
  return kConversations;
}

SocketHalOptions Options(const FakeServer& server, Record* log) {
  SocketHalOptions options;
  options.path = server.path();
  options.reconnect_first = milliseconds(0);
  options.reconnect_last = milliseconds(0);
  options.log = [log](LogLevel, const std::string& line) { log->Add(line); };
  return options;
}

class PromiseAnyBytes : public testing::TestWithParam<Conversation> {};

TEST_P(PromiseAnyBytes, CloseTheConnectionWithOneLineAndConnectAgain) {
  FakeServer server;
  Record log;
  Reported reported;
  SocketHal hal(Options(server, &log));
  hal.Start(reported.Reports());
  server.Accept();
  if (GetParam().greeted) {
    server.Greet();
    reported.Await(1);
  }
  // The outcome does not depend on how the bytes are split.
  for (const char byte : GetParam().bytes) server.Send({&byte, 1});
  EXPECT_TRUE(server.AwaitClosed());
  server.AcceptAndGreet();
  reported.Await(GetParam().greeted ? 2 : 1);
  const std::string connected = "connected to HAL server fake-hal 1, generation 0x0000000000000007";
  if (GetParam().greeted) {
    EXPECT_THAT(log.Await(3), ElementsAre(connected, GetParam().line, connected));
  } else {
    EXPECT_THAT(log.Await(2), ElementsAre(GetParam().line, connected));
  }
}

INSTANTIATE_TEST_SUITE_P(Conversations, PromiseAnyBytes, testing::ValuesIn(Conversations()),
                         [](const auto& conversation) { return conversation.param.name; });

// Both arrive in one read.
TEST(HostileServerTest, ReportsTheResultsBeforeAnInvalidFrame) {
  FakeServer server;
  Record log;
  Reported reported;
  SocketHal hal(Options(server, &log));
  hal.Start(reported.Reports());
  server.AcceptAndGreet();
  reported.Await(1);
  std::string answers;
  for (std::uint32_t id = 1; id <= 3; ++id) {
    InstallVlan(&hal, id);
    if (id == 3) break;
    AppendResult(server.Next().sequence, {kHalSuccess, id}, &answers);
  }
  server.Send(answers + std::string(8, '\0'));
  EXPECT_TRUE(server.AwaitClosed());
  server.AcceptAndGreet();
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0",
                                             "InstallVlan 3: 100", "found"));
}

TEST(HostileServerTest, ReportsTheSameFailureOnce) {
  FakeServer server;
  Record log;
  Reported reported;
  SocketHal hal(Options(server, &log));
  hal.Start(reported.Reports());
  for (int attempt = 0; attempt < 3; ++attempt) {
    server.Accept();
    server.Send(HelloFrame(2));
    EXPECT_TRUE(server.AwaitClosed());
  }
  server.AcceptAndGreet();
  EXPECT_EQ(log.Await(2).size(), 2U);
}

}  // namespace
}  // namespace reference
