// A server that sends any bytes to the HAL client. Every request that the client accepted ends in
// one result, whatever the server sends and wherever it stops. The client sends a valid stream,
// logs only printable text, and comes back for the next conversation.
//
// The client is kept across inputs, because creating its thread takes longer than a conversation.
// Inputs therefore number requests from 0, relative to the kept client's own numbers.
//
// Input: flags (1 byte), the bytes. Bit 0 puts a valid hello before them; bits 1 to 3 are the
// number of requests that the client makes once it has found the server. If bits 4 to 7 are all
// set, a new client makes that many requests before it starts.

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"
#include "tests/fuzz/fuzz_input.h"
#include "wire.pb.h"
#include "zuskux/ecmp_encapsulation_message.h"

namespace {

namespace asio = boost::asio;
using fuzz::Check;
using reference::FrameSplitter;
using reference::FrameType;
using Protocol = asio::local::stream_protocol;

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::hours kNever{1};

// Receives the results of ECMP groups; only these are requested.
class Results : public HalL3MplsEncapsulationClientCallbackItf {
 public:
  // Waits for `count` results. Returns how many each id had since the previous call.
  std::map<unsigned int, int> Take(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, kPatience, [&] { return count_ >= count; });
    count_ = 0;
    return std::exchange(by_id_, {});
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

reference::SocketHalOptions Options(const std::string& path) {
  reference::SocketHalOptions options;
  options.path = path;
  options.queue_entries = 16;
  // Reconnect immediately, and disable all timeouts.
  options.reconnect_first = std::chrono::milliseconds(0);
  options.reconnect_last = std::chrono::milliseconds(0);
  options.heartbeat = kNever;
  options.deadline = kNever;
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
  hello.set_max_payload(static_cast<std::uint32_t>(reference::kDefaultMaxPayload));
  std::string frame;
  AppendFrame(FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

// Retries a system call that the fuzzer's timer interrupted.
template <typename Function>
auto Retry(Function function) {
  auto result = function();
  while (result < 0 && errno == EINTR) result = function();
  return result;
}

// The client's peer: an abstract address, which needs no file, and bounded waits.
class Listener {
 public:
  Listener() { LimitWaiting(acceptor_.native_handle()); }

  const std::string& path() const { return path_; }

  Protocol::socket Accept() {
    const int client =
        Retry([this] { return ::accept(acceptor_.native_handle(), nullptr, nullptr); });
    Check(client >= 0, "the client does not connect");
    LimitWaiting(client);
    return Protocol::socket(io_, Protocol(), client);
  }

 private:
  static void LimitWaiting(int socket) {
    const ::timeval patience{kPatience.count(), 0};
    Check(::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0,
          "patience");
  }

  static std::string NewPath() {
    static int count = 0;
    return std::string(1, '\0') + "zuskux-fuzz-" + std::to_string(::getpid()) + '-' +
           std::to_string(++count);
  }

  const std::string path_ = NewPath();
  asio::io_context io_{1};
  Protocol::acceptor acceptor_{io_, Protocol::endpoint(path_)};
};

// What the client sends in one conversation.
class Said {
 public:
  void Take(std::string_view bytes) {
    splitter_.Feed(bytes);
    // An invalid stream is an exception, which the fuzzer reports.
    while (const auto frame = splitter_.Next()) {
      Check((frame->header.type == FrameType::kHello) == !greeted_, "one hello, first");
      greeted_ = true;
    }
  }

 private:
  FrameSplitter splitter_{reference::kDefaultMaxPayload};
  bool greeted_ = false;
};

// The client and its server, one conversation after the other.
class Client {
 public:
  // Creates a client that makes `early_requests` requests before it starts.
  explicit Client(unsigned int early_requests) : hal_(Options(listener_.path())) {
    requests_ = early_requests;
    if (early_requests > 0) MakeRequests();
    // Requests get their numbers when a server is found.
    requests_sent_ = 0;
    hal_.Start({&results_, [this] { OnServerFound(); }, {}});
    socket_ = std::make_unique<Protocol::socket>(listener_.Accept());
  }

  // Sends all of `bytes` and waits until the client has ended the conversation and begun the next.
  void Converse(std::string bytes, unsigned int requests) {
    requests_ = requests;
    Renumber(&bytes);
    boost::system::error_code error;
    asio::write(*socket_, asio::buffer(bytes), error);
    socket_->shutdown(Protocol::socket::shutdown_send, error);
    AwaitEnd();
    *socket_ = listener_.Accept();
    CheckResults();
  }

 private:
  // On the client's thread.
  void OnServerFound() {
    MakeRequests();
    hal_.HasRoom();
    marks_sent_ += 2;
  }

  void MakeRequests() {
    hal_.BeginReinstall();
    for (unsigned int count = requests_; count > 0; --count) {
      EcmpEncapsulationMessage message;
      message.encap()->set_db_id(++last_id_);
      if (hal_.InstallEcmpEncap(&message) == reference::kHalSuccess) ++requests_sent_;
    }
    hal_.EndReinstall();
  }

  // Renumbers the answers in `bytes`, relative to the client's current number.
  void Renumber(std::string* bytes) const {
    std::size_t place = 0;
    while (bytes->size() - place >= reference::kFrameHeaderSize) {
      auto* const header = reinterpret_cast<unsigned char*>(&(*bytes)[place]);
      const std::uint32_t word = boost::endian::load_big_u32(header);
      const auto type = static_cast<FrameType>(word >> 24);
      std::uint32_t first = 0;
      if (type == FrameType::kResult) first = requests_sent_;
      if (type == FrameType::kInSync) first = marks_sent_;
      const std::uint32_t sequence = (word + first) & reference::kSequenceMask;
      boost::endian::store_big_u32(header, (word & ~reference::kSequenceMask) | sequence);
      place += reference::kFrameHeaderSize;
      place +=
          std::min<std::size_t>(boost::endian::load_big_u32(header + 4), bytes->size() - place);
    }
  }

  void AwaitEnd() {
    Said said;
    std::array<char, 4096> bytes;
    while (true) {
      const auto size = Retry([&] {
        return ::recv(socket_->native_handle(), bytes.data(), bytes.size(), MSG_WAITALL);
      });
      Check(size >= 0 || errno == ECONNRESET, "the client does not close");
      if (size <= 0) return;
      said.Take({bytes.data(), static_cast<std::size_t>(size)});
    }
  }

  void CheckResults() {
    const unsigned int last_id = last_id_.exchange(0);
    const auto results = results_.Take(last_id);
    Check(results.size() >= last_id, "a request without a result");
    for (const auto& [id, count] : results) {
      Check(id >= 1 && id <= last_id, "a result without a request");
      Check(count == 1, "more than one result");
    }
  }

  Listener listener_;
  Results results_;
  std::atomic<unsigned int> requests_ = 0;
  std::atomic<unsigned int> last_id_ = 0;
  // How many requests the client has numbered.
  std::atomic<std::uint32_t> requests_sent_ = 0;
  std::atomic<std::uint32_t> marks_sent_ = 0;
  std::unique_ptr<Protocol::socket> socket_;
  // Last, because it must be destroyed first.
  reference::SocketHal hal_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string hello = Hello();
  static Client kept(0);
  fuzz::Input input(data, size);
  const std::uint8_t flags = input.Byte();
  std::string bytes = (flags & 1) != 0 ? hello : std::string();
  bytes += input.Rest();
  const unsigned int requests = (flags >> 1) & 7;
  if (flags >> 4 == 15) {
    Client(requests).Converse(bytes, requests);
  } else {
    kept.Converse(bytes, requests);
  }
  return 0;
}
