#include "tests/socket_client/fake_server.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base_encap_message.pb.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"

namespace reference {
namespace {

bool AwaitReadable(int fd) {
  pollfd waiting{fd, POLLIN, 0};
  const auto patience = std::chrono::milliseconds(kPatience).count();
  return poll(&waiting, 1, static_cast<int>(patience)) == 1;
}

}  // namespace

FakeServer::FakeServer() { Listen(); }

FakeServer::~FakeServer() {
  Close();
  StopListening();
}

void FakeServer::BindAt(const std::string& path) {
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

void FakeServer::StartListening() const { ASSERT_EQ(listen(listener_, 8), 0); }

void FakeServer::StopListening() {
  if (listener_ != -1) close(listener_);
  listener_ = -1;
  unlink(path().c_str());
}

void FakeServer::Accept() {
  Close();
  ASSERT_TRUE(AwaitReadable(listener_)) << "nobody connects";
  client_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  ASSERT_NE(client_, -1);
  splitter_ = std::make_unique<FrameSplitter>(std::size_t{1} << 24);
  unread_ = 0;
  const Frame frame = NextOfAny();
  EXPECT_EQ(frame.type, FrameType::kHello);
  EXPECT_TRUE(hello_.ParseFromString(frame.payload));
  EXPECT_EQ(hello_.protocol_version(), kProtocolVersion);
}

void FakeServer::Greet(std::uint32_t max_payload) {
  Send(HelloFrame(kProtocolVersion, max_payload));
}

void FakeServer::Close() {
  if (client_ != -1) close(client_);
  client_ = -1;
}

FakeServer::Frame FakeServer::Next() {
  Frame frame = NextOfAny();
  while (frame.type == FrameType::kHeartbeat) frame = NextOfAny();
  return frame;
}

bool FakeServer::HasInput(std::chrono::milliseconds time) {
  pollfd waiting{client_, POLLIN, 0};
  return unread_ != 0 || poll(&waiting, 1, static_cast<int>(time.count())) == 1;
}

FakeServer::Frame FakeServer::NextOfAny() {
  std::array<char, 4096> bytes{};
  while (true) {
    if (const auto frame = splitter_->Next()) {
      unread_ -= frame->whole.size();
      return {frame->header.type, frame->header.sequence, std::string(frame->payload)};
    }
    if (!AwaitReadable(client_)) {
      ADD_FAILURE() << "no frame in time";
      return {};
    }
    const ssize_t size = read(client_, bytes.data(), bytes.size());
    if (size <= 0) {
      ADD_FAILURE() << "the client closed the connection";
      return {};
    }
    splitter_->Feed({bytes.data(), static_cast<std::size_t>(size)});
    unread_ += static_cast<std::size_t>(size);
  }
}

void FakeServer::Answer(const Frame& request, std::uint32_t code, std::string_view reason) {
  std::string frame;
  AppendResult(request.sequence, {HalReturnCode{code}, IdIn(request), 0, {}, reason}, &frame);
  Send(frame);
}

void FakeServer::SendFrame(FrameType type, std::uint32_t sequence, std::string_view payload) const {
  std::string frame;
  AppendFrame(type, sequence, payload, &frame);
  Send(frame);
}

bool FakeServer::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t size = send(client_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (size < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

bool FakeServer::AwaitClosed() {
  std::array<char, 4096> bytes{};
  while (AwaitReadable(client_)) {
    const ssize_t size = read(client_, bytes.data(), bytes.size());
    if (size == 0 || (size < 0 && errno == ECONNRESET)) return true;
  }
  return false;
}

std::vector<FakeServer::Frame> FakeServer::FramesToEnd() {
  std::vector<Frame> frames;
  std::array<char, 4096> bytes{};
  while (true) {
    while (const auto frame = splitter_->Next()) {
      frames.push_back({frame->header.type, frame->header.sequence, std::string(frame->payload)});
    }
    if (!AwaitReadable(client_)) {
      ADD_FAILURE() << "the client keeps the connection";
      return frames;
    }
    const ssize_t size = read(client_, bytes.data(), bytes.size());
    if (size <= 0) return frames;
    splitter_->Feed({bytes.data(), static_cast<std::size_t>(size)});
  }
}

std::string HelloFrame(std::uint32_t version, std::uint32_t max_payload,
                       std::uint32_t minor_version) {
  wire::Hello hello;
  hello.set_protocol_version(version);
  hello.set_protocol_minor_version(minor_version);
  hello.set_program("fake-hal 1");
  hello.set_generation(7);
  hello.set_table_capacity(1000);
  hello.set_max_payload(max_payload);
  std::string frame;
  AppendFrame(FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

std::uint32_t IdIn(const FakeServer::Frame& request) {
  if (!IsRequest(request.type)) return 0;
  return VisitKind(KindOf(static_cast<HalOperation>(request.type)), [&request](auto row) {
    typename decltype(row)::Message message;
    EXPECT_TRUE(message.ParseFromString(request.payload));
    return row.Id(message).value_or(0);
  });
}

}  // namespace reference
