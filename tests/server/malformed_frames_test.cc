// Thousands of invalid frames, with one mistake each. Every one ends in its log line, its goodbye
// and the end of its connection; other clients are still served, and nothing leaks.
//
// With ZUSKUX_LONG_TESTS=1 in the environment, there are 100,000 frames, and the headers of valid
// frames take every value in every byte, instead of some.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "tests/support/allocations.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;

constexpr std::uint32_t kLimit = 65536;
constexpr std::uint32_t kLastType = 24;
constexpr std::uint32_t kLongestSize = 0xFFFFFFFF;

// What a client sends, whether after a hello, and the resulting complaint.
struct Malformed {
  bool greeted = false;
  std::string bytes;
  std::string reason;
  // The client stops in the middle of the frame, so there is nothing to answer.
  bool cut = false;
};

class MalformedFrames {
 public:
  Malformed Next() {
    switch (From(0, 7)) {
      case 0:
        return UnknownType();
      case 1:
        return TooLong();
      case 2:
        return NoHello();
      case 3:
        return {false, Frame(1, Undecodable()), "its hello does not decode"};
      case 4:
        return OtherVersion();
      case 5:
        return Unexpected();
      case 6:
        return WithPayload();
      default:
        return Cut();
    }
  }

 private:
  std::uint32_t From(std::uint32_t first, std::uint32_t last) {
    return std::uniform_int_distribution<std::uint32_t>(first, last)(random_);
  }

  template <std::size_t size>
  int OneOf(const std::array<int, size>& types) {
    return types.at(From(0, size - 1));
  }

  std::string Bytes(std::uint32_t least, std::uint32_t most) {
    std::string bytes(From(least, most), '\0');
    for (char& byte : bytes) byte = static_cast<char>(From(0, 0xFF));
    return bytes;
  }

  std::string Frame(int type, const std::string& payload) {
    return FrameBytes(type, From(0, 0xFFFFFF), payload);
  }

  std::string Header(std::uint32_t type, std::uint32_t size) {
    return Big(type << 24 | From(0, 0xFFFFFF)) + Big(size);
  }

  // A varint that does not end.
  std::string Undecodable() { return std::string(From(1, 9), '\xFF'); }

  Malformed UnknownType() {
    // Above the last type, and 0.
    const std::uint32_t type = From(kLastType, 0xFF) + 1;
    return {From(0, 1) == 1, Header(type & 0xFF, From(0, kLongestSize)) + Bytes(0, 20),
            "unknown frame type " + std::to_string(type & 0xFF)};
  }

  Malformed TooLong() {
    const std::uint32_t size = From(kLimit + 1, kLongestSize);
    return {From(0, 1) == 1, Header(From(1, kLastType), size),
            "payload of " + std::to_string(size) + " bytes is longer than the limit of 65536"};
  }

  Malformed NoHello() {
    const auto type = static_cast<int>(From(2, kLastType));
    return {false, Frame(type, Bytes(0, 100)),
            "the first frame is of type " + std::to_string(type) + ", not a hello"};
  }

  Malformed OtherVersion() {
    const std::uint32_t version = From(2, 0x7F);
    return {
        false, Frame(1, '\x08' + std::string(1, static_cast<char>(version))),
        "the client speaks protocol version " + std::to_string(version) + ", the server version 1"};
  }

  Malformed Unexpected() {
    const int type = OneOf(std::array{1, 2, 16, 19, 22, 23, 24});
    return {true, Frame(type, Bytes(0, 100)), "unexpected frame of type " + std::to_string(type)};
  }

  Malformed WithPayload() {
    const int type = OneOf(std::array{17, 18, 20, 21});
    const std::string payload = Bytes(1, 100);
    return {true, Frame(type, payload),
            "frame of type " + std::to_string(type) + " has a payload of " +
                std::to_string(payload.size()) + " bytes, but must have none"};
  }

  Malformed Cut() {
    std::string frame = Frame(5, Bytes(1, 100));
    frame.resize(From(1, static_cast<std::uint32_t>(frame.size()) - 1));
    return {true, frame, "left in the middle of a frame", true};
  }

  std::mt19937 random_{11};
};

// Sends the frame as client `number` and checks the outcome.
void ExpectFate(const Malformed& malformed, int number, TestServer* server) {
  RawClient client(server->path());
  const std::string name = "client " + std::to_string(number) + ": ";
  std::vector<std::string> lines;
  if (malformed.greeted) {
    ASSERT_TRUE(client.Greet());
    lines.push_back(name + "\"test\" connected");
  }
  ASSERT_TRUE(client.Send(malformed.bytes));
  if (malformed.cut) {
    client.EndSending();
    lines.push_back(name + malformed.reason);
  } else {
    ASSERT_EQ(client.Receive(), (RawFrame{2, 0, malformed.reason}));
    lines.push_back(name + malformed.reason + "; connection closed");
  }
  ASSERT_TRUE(client.Ended());
  ASSERT_THAT(server->TakeLines(), ElementsAreArray(lines));
}

