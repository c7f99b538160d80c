#ifndef ZUSKUX_TESTS_LINUX_TEST_NETWORK_H_
#define ZUSKUX_TESTS_LINUX_TEST_NETWORK_H_

#include <sched.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tests/linux/packet.h"

namespace reference {

/// A file descriptor, closed on destruction.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  OwnedFd(OwnedFd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  OwnedFd& operator=(OwnedFd&& other) noexcept;
  ~OwnedFd();

  int get() const { return fd_; }

 private:
  int fd_;
};

/// A raw socket on one device: sends and captures whole frames.
class PacketSocket {
 public:
  /// Opens the device with that name in the thread's network namespace. Throws std::system_error.
  explicit PacketSocket(const std::string& device);

  void Send(const Probe& probe);

  /// The next IP packet that the device received (or sent, where `Send` is not used). Empty if none
  /// comes within `patience_ms`.
  std::optional<Packet> Receive(int patience_ms);

 private:
  OwnedFd socket_;
};

/// A router in its own network namespace, with the ports eth1, eth2 and eth3. The other ends of the
/// cables are in a second namespace and have raw sockets. From construction to destruction, the
/// constructing thread and the commands that it starts run in the router's namespace. The thread
/// stays on one processor, so that packets keep their order.
class TestNetwork {
 public:
  /// Throws std::system_error, with EPERM if the process may not create namespaces.
  TestNetwork();
  TestNetwork(const TestNetwork&) = delete;
  TestNetwork& operator=(const TestNetwork&) = delete;
  ~TestNetwork();

  static constexpr int kPorts = 3;

  /// The other end of the cable in port eth1 to eth3.
  PacketSocket& Outside(int port) { return outside_.at(static_cast<std::size_t>(port - 1)); }

 private:
  OwnedFd original_namespace_;
  cpu_set_t original_processors_;
  std::vector<PacketSocket> outside_;
};

/// Runs `ip` commands, one per line, in the thread's namespace. Returns the output of `ip`; throws
/// std::runtime_error with that text if a command fails. With `kIpv6`, commands that name no family
/// use IPv6, otherwise the default of `ip`.
std::string Ip(const std::string& commands, Family family = Family::kIpv4);

/// Whether the kernel has the setting.
bool HasSysctl(const std::string& path);

/// Writes a setting of the thread's namespace, such as "ipv4/ip_forward".
void SetSysctl(const std::string& path, int value);

}  // namespace reference

#endif  // ZUSKUX_TESTS_LINUX_TEST_NETWORK_H_
