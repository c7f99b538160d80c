// What the HAL server and the HAL client do for a request and its result, for callgrind, which
// counts only between two toggles here:
//
//     valgrind --tool=callgrind --collect-atstart=no count_requests server
//     valgrind --tool=callgrind --collect-atstart=no count_requests client
//     valgrind --tool=callgrind --collect-atstart=no count_requests floor
//
// The floor does by hand what a server must do at least: splits the frames, parses, checks and
// stores each request, and appends its answer.
//
// Prints the number of requests that were counted and the allocations for them. The peer of either
// side is written by hand and answers a batch at a time, once it is complete, so that every run
// takes the same steps. The client has a thread of its own; only that one is counted.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "benchmarks/allocations.h"
#include "benchmarks/storing_floor.h"
#include "benchmarks/typical_requests.h"
#include "reference/hal/kinds.h"
#include "reference/server/hal_server.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"
#include "wire.pb.h"

namespace {

using reference::FrameType;
using reference::HalRequest;

// Small enough for a batch, and for its results, to pass the socket in one piece.
constexpr std::size_t kBatch = 4 * bench::kBlock;
constexpr std::size_t kBatches = 16;
constexpr std::size_t kResultSize = reference::kFrameHeaderSize + 16;
constexpr std::chrono::hours kNever{1};

// Begins or ends the counting on this thread.
void Count(bool on) {
  CALLGRIND_TOGGLE_COLLECT;
  bench::CountAllocations(on);
}

std::size_t Check(ssize_t result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return static_cast<std::size_t>(result);
}

/// A socket or a connection; closes it.
class Socket {
 public:
  explicit Socket(int descriptor) : descriptor_(descriptor) { Check(descriptor, "socket"); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(descriptor_); }

  int descriptor() const { return descriptor_; }

