#ifndef ZUSKUX_TESTS_SERVER_RAW_CLIENT_H_
#define ZUSKUX_TESTS_SERVER_RAW_CLIENT_H_

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace reference {

/// A frame, received or expected. Written without the code under test.
struct RawFrame {
  int type = 0;
  std::uint32_t sequence = 0;
  std::string payload;
  /// For a result: how long the server had the request. Excluded from `payload` and from
  /// comparisons.
  std::uint32_t hal_ns = 0;
};

inline bool operator==(const RawFrame& a, const RawFrame& b) {
  return std::tie(a.type, a.sequence, a.payload) == std::tie(b.type, b.sequence, b.payload);
}

inline std::ostream& operator<<(std::ostream& out, const RawFrame& frame) {
  return out << "type " << frame.type << " sequence " << frame.sequence << " payload "
             << ::testing::PrintToString(frame.payload);
}

/// 4 bytes, big-endian.
inline std::string Big(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

inline std::string FrameBytes(int type, std::uint32_t sequence, std::string_view payload = {}) {
  return Big(static_cast<std::uint32_t>(type) << 24 | sequence) +
         Big(static_cast<std::uint32_t>(payload.size())) + std::string(payload);
}

/// A client's hello of protocol version 1, minor version 0, from the program "test".
inline std::string HelloBytes() { return FrameBytes(1, 0, "\x08\x01\x12\x04test"); }

/// The same of another minor version, up to 127.
inline std::string HelloBytes(char minor_version) {
  return FrameBytes(1, 0, std::string("\x08\x01\x12\x04test\x30") + minor_version);
}

/// A result frame as compared.
inline RawFrame Result(std::uint32_t sequence, std::uint32_t code, std::uint32_t id,
                       std::uint32_t secondary_id = 0, const std::string& reason = {}) {
  return {16, sequence, Big(code) + Big(id) + Big(secondary_id) + reason};
}

/// A client that sends any bytes and waits for the answers, on the test's thread. Every wait ends
/// after 5 seconds.
class RawClient {
 public:
  /// Connects; throws std::runtime_error on failure.
  explicit RawClient(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      close(socket_);
      throw std::runtime_error("cannot connect to " + path);
    }
  }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  ~RawClient() { close(socket_); }

  /// Sends all bytes. Returns whether the server accepted them within 5 seconds.
  bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::size_t sent = SendSome(bytes, kTimeout);
      if (sent == 0) return false;
      bytes.remove_prefix(sent);
    }
    return true;
  }

  /// Sends until everything is sent or the server accepts nothing for `patience`. Returns the
  /// number of bytes sent.
  std::size_t SendWhileTaken(std::string_view bytes, std::chrono::milliseconds patience) {
    std::size_t total = 0;
    while (total < bytes.size()) {
      const std::size_t sent = SendSome(bytes.substr(total), patience);
      if (sent == 0) break;
      total += sent;
    }
    return total;
  }

  bool Send(int type, std::uint32_t sequence, std::string_view payload = {}) {
    return Send(FrameBytes(type, sequence, payload));
  }

  /// Sends a hello. Returns the server's frame.
  std::optional<RawFrame> Greet(const std::string& hello = HelloBytes()) {
    Send(hello);
    return Receive();
  }

  /// The next frame; nothing if the connection ended or no whole frame arrived.
  std::optional<RawFrame> Receive() {
    const std::string header = ReceiveBytes(8);
    if (header.size() < 8) return std::nullopt;
    RawFrame frame;
    frame.type = static_cast<unsigned char>(header[0]);
    frame.sequence = Number(header, 0) & 0xFFFFFF;
    const std::uint32_t size = Number(header, 4);
    frame.payload = ReceiveBytes(size);
    if (frame.payload.size() < size) return std::nullopt;
    if (frame.type == 16 && size >= 16) {
      frame.hal_ns = Number(frame.payload, 12);
      frame.payload.erase(12, 4);
    }
    return frame;
  }

  /// The next frames; fewer if they do not arrive.
  std::vector<RawFrame> ReceiveFrames(std::size_t count) {
    std::vector<RawFrame> frames;
    while (frames.size() < count) {
      auto frame = Receive();
      if (!frame) break;
      frames.push_back(std::move(*frame));
    }
    return frames;
  }

  /// The next bytes; fewer if they do not arrive.
  std::string ReceiveBytes(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
      if (!WaitFor(POLLIN, kTimeout)) break;
      std::string piece(size - bytes.size(), '\0');
      const ssize_t received = recv(socket_, piece.data(), piece.size(), 0);
      if (received <= 0) break;
      bytes.append(piece, 0, static_cast<std::size_t>(received));
    }
    return bytes;
  }

  /// Whether data, or the end, arrives within the time.
  bool IsReadable(std::chrono::milliseconds time) { return WaitFor(POLLIN, time); }

  /// Whether the connection ends without any more data.
  bool Ended() {
    char byte = 0;
    return WaitFor(POLLIN, kTimeout) && recv(socket_, &byte, 1, 0) <= 0;
  }

  /// Shuts down the sending side.
  void EndSending() { shutdown(socket_, SHUT_WR); }

 private:
  static constexpr std::chrono::milliseconds kTimeout{5'000};

  static std::uint32_t Number(const std::string& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
      number = number << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return number;
  }

  bool WaitFor(short events, std::chrono::milliseconds time) const {
    pollfd wait{socket_, events, 0};
    return poll(&wait, 1, static_cast<int>(time.count())) == 1;
  }

  std::size_t SendSome(std::string_view bytes, std::chrono::milliseconds patience) {
    if (!WaitFor(POLLOUT, patience)) return 0;
    const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent > 0 ? static_cast<std::size_t>(sent) : 0;
  }

  int socket_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SERVER_RAW_CLIENT_H_
