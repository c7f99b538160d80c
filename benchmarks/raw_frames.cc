// Lower bounds for a request and its result over a socket: the same frames, prepared before the
// clock starts, to a server on one thread. Both ends poll before they read, as any program with
// several clients or with deadlines must.
//
//     raw_frames store SOCKET                   serves one client: parses, checks and stores each
//                                               request by hand
//     raw_frames count SOCKET                   serves one client: looks only at the frames' length
//     raw_frames send SOCKET OBJECTS WINDOW     at most WINDOW requests in flight; prints
//                                               nanoseconds per request

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "benchmarks/captured_requests.h"
#include "benchmarks/storing_floor.h"
#include "reference/wire/frame.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = std::size_t{64} * 1024;
// Header, code, two ids and a duration.
constexpr std::size_t kResultSize = reference::kFrameHeaderSize + 16;
constexpr std::size_t kTableSize = 10'000'000;

std::size_t Check(ssize_t result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return static_cast<std::size_t>(result);
}

sockaddr_un Address(std::string_view path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the path is too long");
  path.copy(address.sun_path, path.size());
  return address;
}

/// Waits for input and reads what is available.
std::size_t ReadSome(int socket, char* data, std::size_t size) {
  pollfd readable{socket, POLLIN, 0};
  Check(poll(&readable, 1, -1), "poll");
  return Check(read(socket, data, size), "read");
}

void WriteAll(int socket, const char* data, std::size_t size) {
  while (size > 0) {
    const std::size_t written = Check(write(socket, data, size), "write");
    data += written;
    size -= written;
  }
}

/// Answers without a look at the request.
struct Counting {
  static void Answer(std::uint32_t /*word*/, std::string_view /*payload*/, std::string* results) {
    static constexpr std::array<char, kResultSize> kResult{};
    results->append(kResult.data(), kResult.size());
  }
};

/// Answers once the request is stored. Throws if it cannot be: no request of this program is wrong.
struct Storing {
  void Answer(std::uint32_t word, std::string_view payload, std::string* results) {
    using boost::endian::native_to_big;
    const auto operation = static_cast<reference::HalOperation>(word >> 24);
    const bench::StoringFloor::Outcome outcome = floor.Install(operation, payload);
    if (outcome.code != reference::kHalSuccess) throw std::runtime_error("a request was refused");
    const auto type = static_cast<std::uint32_t>(reference::FrameType::kResult) << 24;
    const std::array<std::uint32_t, kResultSize / 4> result = {
        native_to_big(type | (word & reference::kSequenceMask)),
        native_to_big(std::uint32_t{kResultSize - reference::kFrameHeaderSize}),
        native_to_big(static_cast<std::uint32_t>(outcome.code)),
        native_to_big(outcome.id),
        native_to_big(outcome.secondary_id),
        0};
    results->append(reinterpret_cast<const char*>(result.data()), sizeof result);
  }

  bench::StoringFloor floor{kTableSize};
};

std::uint32_t NumberAt(const char* bytes) {
  return boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(bytes));
}

template <typename Server>
void Serve(const char* path, Server server) {
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = Address(path);
  unlink(path);
  Check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  Check(listen(listener, 1), "listen");
  const int client = accept(listener, nullptr, nullptr);
  Check(client, "accept");

  std::array<char, kReadSize> input{};
  std::string results;
  std::size_t kept = 0;
  while (true) {
    const std::size_t size = ReadSome(client, &input[kept], input.size() - kept);
    if (size == 0) break;
    const std::size_t end = kept + size;
    std::size_t begin = 0;
    results.clear();
    while (end - begin >= reference::kFrameHeaderSize) {
      const std::size_t payload = NumberAt(&input[begin + 4]);
      const std::size_t frame = reference::kFrameHeaderSize + payload;
      if (end - begin < frame) break;
      server.Answer(NumberAt(&input[begin]), {&input[begin] + reference::kFrameHeaderSize, payload},
                    &results);
      begin += frame;
    }
    kept = end - begin;
    std::memmove(input.data(), &input[begin], kept);
    WriteAll(client, results.data(), results.size());
  }
  close(client);
  close(listener);
}

void Send(const char* path, std::size_t objects, std::size_t window) {
  std::string frames;
  // Where each frame ends.
  std::vector<std::size_t> ends;
  for (const reference::HalRequest& request : bench::CaptureRequests(objects)) {
    reference::AppendFrame(static_cast<reference::FrameType>(request.operation), 0, request.payload,
                           &frames);
    ends.push_back(frames.size());
  }
  const int server = socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = Address(path);
  Check(connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");

  const Clock::time_point begin = Clock::now();
  std::array<char, kReadSize> input{};
  std::size_t sent = 0;
  std::size_t written = 0;
  std::size_t read_bytes = 0;
  while (read_bytes < ends.size() * kResultSize) {
    const std::size_t outstanding = sent - read_bytes / kResultSize;
    if (sent < ends.size() && outstanding <= window / 2) {
      sent = std::min(ends.size(), sent + window - outstanding);
      WriteAll(server, frames.data() + written, ends[sent - 1] - written);
      written = ends[sent - 1];
    }
    const std::size_t size = ReadSome(server, input.data(), input.size());
    if (size == 0) throw std::runtime_error("the server closed the connection");
    read_bytes += size;
  }
  const std::chrono::duration<double, std::nano> time = Clock::now() - begin;
  close(server);
  std::cout << "request " << time.count() / static_cast<double>(ends.size()) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view what = argc > 2 ? argv[1] : "";
    if (what == "store" && argc == 3) {
      Serve(argv[2], Storing());
    } else if (what == "count" && argc == 3) {
      Serve(argv[2], Counting());
    } else if (what == "send" && argc == 5) {
      Send(argv[2], std::strtoul(argv[3], nullptr, 10), std::strtoul(argv[4], nullptr, 10));
    } else {
      std::cerr << "usage: raw_frames store|count SOCKET | raw_frames send SOCKET OBJECTS WINDOW\n";
      return 2;
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "raw_frames: " << error.what() << "\n";
    return 1;
  }
}
