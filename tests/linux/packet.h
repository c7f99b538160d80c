#ifndef ZUSKUX_TESTS_LINUX_PACKET_H_
#define ZUSKUX_TESTS_LINUX_PACKET_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace reference {

enum class Family { kIpv4, kIpv6 };

/// A packet that a test sends: UDP in an Ethernet frame.
struct Probe {
  /// The MAC address it is sent to, 6 bytes in transmission order.
  std::string mac;
  /// The 802.1Q tag it is sent with.
  std::optional<std::uint16_t> tag;
  /// Of the same family, in the usual notation.
  std::string source;
  std::string destination;
  /// Bytes of the IP packet, headers included; at least `kSmallest`.
  std::size_t size = kSmallest;
  /// The UDP source port, which identifies the packet.
  std::uint16_t port = 0;

  static constexpr std::size_t kSmallest = 64;
};

/// The UDP destination port of every probe.
inline constexpr std::uint16_t kProbePort = 4711;

/// The frame, checksums included where routers check them. IPv4 packets must not be fragmented.
std::string FrameOf(const Probe& probe);

struct Label {
  std::uint32_t value = 0;
  bool bottom = false;
};

/// The contents of a captured frame.
struct Packet {
  /// MAC addresses, 6 bytes each.
  std::string to;
  std::string from;
  std::optional<std::uint16_t> tag;
  /// Outermost first.
  std::vector<Label> labels;
  Family family = Family::kIpv4;
  std::string source;
  std::string destination;
  std::size_t size = 0;
  /// The UDP source port of a probe; 0 for other packets.
  std::uint16_t port = 0;
  /// The largest size that the packet may have, in "fragmentation needed" and "packet too big".
  std::optional<std::uint32_t> path_mtu;
};

/// Empty for a frame that holds no complete IP packet.
std::optional<Packet> ParseFrame(const std::string& frame);

}  // namespace reference

#endif  // ZUSKUX_TESTS_LINUX_PACKET_H_
