#include "reference/socket_client/server_contents.h"

#include <algorithm>
#include <array>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/endian/conversion.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "reference/text/printable.h"
#include "reference/wire/frame.h"

namespace reference {
namespace {

using boost::asio::local::stream_protocol;

// More than any server sends, including what precedes the message of an entry.
constexpr std::size_t kMaxPayload = std::size_t{128} * 1024 * 1024;
constexpr std::size_t kEntryHeaderSize = 5;

using Clock = std::chrono::steady_clock;

// A conversation that waits for each answer, within limits.
class Conversation {
 public:
  Conversation(const std::string& path, const ReadLimits& limits)
      : path_(path),
        limits_(limits),
        end_(Clock::now() + limits.time),
        splitter_(std::min(kMaxPayload, limits.bytes)) {
    stream_.expires_after(limits_.silence);
    try {
      stream_.connect(stream_protocol::endpoint(path));
    } catch (const boost::system::system_error& error) {
      // A socket address cannot hold every path.
      Fail("cannot connect: " + error.code().message());
    }
    if (!stream_) Fail("cannot connect: " + stream_.error().message());
  }

  void Send(FrameType type, std::string_view payload) {
    std::string frame;
    AppendFrame(type, 0, payload, &frame);
    stream_.write(frame.data(), static_cast<std::streamsize>(frame.size())).flush();
  }

  // Returns the next frame, which must be of an expected type. Valid until the next call.
  FrameSplitter::Frame Receive(std::initializer_list<FrameType> awaited) {
    stream_.expires_after(limits_.silence);
    auto frame = NextFrame();
    for (; !frame; frame = NextFrame()) ReadSome();
    Count(*frame);
    if (frame->header.type == FrameType::kGoodbye) {
      Fail("it says " + Printable(frame->payload, kMaxForeignText));
    }
    for (const FrameType type : awaited) {
      if (frame->header.type == type) return *frame;
    }
    Fail("it answers with a frame of type " + std::to_string(static_cast<int>(frame->header.type)));
  }

  template <typename Message>
  Message Parse(const FrameSplitter::Frame& frame) const {
    Message message;
    if (!message.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()))) {
      Fail("its answer does not decode");
    }
    return message;
  }

  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error("the HAL server on " + path_ + ": " + what +
                             "; check that zuskux-hal runs and that this is its socket");
  }

 private:
  std::optional<FrameSplitter::Frame> NextFrame() {
    try {
      return splitter_.Next();
    } catch (const ProtocolError& error) {
      Fail(std::string("its answer is not a frame: ") + error.what());
    }
  }

  void Count(const FrameSplitter::Frame& frame) {
    bytes_ += frame.whole.size();
    if (frame.header.type == FrameType::kTableEntry) ++entries_;
    if (entries_ > limits_.entries) {
      Fail("it sends more than " + std::to_string(limits_.entries) + " table entries");
    }
    if (bytes_ > limits_.bytes) {
      Fail("it sends more than " + std::to_string(limits_.bytes) + " bytes");
    }
    if (Clock::now() > end_) {
      Fail("it has not sent its tables within " + std::to_string(limits_.time.count()) + " ms");
    }
  }

  void ReadSome() {
    // Blocks for one byte, then takes everything that arrived with it.
    if (stream_.peek() == std::char_traits<char>::eof()) {
      const bool closed = stream_.error() == boost::asio::error::eof || !stream_.error();
      Fail(closed ? "it closed the connection" : "no answer: " + stream_.error().message());
    }
    std::array<char, 4096> bytes{};
    const auto size = stream_.readsome(bytes.data(), bytes.size());
    splitter_.Feed({bytes.data(), static_cast<std::size_t>(size)});
  }

  const std::string path_;
  const ReadLimits limits_;
  const Clock::time_point end_;
  std::size_t entries_ = 0;
  std::size_t bytes_ = 0;
  stream_protocol::iostream stream_;
  FrameSplitter splitter_;
};

}  // namespace

ServerContents ReadServerContents(const std::string& path, const std::string& program,
                                  const ReadLimits& limits) {
  Conversation server(path, limits);
  wire::Hello hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_program(program);
  server.Send(FrameType::kHello, hello.SerializeAsString());
  server.Receive({FrameType::kHello});
  server.Send(FrameType::kReadTables, {});

  ServerContents contents;
  while (true) {
    const auto frame = server.Receive({FrameType::kTableEntry, FrameType::kTableEnd});
    if (frame.header.type == FrameType::kTableEnd) {
      contents.status = server.Parse<wire::ServerStatus>(frame);
      return contents;
    }
    const std::string_view payload = frame.payload;
    if (payload.size() < kEntryHeaderSize || static_cast<unsigned char>(payload[0]) >= kHalKinds) {
      server.Fail("its answer does not decode");
    }
    const std::uint32_t id =
        boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(payload.data()) + 1);
    contents.entries.insert_or_assign(std::pair(static_cast<HalKind>(payload[0]), id),
                                      payload.substr(kEntryHeaderSize));
  }
}

}  // namespace reference
