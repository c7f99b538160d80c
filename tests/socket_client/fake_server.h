#ifndef ZUSKUX_TESTS_SOCKET_CLIENT_FAKE_SERVER_H_
#define ZUSKUX_TESTS_SOCKET_CLIENT_FAKE_SERVER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "reference/wire/frame.h"
#include "tests/support/gate.h"
#include "tests/support/test_folder.h"
#include "wire.pb.h"

namespace reference {

/// A folder for the socket, removed on destruction.
class SocketFolder {
 public:
  std::string path() const { return folder_.Path("hal.sock"); }

 private:
  TestFolder folder_;
};

/// A HAL server that the test controls step by step; one client at a time. Anything that does not
/// arrive in time fails the test.
class FakeServer {
 public:
  struct Frame {
    FrameType type{};
    std::uint32_t sequence = 0;
    std::string payload;
  };

  /// Listens.
  FakeServer();
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;
  ~FakeServer();

  std::string path() const { return folder_.path(); }

  void Listen() { ListenAt(path()); }
  /// Listens at another path, so that the test can move the socket.
  void ListenAt(const std::string& path) {
    BindAt(path);
    StartListening();
  }
  /// The two steps of listening: until the second, clients are refused.
  void BindAt(const std::string& path);
  void StartListening() const;
  /// Nobody can connect until `Listen`.
  void StopListening();

  /// Accepts the next client, replacing the previous one, and reads its hello.
  void Accept();
  /// Sends a valid hello.
  void Greet(std::uint32_t max_payload = kDefaultMaxPayload);
  void AcceptAndGreet() {
    Accept();
    Greet();
  }
  void Close();
  /// The client's hello.
  const wire::Hello& hello() const { return hello_; }

  /// The next frame, skipping heartbeats.
  Frame Next();
  /// Whether bytes of a further frame arrive, or have arrived, within the time.
  bool HasInput(std::chrono::milliseconds time);
  /// The next frame of any type.
  Frame NextOfAny();
  /// Sends a result for the request.
  void Answer(const Frame& request, std::uint32_t code = 0, std::string_view reason = {});
  /// Sends bytes; false if the client has closed the connection.
  bool Send(std::string_view bytes) const;
  void SendFrame(FrameType type, std::uint32_t sequence, std::string_view payload) const;
  /// Waits until the client has closed the connection; drops whatever it sent before.
  bool AwaitClosed();
  /// The frames that arrive until the client closes the connection.
  std::vector<Frame> FramesToEnd();

 private:
  SocketFolder folder_;
  int listener_ = -1;
  int client_ = -1;
  wire::Hello hello_;
  std::unique_ptr<FrameSplitter> splitter_;
  // Bytes of frames that were received but not returned yet.
  std::size_t unread_ = 0;
};

/// A hello as a frame.
std::string HelloFrame(std::uint32_t version = kProtocolVersion,
                       std::uint32_t max_payload = kDefaultMaxPayload,
                       std::uint32_t minor_version = kProtocolMinorVersion);

/// The id in one of the tests' requests.
std::uint32_t IdIn(const FakeServer::Frame& request);

}  // namespace reference

#endif  // ZUSKUX_TESTS_SOCKET_CLIENT_FAKE_SERVER_H_
