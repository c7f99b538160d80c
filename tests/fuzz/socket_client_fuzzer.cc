// A server that sends any bytes to the HAL client: every request that the client took ends in one
// result, whatever the server says and wherever it stops, and what is logged of it is printable.
//
// Input: flags (1 byte), the bytes: bit 0 puts a valid hello before them, bits 1 to 3 are the
// number of requests.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"
#include "tests/fuzz/fuzz_input.h"
#include "wire.pb.h"
#include "zuskux/ecmp_encapsulation_message.h"

namespace {

namespace asio = boost::asio;
using fuzz::Check;
using Protocol = asio::local::stream_protocol;

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::hours kNever{1};

// Takes the results of ECMP groups, the only ones that are asked for.
class Results : public HalL3MplsEncapsulationClientCallbackItf {
 public:
  // Waits until there are `count`.
  bool Wait(std::size_t count) {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, kPatience, [&] { return count_ >= count; });
  }

  std::map<unsigned int, int> by_id() {
    const std::lock_guard lock(mutex_);
    return by_id_;
  }

  void InstallEcmpEncapResCallback(ReturnCode /*code*/, unsigned int db_id) override {
    const std::lock_guard lock(mutex_);
    ++by_id_[db_id];
    ++count_;
    arrived_.notify_all();
  }

  void InitEncapsulationModuleResCallback(ReturnCode /*code*/) override { Unexpected(); }
  void InstallVlanOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void InstallHostOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void DestroyHostOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode, unsigned int) override {
    Unexpected();
  }
  void DestroyEcmpEncapResCallback(ReturnCode, unsigned int) override { Unexpected(); }
  void InstallMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode, unsigned int,
                                                              unsigned int) override {
    Unexpected();
  }
  void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode, unsigned int,
                                                              unsigned int) override {
    Unexpected();
  }
  void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode, unsigned int,
                                                              unsigned int) override {
    Unexpected();
  }

 private:
  static void Unexpected() { Check(false, "a result of another operation"); }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::size_t count_ = 0;
  std::map<unsigned int, int> by_id_;
};

// Where the client connects to: a name that needs no file.
struct Listener {
  asio::io_context io{1};
  std::string path = std::string(1, '\0') + "zuskux-fuzz-" + std::to_string(::getpid());
  Protocol::acceptor acceptor{io, Protocol::endpoint(path)};
};

reference::SocketHalOptions Options(const std::string& path) {
  reference::SocketHalOptions options;
  options.path = path;
  // One conversation, without a clock.
  options.reconnect_first = kNever;
  options.reconnect_last = kNever;
  options.heartbeat = kNever;
  options.deadline = kNever;
  options.log = [](const std::string& line) {
    Check(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }),
          "a character that no terminal should get is logged");
  };
  return options;
}

std::string Hello() {
  wire::Hello hello;
  hello.set_protocol_version(reference::kProtocolVersion);
  hello.set_program("fuzzer");
  hello.set_max_payload(static_cast<std::uint32_t>(reference::kDefaultMaxPayload));
  std::string frame;
  AppendFrame(reference::FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

// Sends all of `bytes` and reads until the client has closed its side.
void Serve(Protocol::socket* client, std::string_view bytes) {
  boost::system::error_code error;
  asio::write(*client, asio::buffer(bytes.data(), bytes.size()), error);
  client->shutdown(Protocol::socket::shutdown_send, error);
  std::array<char, 4096> sink;
  while (true) {
    ::pollfd readable{client->native_handle(), POLLIN, 0};
    const auto patience = std::chrono::milliseconds(kPatience).count();
    Check(::poll(&readable, 1, static_cast<int>(patience)) == 1, "the client does not close");
    client->read_some(asio::buffer(sink), error);
    if (error) return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string hello = Hello();
  static Listener listener;
  fuzz::Input input(data, size);
  const std::uint8_t flags = input.Byte();
  std::string bytes = (flags & 1) != 0 ? hello : std::string();
  bytes += input.Rest();
  const unsigned int requests = (flags >> 1) & 7;

  Results results;
  reference::SocketHal hal(Options(listener.path));
  hal.BeginReinstall();
  for (unsigned int id = 1; id <= requests; ++id) {
    EcmpEncapsulationMessage message;
    message.encap()->set_db_id(id);
    hal.InstallEcmpEncap(&message);
  }
  hal.EndReinstall();
  hal.Start({&results, {}, {}});
  Protocol::socket client = listener.acceptor.accept();
  Serve(&client, bytes);

  Check(results.Wait(requests), "a request without a result");
  for (const auto& [id, count] : results.by_id()) {
    Check(id >= 1 && id <= requests, "a result that nobody asked for");
    Check(count == 1, "more than one result");
  }
  return 0;
}
