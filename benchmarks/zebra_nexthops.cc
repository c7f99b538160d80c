#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "benchmarks/child_process.h"
#include "benchmarks/kernel_nexthops.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

// Of FRR 8.4, from its developer's guide and its headers.
constexpr std::uint8_t kMarker = 254;
constexpr std::uint8_t kVersion = 6;
constexpr std::uint16_t kHello = 18;
constexpr std::uint16_t kGroupAdd = 109;
constexpr std::uint16_t kGroupNotify = 111;
// The client's routing protocol: BGP.
constexpr std::uint8_t kProtocol = 9;
constexpr std::uint8_t kIpv6OnInterface = 5;
constexpr std::uint8_t kOnLink = 1;
constexpr std::uint32_t kInstalled = 1;
constexpr std::size_t kHeader = 10;
// Among the ids that zebra leaves to its clients.
constexpr std::uint32_t kFirstId = 100'000'000;

constexpr std::chrono::seconds kTimeout{60};
constexpr std::size_t kWindow = 4096;

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// A message of zebra's client protocol. All numbers are big-endian.
class Message {
 public:
  explicit Message(std::uint16_t command) {
    Put(std::uint16_t{0});
    Put(kMarker);
    Put(kVersion);
    Put(std::uint32_t{0});
    Put(command);
  }

  template <typename Number>
  void Put(Number number) {
    static_assert(std::is_unsigned_v<Number>);
    boost::endian::native_to_big_inplace(number);
    bytes_.append(reinterpret_cast<const char*>(&number), sizeof number);
  }

  void Put(const reference::Ipv6Address& address) { bytes_.append(address.begin(), address.end()); }

  /// With its length.
  std::string bytes() && {
    const auto length = boost::endian::native_to_big(static_cast<std::uint16_t>(bytes_.size()));
    std::memcpy(bytes_.data(), &length, sizeof length);
    return std::move(bytes_);
  }

 private:
  std::string bytes_;
};

std::string MakeHello() {
  Message hello(kHello);
  hello.Put(kProtocol);
  hello.Put(std::uint16_t{0});
  hello.Put(std::uint32_t{0});
  constexpr std::uint8_t kNotify = 1;
  constexpr std::uint8_t kSynchronous = 0;
  hello.Put(kNotify);
  hello.Put(kSynchronous);
  return std::move(hello).bytes();
}

template <typename Destinations>
std::string MakeGroupAdd(std::uint32_t id, const Destinations& destinations,
                         std::uint32_t interface) {
  Message add(kGroupAdd);
  add.Put(std::uint16_t{kProtocol});
  add.Put(id);
  add.Put(static_cast<std::uint16_t>(destinations.size()));
  for (const std::uint32_t destination : destinations) {
    constexpr std::uint32_t kVrf = 0;
    add.Put(kVrf);
    add.Put(kIpv6OnInterface);
    add.Put(kOnLink);
    add.Put(reference::NeighbourAddress(destination));
    add.Put(interface);
  }
  constexpr std::uint16_t kBackups = 0;
  add.Put(kBackups);
  return std::move(add).bytes();
}

/// A client of zebra.
class ZebraClient {
 public:
  explicit ZebraClient(const std::string& path)
      : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(&address.sun_path[0], sizeof address.sun_path - 1);
    const auto deadline = Clock::now() + kTimeout;
    while (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      if (Clock::now() > deadline) Fail("zebra does not listen on " + path);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    fcntl(socket_, F_SETFL, O_NONBLOCK);
    unsent_ = MakeHello();
  }
  ZebraClient(const ZebraClient&) = delete;
  ZebraClient& operator=(const ZebraClient&) = delete;
  ~ZebraClient() { close(socket_); }