TEST(ServerMalformedFramesTest, EachEndsItsConnectionAloneAndLeavesNothing) {
  const int frames = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 100'000 : 2'000;
  TestServer server;
  RawClient bystander(server.path());
  ASSERT_TRUE(bystander.Greet());
  bystander.Send(5, 1, Vlan(7).SerializeAsString());
  ASSERT_EQ(bystander.Receive(), Result(1, 0, 7));
  server.TakeLines();

  MalformedFrames malformed;
  std::ptrdiff_t live = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    SCOPED_TRACE(frame);
    ASSERT_NO_FATAL_FAILURE(ExpectFate(malformed.Next(), frame + 1, &server));
    if (frame % 100 != 0) continue;
    bystander.Send(20, 2);
    ASSERT_EQ(bystander.Receive(), (RawFrame{20, 2, ""}));
    ASSERT_EQ(server.Tables().size(HalKind::kVlan), 1U);
    // Memory must not grow after the first hundred connections.
    if (frame == 100) live = testing_support::LiveAllocations();
    ASSERT_LE(testing_support::LiveAllocations(), live + 100);
  }
}

// One frame of each type that a client sends. The requests refer to nothing.
std::vector<std::string> GoodFrames() {
  std::vector<std::string> frames = {HelloBytes()};
  const std::string messages[] = {Vrf(1).SerializeAsString(), Vlan(2).SerializeAsString(),
                                  Host(3).SerializeAsString(), Ecmp(4, {}).SerializeAsString(),
                                  MplsOn(5, 0).SerializeAsString()};
  // Two for VRFs, three for VLANs and hosts, two for ECMP groups, three for MPLS destinations.
  constexpr std::size_t kMessages[] = {0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 4, 4, 4};
  for (std::size_t i = 0; i < std::size(kMessages); ++i) {
    frames.push_back(FrameBytes(static_cast<int>(i) + 3, 1, messages[kMessages[i]]));
  }
  for (const int type : {17, 18, 20, 21}) frames.push_back(FrameBytes(type, 1));
  return frames;
}

/// Clients that send anything and then finish sending, beside one that must always be served.
class ServerChangedFramesTest : public testing::Test {
 protected:
  ServerChangedFramesTest() { EXPECT_TRUE(bystander_.Greet()); }

  // Whatever the bytes: the connection ends, one line is logged, and the bystander is served.
  void ExpectOneLine(const std::string& bytes, bool greeted) {
    ++number_;
    const std::string name = "client " + std::to_string(number_) + ": ";
    server_.TakeLines();
    RawClient client(server_.path());
    if (greeted) {
      ASSERT_TRUE(client.Greet());
    }
    client.Send(bytes);
    client.EndSending();
    while (client.Receive()) {
    }
    ASSERT_TRUE(client.Ended());
    std::vector<std::string> lines = server_.TakeLines();
    const bool connected = !lines.empty() && lines.front().rfind(name + '"', 0) == 0;
    if (connected) lines.erase(lines.begin());
    ASSERT_THAT(lines, ElementsAre(StartsWith(name)));
    if (number_ % 50 != 0) return;
    bystander_.Send(20, 2);
    ASSERT_EQ(bystander_.Receive(), (RawFrame{20, 2, ""}));
  }

  TestServer server_;
  RawClient bystander_{server_.path()};
  // The last client's number.
  int number_ = 1;
};

TEST_F(ServerChangedFramesTest, AnyHeaderByte) {
  const int step = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 1 : 17;
  for (const std::string& frame : GoodFrames()) {
    const bool greeted = frame != HelloBytes();
    for (std::size_t place = 0; place < 8; ++place) {
      for (int value = 0; value < 256; value += step) {
        std::string changed = frame;
        changed[place] = static_cast<char>(value);
        SCOPED_TRACE(testing::PrintToString(changed));
        ASSERT_NO_FATAL_FAILURE(ExpectOneLine(changed, greeted));
      }
    }
  }
}

TEST_F(ServerChangedFramesTest, AnyTruncation) {
  for (const std::string& frame : GoodFrames()) {
    const bool greeted = frame != HelloBytes();
    for (std::size_t size = 0; size <= frame.size(); ++size) {
      SCOPED_TRACE(testing::PrintToString(frame.substr(0, size)));
      ASSERT_NO_FATAL_FAILURE(ExpectOneLine(frame.substr(0, size), greeted));
    }
  }
}

TEST_F(ServerChangedFramesTest, RandomBytes) {
  const int rounds = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 10'000 : 1'000;
  std::minstd_rand random(1);
  for (int round = 0; round < rounds; ++round) {
    std::string bytes(random() % 300 + 1, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // Half of the rounds begin with a valid type.
    if (round % 4 < 2) bytes[0] = static_cast<char>(random() % 24 + 1);
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(ExpectOneLine(bytes, round % 2 == 0));
  }
}

}  // namespace
}  // namespace reference
