// A client that sends any bytes to the HAL server's side of a connection. The answers are a valid
// stream in which every request has exactly one result, and the session ends with its client.
//
// Input: flags (1 byte), the bytes. Bit 0 puts a valid hello before them; bits 1 to 3 choose into
// how many writes the client splits it all.

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/connect_pair.hpp>
#include <boost/asio/write.hpp>
#include <map>
#include <memory>
#include <string>

#include "reference/server/session.h"
#include "reference/wire/frame.h"
#include "tests/fuzz/fuzz_input.h"
#include "wire.pb.h"

namespace {

using fuzz::Check;
using reference::FrameSplitter;
using reference::FrameType;
using reference::ServerState;
using reference::Session;

constexpr std::size_t kMaxPayload = 1024;
constexpr std::uint64_t kNumber = 1;

reference::HalServerOptions Options() {
  reference::HalServerOptions options;
  options.table_capacity = 8;
  options.max_payload = kMaxPayload;
  options.max_unsent = 4096;
  options.log = [](reference::LogLevel, const std::string& line) {
    Check(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }),
          "an unsafe character is logged");
  };
  return options;
}

std::string Hello() {
  wire::Hello hello;
  hello.set_protocol_version(reference::kProtocolVersion);
  hello.set_program("fuzzer");
  std::string frame;
  AppendFrame(FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

// How many results the client may expect, by sequence.
using Results = std::map<std::uint32_t, int>;

// The requests in what the client sent, up to its first mistake or the end.
Results Requests(std::string_view sent) {
  Results results;
  FrameSplitter splitter(kMaxPayload);
  splitter.Feed(sent);
  bool greeted = false;
  try {
    while (const auto frame = splitter.Next()) {
      const FrameType type = frame->header.type;
      if (greeted && IsRequest(type)) {
        ++results[frame->header.sequence];
      } else if (greeted == (type == FrameType::kHello)) {
        break;
      }
      greeted = true;
    }
  } catch (const reference::ProtocolError&) {
    // The first mistake.
  }
  return results;
}

// The server's answers.
class Answers {
 public:
  void Take(std::string_view bytes) {
    splitter_.Feed(bytes);
    // An invalid stream is an exception, which the fuzzer reports.
    while (const auto frame = splitter_.Next()) Take(*frame);
  }

  const Results& results() const { return results_; }
  bool refused() const { return refused_; }

 private:
  void Take(const FrameSplitter::Frame& frame) {
    Check(!refused_, "a frame after the goodbye");
    const FrameType type = frame.header.type;
    Check(type != FrameType::kBeginReinstall && type != FrameType::kEndReinstall &&
              type != FrameType::kReadTables && !IsRequest(type),
          "a frame that only clients send");
    if (type == FrameType::kResult) ++results_[frame.header.sequence];
    refused_ = type == FrameType::kGoodbye;
  }

  FrameSplitter splitter_{2 * kMaxPayload};
  Results results_;
  bool refused_ = false;
};

// The server, kept across inputs: creating it would dominate the run time.
struct Server {
  boost::asio::io_context io{1};
  const std::shared_ptr<ServerState> state = std::make_shared<ServerState>(Options());
};

// A session and its client, on one thread.
class Conversation {
 public:
  explicit Conversation(Server* server)
      : io_(&server->io), state_(server->state), server_(*io_), client_(*io_) {
    state_->tables.Clear();
    boost::asio::local::connect_pair(server_, client_);
    client_.non_blocking(true);
    const auto session = std::make_shared<Session>(std::move(server_), state_, kNumber, Fate());
    state_->sessions.emplace(kNumber, session);
    session->Start();
  }

  void Send(std::string_view bytes, std::size_t write_size) {
    while (!bytes.empty()) {
      boost::system::error_code error;
      const std::size_t sent = client_.write_some(
          boost::asio::buffer(bytes.data(), std::min(write_size, bytes.size())), error);
      if (error && error != boost::asio::error::would_block) break;
      bytes.remove_prefix(sent);
      Work();
    }
    boost::system::error_code ignored;
    client_.shutdown(Session::Socket::shutdown_send, ignored);
    while (Work()) continue;
  }

  // Closes the client's side. Returns whether the session ends with it.
  bool End() {
    client_.close();
    while (Poll() != 0) continue;
    return state_->sessions.empty();
  }

  const Answers& answers() const { return answers_; }

 private:
  static reference::ServerFaults::ConnectionFate Fate() { return {}; }

  std::size_t Poll() {
    io_->restart();
    return io_->poll();
  }

  // Whether anything happened.
  bool Work() {
    bool worked = Poll() != 0;
    boost::system::error_code error;
    while (const std::size_t size = client_.read_some(boost::asio::buffer(input_), error)) {
      answers_.Take({input_.data(), size});
      worked = true;
    }
    return worked;
  }

  boost::asio::io_context* const io_;
  const std::shared_ptr<ServerState> state_;
  Session::Socket server_;
  Session::Socket client_;
  std::array<char, 4096> input_;
  Answers answers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string hello = Hello();
  static Server server;
  fuzz::Input input(data, size);
  const std::uint8_t flags = input.Byte();
  std::string bytes = (flags & 1) != 0 ? hello : std::string();
  bytes += input.Rest();

  const std::size_t writes = ((flags >> 1) & 7U) + 1U;

  Conversation conversation(&server);
  conversation.Send(bytes, bytes.size() / writes + 1);
  const Results requests = Requests(bytes);
  for (const auto& [sequence, count] : conversation.answers().results()) {
    const auto request = requests.find(sequence);
    Check(request != requests.end() && count <= request->second, "one result too many");
  }
  if (!conversation.answers().refused()) {
    Check(conversation.answers().results() == requests, "a request without its result");
  }
  Check(conversation.End(), "the session outlives its client");
  return 0;
}
