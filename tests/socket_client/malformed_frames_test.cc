// Thousands of invalid frames, with one mistake each. Every one ends in its log line and the end of
// its connection. The request in flight has its result, the client reconnects, and nothing leaks.
//
// With ZUSKUX_LONG_TESTS=1 in the environment, there are 100,000 frames, and the headers of valid
// frames take every value in every byte, instead of some.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reference/socket_client/socket_hal.h"
#include "tests/hal/recording_results.h"
#include "tests/socket_client/fake_server.h"
#include "tests/socket_client/reported.h"
#include "tests/support/allocations.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;

constexpr std::uint32_t kLimit = 65536;
constexpr std::uint32_t kLastType = 24;
constexpr std::uint32_t kLongestSize = 0xFFFFFFFF;
constexpr std::uint32_t kVlan = 5;

std::string Big(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

// What a server sends, whether after a hello, and the resulting complaint.
struct Malformed {
  bool greeted = false;
  std::string bytes;
  std::string line;
  // The server stops in the middle of the frame.
  bool cut = false;
};

class MalformedFrames {
 public:
  /// `sequence` is that of the request that the client makes after the hello.
  Malformed Next(std::uint32_t sequence) {
    switch (From(0, 11)) {
      case 0:
        return UnknownType();
      case 1:
        return TooLong();
      case 2:
        return BeforeHello();
      case 3:
        return {false, Frame(1, Undecodable()), "HAL server closed, its hello does not decode"};
      case 4:
        return OtherVersion();
      case 5:
        return {true, Frame(1, Bytes(0, 100)),
                "HAL server closed, it sent frame type 1, a second hello"};
      case 6:
        return NotTheServers();
      case 7:
        return ResultOfAnotherSize();
      case 8:
        return ResultForAnotherId(sequence);
      case 9:
        return {true, Frame(20, Bytes(1, 100)),
                "HAL server closed, it sent a heartbeat with a payload"};
      case 10:
        return {true, Frame(19, Undecodable()),
                "HAL server closed, its table summary does not decode"};
      default:
        return Cut();
    }
  }

 private:
  std::uint32_t From(std::uint32_t first, std::uint32_t last) {
    return std::uniform_int_distribution<std::uint32_t>(first, last)(random_);
  }

  std::string Bytes(std::uint32_t least, std::uint32_t most) {
    std::string bytes(From(least, most), '\0');
    for (char& byte : bytes) byte = static_cast<char>(From(0, 0xFF));
    return bytes;
  }

  std::string Header(std::uint32_t type, std::uint32_t size) {
    return Big(type << 24 | From(0, 0xFFFFFF)) + Big(size);
  }

  std::string Frame(std::uint32_t type, const std::string& payload) {
    return Header(type, static_cast<std::uint32_t>(payload.size())) + payload;
  }

  // A varint that does not end.
  std::string Undecodable() { return std::string(From(1, 9), '\xFF'); }

  Malformed UnknownType() {
    // Above the last type, and 0.
    const std::uint32_t type = (From(kLastType, 0xFF) + 1) & 0xFF;
    return {
        From(0, 1) == 1, Header(type, From(0, kLongestSize)) + Bytes(0, 20),
        "HAL server closed, it sent no valid frame: unknown frame type " + std::to_string(type)};
  }

  Malformed TooLong() {
    const std::uint32_t size = From(kLimit + 1, kLongestSize);
    return {From(0, 1) == 1, Header(From(1, kLastType), size),
            "HAL server closed, it sent no valid frame: payload of " + std::to_string(size) +
                " bytes is longer than the limit of 65536"};
  }

  Malformed BeforeHello() {
    const std::uint32_t type = From(3, kLastType);
    return {false, Frame(type, Bytes(0, 100)),
            "HAL server closed, it sent frame type " + std::to_string(type) + " before its hello"};
  }

  Malformed OtherVersion() {
    const std::uint32_t version = From(2, 0x7F);
    return {false, Frame(1, '\x08' + std::string(1, static_cast<char>(version))),
            "HAL server closed, it speaks protocol version " + std::to_string(version) +
                " and this client version 1: update the older one"};
  }

  Malformed NotTheServers() {
    constexpr std::array<std::uint32_t, 7> kTypes = {3, 15, 17, 18, 21, 22, 23};
    const std::uint32_t type = kTypes.at(From(0, kTypes.size() - 1));
    return {true, Frame(type, Bytes(0, 100)),
            "HAL server closed, it sent frame type " + std::to_string(type) +
                ", which no server sends"};
  }

  Malformed ResultOfAnotherSize() {
    const std::string payload = From(0, 1) == 0 ? Bytes(0, 15) : Bytes(273, 400);
    return {true, Frame(16, payload),
            "HAL server closed, it sent a result of " + std::to_string(payload.size()) + " bytes"};
  }

  Malformed ResultForAnotherId(std::uint32_t sequence) {
    const std::uint32_t id = kVlan + From(1, 1000);
    return {
        true, Big(16U << 24 | sequence) + Big(16) + Big(0) + Big(id) + Big(0) + Big(0),
        "HAL server closed, it answered install-vlan 5 with a result for " + std::to_string(id)};
  }

  Malformed Cut() {
    std::string frame = Frame(16, Bytes(1, 100));
    frame.resize(From(1, static_cast<std::uint32_t>(frame.size()) - 1));
    return {true, frame, "HAL server lost: End of file", true};
  }

  std::mt19937 random_{11};
};

/// A client's reports and log. It makes a request whenever it finds a server.
class WatchedClient {
 public:
  explicit WatchedClient(const std::string& path)
      : results_([this](const Result& result) { Add(&reports_, Text(result)); }),
        hal_(Options(path)) {
    hal_.Start({&results_, [this] { InstallVlan(&hal_, kVlan); }, {}});
  }

  /// The log lines, or the results, since the previous call.
  std::vector<std::string> TakeLines() { return Take(&lines_); }
  std::vector<std::string> TakeResults() { return Take(&reports_); }

 private:
  static std::string Text(const Result& result) {
    return result.operation + ' ' + std::to_string(result.id) + ": " + std::to_string(result.code);
  }

  SocketHalOptions Options(const std::string& path) {
    SocketHalOptions options;
    options.path = path;
    options.reconnect_first = milliseconds(0);
    options.reconnect_last = milliseconds(0);
    options.heartbeat = kPatience;
    options.log = [this](LogLevel, const std::string& line) { Add(&lines_, line); };
    return options;
  }

  void Add(std::vector<std::string>* texts, const std::string& text) {
    const std::lock_guard lock(mutex_);
    texts->push_back(text);
  }

  std::vector<std::string> Take(std::vector<std::string>* texts) {
    const std::lock_guard lock(mutex_);
    return std::exchange(*texts, {});
  }

  std::mutex mutex_;
  std::vector<std::string> lines_;
  std::vector<std::string> reports_;
  RecordingResults results_;
  // Last, because it must be destroyed first.
  SocketHal hal_;
};

class ClientMalformedFramesTest : public testing::Test {
 protected:
  void SetUp() override { server_.Accept(); }

  // Sends the frame on the waiting connection. The outcome is known once the next connection waits.
  void ExpectFate(const Malformed& malformed) {
    std::vector<std::string> lines;
    if (malformed.greeted) {
      server_.Greet();
      lines.emplace_back("connected to HAL server fake-hal 1, generation 0x0000000000000007");
      last_line_.clear();
      ++requests_;
    }
    ASSERT_TRUE(server_.Send(malformed.bytes));
    if (malformed.cut) {
      // Reads the request: closing with unread bytes would reset the connection.
      server_.Next();
      server_.Close();
    } else {
      ASSERT_TRUE(server_.AwaitClosed());
    }
    // A repeated failure is logged once.
    if (malformed.line != last_line_) lines.push_back(malformed.line);
    last_line_ = malformed.line;

    server_.Accept();
    ASSERT_THAT(client_.TakeLines(), ElementsAreArray(lines));
    std::vector<std::string> results;
    if (malformed.greeted) results.emplace_back("InstallVlan 5: 100");
    ASSERT_THAT(client_.TakeResults(), ElementsAreArray(results));
  }

  FakeServer server_;
  WatchedClient client_{server_.path()};
  std::string last_line_;
  // How many requests the client has numbered.
  std::uint32_t requests_ = 0;
};

TEST_F(ClientMalformedFramesTest, EachEndsItsConnectionAndLeavesNothing) {
  const int frames = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 100'000 : 2'000;
  MalformedFrames malformed;
  std::ptrdiff_t live = 0;
  for (int frame = 1; frame <= frames; ++frame) {
    SCOPED_TRACE(frame);
    ASSERT_NO_FATAL_FAILURE(ExpectFate(malformed.Next(requests_)));
    // Memory must not grow after the first hundred connections.
    if (frame == 100) live = testing_support::LiveAllocations();
    if (frame < 100) continue;
    ASSERT_LE(testing_support::LiveAllocations(), live + 100);
  }

  server_.Greet();
  server_.Answer(server_.Next());
  EXPECT_TRUE(Eventually([this] {
    const auto results = client_.TakeResults();
    return results == std::vector<std::string>{"InstallVlan 5: 0"};
  }));
}

// One frame of each type that a server sends; the result is that of the first request.
std::vector<std::string> GoodFrames() {
  const auto frame = [](std::uint32_t type, const std::string& payload) {
    return Big(type << 24) + Big(static_cast<std::uint32_t>(payload.size())) + payload;
  };
  return {HelloFrame(),
          frame(2, "bye"),
          frame(16, Big(0) + Big(kVlan) + Big(0) + Big(0)),
          frame(19, "\x0A\x06\x0A\x04vlan"),
          frame(20, ""),
          frame(24, "\x0A\x04\x10\x05\x18\x09")};
}

/// Servers that close the connection, whatever they sent.
class ClientChangedFramesTest : public testing::Test {
 protected:
  void SetUp() override { server_.Accept(); }

  // For any bytes: the connection ends, one line is logged, and the request has one result.
  void ExpectOneLineAndOneResult(const std::string& bytes) {
    server_.Greet();
    server_.Next();
    server_.Send(bytes);
    server_.Close();
    server_.Accept();
    ASSERT_THAT(client_.TakeLines(),
                ElementsAre(StartsWith("connected to HAL server"), StartsWith("HAL server ")));
    ASSERT_THAT(client_.TakeResults(), ElementsAre(StartsWith("InstallVlan 5: ")));
  }

  FakeServer server_;
  WatchedClient client_{server_.path()};
};

TEST_F(ClientChangedFramesTest, AnyHeaderByte) {
  const int step = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 1 : 5;
  for (const std::string& frame : GoodFrames()) {
    for (std::size_t place = 0; place < 8; ++place) {
      for (int value = 0; value < 256; value += step) {
        std::string changed = frame;
        changed[place] = static_cast<char>(value);
        SCOPED_TRACE(testing::PrintToString(changed));
        ASSERT_NO_FATAL_FAILURE(ExpectOneLineAndOneResult(changed));
      }
    }
  }
}

TEST_F(ClientChangedFramesTest, AnyTruncation) {
  for (const std::string& frame : GoodFrames()) {
    for (std::size_t size = 0; size <= frame.size(); ++size) {
      SCOPED_TRACE(testing::PrintToString(frame.substr(0, size)));
      ASSERT_NO_FATAL_FAILURE(ExpectOneLineAndOneResult(frame.substr(0, size)));
    }
  }
}

TEST_F(ClientChangedFramesTest, RandomBytes) {
  const int rounds = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 10'000 : 1'000;
  std::minstd_rand random(1);
  for (int round = 0; round < rounds; ++round) {
    std::string bytes(random() % 300 + 1, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // Half of the rounds begin with a valid type.
    if (round % 2 == 0) bytes[0] = static_cast<char>(random() % 24 + 1);
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(ExpectOneLineAndOneResult(bytes));
  }
}

}  // namespace
}  // namespace reference