  /// Sends the requests and returns when zebra has reported each one's next hop as installed.
  void Install(const std::vector<std::string>& requests) {
    std::size_t next = 0;
    installed_ = 0;
    while (installed_ < requests.size()) {
      while (next < requests.size() && next - installed_ < kWindow && unsent_.size() < kPiece) {
        unsent_ += requests[next++];
      }
      const auto events = static_cast<short>(unsent_.empty() ? POLLIN : POLLIN | POLLOUT);
      pollfd ready{socket_, events, 0};
      if (poll(&ready, 1, std::chrono::milliseconds(kTimeout).count()) != 1) {
        throw std::runtime_error("zebra has reported " + std::to_string(installed_) +
                                 " next hops only");
      }
      Write();
      Read();
    }
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{64} * 1024;

  void Write() {
    const ssize_t written = send(socket_, unsent_.data(), unsent_.size(), MSG_NOSIGNAL);
    if (written > 0) unsent_.erase(0, static_cast<std::size_t>(written));
    if (written < 0 && errno != EAGAIN) Fail("write to zebra");
  }

  void Read() {
    const std::size_t before = received_.size();
    received_.resize(before + kPiece);
    const ssize_t length = recv(socket_, received_.data() + before, kPiece, 0);
    if (length == 0) throw std::runtime_error("zebra has closed the connection");
    if (length < 0 && errno != EAGAIN) Fail("read from zebra");
    received_.resize(before + static_cast<std::size_t>(length < 0 ? 0 : length));
    std::size_t at = 0;
    while (received_.size() - at >= kHeader) {
      const std::size_t size = Get<std::uint16_t>(at);
      if (received_.size() - at < size) break;
      if (Get<std::uint16_t>(at + 8) == kGroupNotify) OnNotification(at + kHeader);
      at += size;
    }
    received_.erase(0, at);
  }

  void OnNotification(std::size_t at) {
    // The only number in the host's byte order.
    std::uint32_t outcome = 0;
    std::memcpy(&outcome, received_.data() + at, sizeof outcome);
    if (outcome != kInstalled) {
      throw std::runtime_error("zebra reports " + std::to_string(outcome) + " for next hop " +
                               std::to_string(Get<std::uint32_t>(at + sizeof outcome)));
    }
    ++installed_;
  }

  template <typename Number>
  Number Get(std::size_t at) const {
    Number number{};
    std::memcpy(&number, received_.data() + at, sizeof number);
    return boost::endian::big_to_native(number);
  }

  const int socket_;
  std::string unsent_;
  std::string received_;
  std::size_t installed_ = 0;
};

}  // namespace

std::vector<Cost> WriteThroughZebra(const std::string& program, const std::string& folder,
                                    const std::vector<NexthopKind>& kinds, std::uint32_t objects) {
  // Zebra runs as a user of its own.
  std::filesystem::permissions(folder, std::filesystem::perms::all);
  const std::string socket = folder + "/zserv.api";
  const ChildProcess zebra({program, "--socket", socket, "--vty_socket", folder, "--pid_file",
                            folder + "/zebra.pid", "--config_file", "/dev/null", "--vty_port", "0",
                            "--log", "stdout"});
  ZebraClient client(socket);
  const std::uint32_t interface = if_nametoindex(reference::DestinationDevice(kVlan).c_str());
  std::vector<Cost> costs;
  for (const NexthopKind kind : kinds) {
    std::vector<std::string> requests;
    for (std::uint32_t i = 0; i < objects; ++i) {
      const std::uint32_t id = kFirstId + static_cast<std::uint32_t>(costs.size()) * objects + i;
      requests.push_back(kind == NexthopKind::kGroup
                             ? MakeGroupAdd(id, MembersOf(i, objects), interface)
                             : MakeGroupAdd(id, std::array{kFirstDestination + i}, interface));
    }
    const auto begin = Clock::now();
    const auto processor = zebra.ProcessorTime();
    client.Install(requests);
    costs.push_back({Clock::now() - begin, zebra.ProcessorTime() - processor});
  }
  return costs;
}

}  // namespace bench
