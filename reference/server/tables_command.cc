#include "reference/server/tables_command.h"

#include <array>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/endian/conversion.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <initializer_list>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "base_encap_message.pb.h"
#include "reference/wire/frame.h"

namespace reference {
namespace {

using boost::asio::local::stream_protocol;

constexpr std::chrono::seconds kTimeout{10};
// More than any server takes, with what precedes the message of an entry.
constexpr std::size_t kMaxPayload = std::size_t{128} * 1024 * 1024;
constexpr std::size_t kEntryHeaderSize = 5;

// A conversation that waits for each answer, for as long as the timeout.
class Conversation {
 public:
  explicit Conversation(const std::string& path) : path_(path), splitter_(kMaxPayload) {
    stream_.expires_after(kTimeout);
    try {
      stream_.connect(stream_protocol::endpoint(path));
    } catch (const boost::system::system_error& error) {
      // The address does not hold every path.
      Fail("cannot connect: " + error.code().message());
    }
    if (!stream_) Fail("cannot connect: " + stream_.error().message());
  }

  void Send(FrameType type, std::string_view payload) {
    std::string frame;
    AppendFrame(type, 0, payload, &frame);
    stream_.write(frame.data(), static_cast<std::streamsize>(frame.size())).flush();
  }

  // The next frame, which has to be of a type that is awaited. Valid until the next call.
  FrameSplitter::Frame Receive(std::initializer_list<FrameType> awaited) {
    stream_.expires_after(kTimeout);
    auto frame = splitter_.Next();
    while (!frame) {
      if (!splitter_.error().empty()) Fail("its answer is no frame: " + splitter_.error());
      ReadSome();
      frame = splitter_.Next();
    }
    if (frame->header.type == FrameType::kGoodbye) Fail("it says " + std::string(frame->payload));
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
                             "; check that zuskux-hal runs and that --socket is its path");
  }

 private:
  void ReadSome() {
    // Waits for one byte, then takes what came with it.
    if (stream_.peek() == std::char_traits<char>::eof()) {
      const bool closed = stream_.error() == boost::asio::error::eof || !stream_.error();
      Fail(closed ? "it closed the connection" : "no answer: " + stream_.error().message());
    }
    std::array<char, 4096> bytes{};
    const auto size = stream_.readsome(bytes.data(), bytes.size());
    splitter_.Feed({bytes.data(), static_cast<std::size_t>(size)});
  }

  const std::string path_;
  stream_protocol::iostream stream_;
  FrameSplitter splitter_;
};

template <typename Message>
std::string Show(const std::string& serialised) {
  Message message;
  message.ParseFromString(serialised);
  return message.ShortDebugString();
}

std::string Show(HalKind kind, const std::string& serialised) {
  using Shower = std::string (*)(const std::string& serialised);
  static constexpr std::array<Shower, kHalKinds> kShowers = {
      Show<encapsulation::VrfMessage>,  Show<encapsulation::VlanMessage>,
      Show<encapsulation::HostMessage>, Show<encapsulation::EcmpMessage>,
      Show<encapsulation::MplsMessage>,
  };
  return kShowers.at(static_cast<std::size_t>(kind))(serialised);
}

std::string Hex(std::uint64_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(16) << std::setfill('0') << number;
  return text.str();
}

}  // namespace

ServerContents ReadServerContents(const std::string& path) {
  Conversation server(path);
  wire::Hello hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_program("zuskux-hal tables");
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
    contents.entries.emplace(std::pair(static_cast<HalKind>(payload[0]), id),
                             payload.substr(kEntryHeaderSize));
  }
}

void PrintAsText(const ServerContents& contents, std::ostream& out) {
  const wire::ServerStatus& status = contents.status;
  out << "generation " << Hex(status.generation()) << ", up " << status.uptime_ms() << " ms, "
      << status.requests() << " requests, " << status.connections() << " connections, "
      << status.refused_connections() << " refused\n";
  std::string_view separator;
  for (const wire::KindSummary& kind : status.kinds()) {
    out << separator << kind.kind() << ' ' << kind.count();
    separator = ", ";
  }
  out << '\n';
  for (const auto& [key, message] : contents.entries) {
    out << HalKindName(key.first) << ' ' << key.second << ": " << Show(key.first, message) << '\n';
  }
}

void PrintAsJson(const ServerContents& contents, std::ostream& out) {
  const wire::ServerStatus& status = contents.status;
  nlohmann::ordered_json json;
  json["generation"] = Hex(status.generation());
  json["uptime_ms"] = status.uptime_ms();
  json["requests"] = status.requests();
  json["connections"] = status.connections();
  json["refused_connections"] = status.refused_connections();
  nlohmann::ordered_json& tables = json["tables"];
  for (const wire::KindSummary& kind : status.kinds()) {
    tables[kind.kind()] = {{"count", kind.count()},
                           {"digest", Hex(kind.digest())},
                           {"entries", nlohmann::ordered_json::array()}};
  }
  for (const auto& [key, message] : contents.entries) {
    tables[std::string(HalKindName(key.first))]["entries"].push_back(
        {{"id", key.second}, {"message", Show(key.first, message)}});
  }
  out << json.dump(2) << '\n';
}

}  // namespace reference