  void Write(std::string_view bytes) const {
    if (Check(send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send") !=
        bytes.size()) {
      throw std::runtime_error("the socket does not take a batch at once");
    }
  }
  /// Appends what is available; waits for it unless `flags` is `MSG_DONTWAIT`.
  void Read(std::string* bytes, int flags) {
    const ssize_t size = recv(descriptor_, buffer_.data(), buffer_.size(), flags);
    if (size < 0 && errno == EAGAIN) return;
    if (Check(size, "recv") == 0) throw std::runtime_error("the connection was closed");
    bytes->append(buffer_.data(), static_cast<std::size_t>(size));
  }

 private:
  int descriptor_;
  std::array<char, std::size_t{64} * 1024> buffer_{};
};

sockaddr_un Address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the path is too long");
  path.copy(address.sun_path, path.size());
  return address;
}

std::string Hello() {
  wire::Hello hello;
  hello.set_protocol_version(reference::kProtocolVersion);
  hello.set_protocol_minor_version(reference::kProtocolMinorVersion);
  hello.set_program("count_requests");
  hello.set_writes(true);
  hello.set_generation(1);
  hello.set_max_payload(reference::kDefaultMaxPayload);
  std::string frame;
  reference::AppendFrame(FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

// Checks that `bytes` are results of success.
void CheckResults(std::string_view bytes) {
  for (; !bytes.empty(); bytes.remove_prefix(kResultSize)) {
    const auto result = reference::ParseResult(
        bytes.substr(reference::kFrameHeaderSize, kResultSize - reference::kFrameHeaderSize));
    if (!result || result->code != reference::kHalSuccess) {
      throw std::runtime_error("the server refused a request");
    }
  }
}

// The requests of the batch that begins at `begin`, each in a frame.
std::string FramesOf(const std::vector<HalRequest>& requests, std::size_t begin) {
  std::string frames;
  for (std::size_t place = begin; place < begin + kBatch; ++place) {
    reference::AppendFrame(static_cast<FrameType>(requests[place].operation),
                           static_cast<std::uint32_t>(place), requests[place].payload, &frames);
  }
  return frames;
}

// The server and its client take turns on this thread.
void CountServer(const std::string& path) {
  boost::asio::io_context io;
  reference::HalServerOptions options;
  options.path = path;
  options.hello_timeout = options.idle_timeout = kNever;
  const reference::HalServer server(&io, options);
  Socket client(socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = Address(path);
  Check(connect(client.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
        "connect");
  std::string answer;
  client.Write(Hello());
  while (answer.empty()) {
    io.poll();
    client.Read(&answer, MSG_DONTWAIT);
  }

  const std::vector<HalRequest> requests =
      bench::TypicalRequests(kBatches * kBatch / bench::kBlock);
  for (std::size_t begin = 0; begin < requests.size(); begin += kBatch) {
    client.Write(FramesOf(requests, begin));
    answer.clear();
    while (answer.size() < kBatch * kResultSize) {
      Count(true);
      io.poll();
      Count(false);
      client.Read(&answer, MSG_DONTWAIT);
    }
    CheckResults(answer);
  }
}

void CountFloor() {
  constexpr std::size_t kCapacity = std::size_t{1} << 21;
  bench::StoringFloor floor(kCapacity);
  const std::vector<HalRequest> requests =
      bench::TypicalRequests(kBatches * kBatch / bench::kBlock);
  std::string answer;
  for (std::size_t begin = 0; begin < requests.size(); begin += kBatch) {
    const std::string frames = FramesOf(requests, begin);
    answer.clear();
    Count(true);
    std::string_view rest = frames;
    while (!rest.empty()) {
      const auto* const header = reinterpret_cast<const unsigned char*>(rest.data());
      const std::uint32_t word = boost::endian::load_big_u32(header);
      const std::size_t size = boost::endian::load_big_u32(header + 4);
      const std::string_view payload(rest.data() + reference::kFrameHeaderSize, size);
      const bench::StoringFloor::Outcome outcome =
          floor.Install(static_cast<reference::HalOperation>(word >> 24), payload);
      reference::AppendResult(word, {outcome.code, outcome.id, outcome.secondary_id}, &answer);
      rest.remove_prefix(reference::kFrameHeaderSize + size);
    }
    Count(false);
    CheckResults(answer);
  }
}

/// The host of the HAL client: sends each batch once the results of the one before have come. The
/// queue has room for one batch. Called on the client's thread, except for `Wait`.
class Host : public reference::HalCallbackBase {
 public:
  explicit Host(const std::string& path) {
    for (const HalRequest& request : bench::TypicalRequests(kBatches * kBatch / bench::kBlock)) {
      ready_.push_back({TraitsOf(request.operation).request, Wrap(request)});
    }
    reference::SocketHalOptions options;
    options.path = path;
    options.queue_entries = kBatch;
    options.deadline = options.heartbeat = kNever;
    hal_ = std::make_unique<reference::SocketHal>(options);
    const auto found = [this] {
      Count(true);
      Send();
    };
    hal_->Start({this, found, [this] { Send(); },
                 [this](const HalRequest& /*request*/, reference::HalReturnCode code) {
                   CountResult(code);
                 }});
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() override = default;

  /// Until the last result has come.
  void Wait() {
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return has_ended_; });
    if (refused_ != 0) throw std::runtime_error("requests ended without success");
  }

 private:
  struct Ready {
    decltype(reference::OperationTraits::request) send;
    std::unique_ptr<AppMessage> message;
  };

  static std::unique_ptr<AppMessage> Wrap(const HalRequest& request) {
    std::string frame;
    reference::AppendFrame(FrameType{}, 0, request.payload, &frame);
    return VisitKind(KindOf(request.operation), [&frame](auto row) -> std::unique_ptr<AppMessage> {
      auto wrapper = std::make_unique<typename decltype(row)::Wrapper>();
      if (!wrapper->Unserialize(frame.data())) std::abort();
      return wrapper;
    });
  }

  void Send() {
    while (sent_ < ready_.size() && hal_->HasRoom()) {
      const Ready& request = ready_[sent_++];
      (hal_.get()->*request.send)(request.message.get());
    }
  }

  void OnResult(reference::HalOperation /*operation*/, reference::HalReturnCode code,
                const reference::ResultIds& /*ids*/) override {
    CountResult(code);
  }

  void CountResult(reference::HalReturnCode code) {
    if (code != reference::kHalSuccess) ++refused_;
    if (++answered_ < ready_.size()) return;
    Count(false);
    const std::lock_guard lock(mutex_);
    has_ended_ = true;
    ended_.notify_one();
  }

  std::vector<Ready> ready_;
  std::size_t sent_ = 0;
  std::size_t answered_ = 0;
  std::size_t refused_ = 0;
  std::mutex mutex_;
  std::condition_variable ended_;
  // Guarded by `mutex_`:
  bool has_ended_ = false;
  // Last, so that its thread ends first.
  std::unique_ptr<reference::SocketHal> hal_;
};

// The client runs on its own thread; this one is its server.
void CountClient(const std::string& path) {
  Socket listener(socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = Address(path);
  Check(bind(listener.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
        "bind");
  Check(listen(listener.descriptor(), 1), "listen");
  Host host(path);
  Socket client(accept(listener.descriptor(), nullptr, nullptr));
  client.Write(Hello());

  reference::FrameSplitter splitter(reference::kDefaultMaxPayload);
  std::string results;
  std::size_t requests = 0;
  while (requests < kBatches * kBatch) {
    std::string bytes;
    client.Read(&bytes, 0);
    splitter.Feed(bytes);
    while (const auto frame = splitter.Next()) {
      if (!reference::IsRequest(frame->header.type)) continue;
      HalRequest request;
      const auto operation = static_cast<reference::HalOperation>(frame->header.type);
      const std::uint32_t id = VisitKind(KindOf(operation), [&frame](auto row) {
        typename decltype(row)::Message message;
        message.ParseFromArray(frame->payload.data(), static_cast<int>(frame->payload.size()));
        return row.Id(message).value_or(0);
      });
      reference::AppendResult(frame->header.sequence, {reference::kHalSuccess, id}, &results);
      if (++requests % kBatch != 0) continue;
      client.Write(results);
      results.clear();
    }
  }
  host.Wait();
}

/// A folder for the socket; removes it.
class Folder {
 public:
  Folder() : path_((std::filesystem::temp_directory_path() / "count_requests.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) Check(-1, "mkdtemp");
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string socket() const { return path_ + "/socket"; }

 private:
  std::string path_;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view what = argc == 2 ? argv[1] : "";
    const Folder folder;
    if (what == "server") {
      CountServer(folder.socket());
    } else if (what == "client") {
      CountClient(folder.socket());
    } else if (what == "floor") {
      CountFloor();
    } else {
      std::cerr << "usage: count_requests server|client|floor\n";
      return 2;
    }
    std::cout << "requests " << kBatches * kBatch << "\nallocations " << bench::CountedAllocations()
              << "\n";
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "count_requests: " << error.what() << "\n";
    return 1;
  }
}
