#ifndef ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace reference {

// What the Linux data plane keeps in the kernel, as values: the same for what the tables want and
// for what the kernel has, so that the two can be compared.

using MacAddress = std::array<std::uint8_t, 6>;
/// In network byte order.
using Ipv6Address = std::array<std::uint8_t, 16>;

/// The routing protocol that marks our next hops, as in `ip nexthop ... protocol 171`.
inline constexpr std::uint8_t kRoutingProtocol = 171;

/// A VRF's device.
struct VrfDevice {
  std::uint32_t table = 0;
};

/// A device that only holds what goes to the CPU.
struct DummyDevice {};

/// An 802.1Q subinterface.
struct TaggedDevice {
  std::string parent;
  /// 1 to 4094.
  std::uint16_t tag = 0;
};

/// A macvlan device in private mode: a VLAN destination.
struct MacvlanDevice {
  std::string parent;
  MacAddress address{};
  /// In bytes; 0 for the parent's.
  std::uint32_t mtu = 0;
  /// The VRF device it belongs to; empty for none.
  std::string master;
  /// Whether IPv4 and IPv6 packets that arrive on it are forwarded.
  bool forwarding = false;
  /// As in `ip link set ... alias`; empty for none.
  std::string alias;
};

using KernelDevice = std::variant<VrfDevice, DummyDevice, TaggedDevice, MacvlanDevice>;

/// A next hop that drops.
struct BlackholeNexthop {};

/// A next hop out of a device: to a neighbour on it or, without one, to the device alone.
struct DeviceNexthop {
  std::string device;
  /// All zero for none.
  Ipv6Address gateway{};
  /// MPLS labels to push, outermost first; at most 30.
  std::vector<std::uint32_t> labels;
};

/// Spreads traffic over other next hops.
struct NexthopGroup {
  /// Weight, 1 to 256, by next-hop id. None of them is a group or a blackhole.
  std::map<std::uint32_t, std::uint16_t> members;
};

using KernelNexthop = std::variant<BlackholeNexthop, DeviceNexthop, NexthopGroup>;

/// A permanent entry: a device's name and the neighbour's address on it.
using NeighbourKey = std::pair<std::string, Ipv6Address>;

/// Everything of ours in the kernel, by the key under which the kernel has it.
struct KernelObjects {
  /// By name.
  std::map<std::string, KernelDevice> devices;
  std::map<NeighbourKey, MacAddress> neighbours;
  /// By id.
  std::map<std::uint32_t, KernelNexthop> nexthops;
};

bool operator==(const VrfDevice& a, const VrfDevice& b);
bool operator==(const DummyDevice& a, const DummyDevice& b);
bool operator==(const TaggedDevice& a, const TaggedDevice& b);
bool operator==(const MacvlanDevice& a, const MacvlanDevice& b);
bool operator==(const BlackholeNexthop& a, const BlackholeNexthop& b);
bool operator==(const DeviceNexthop& a, const DeviceNexthop& b);
bool operator==(const NexthopGroup& a, const NexthopGroup& b);

/// One write to the kernel: an object that it shall have (new or changed), or lose.
struct PutDevice {
  std::string name;
  KernelDevice device;
  /// Whether the kernel has a device of this name, which is changed in place.
  bool exists = false;
};
struct RemoveDevice {
  std::string name;
};
struct PutNeighbour {
  NeighbourKey key;
  MacAddress address{};
};
struct RemoveNeighbour {
  NeighbourKey key;
};
/// Adds the next hop, or replaces the one with that id in place.
struct PutNexthop {
  std::uint32_t id = 0;
  KernelNexthop nexthop;
};
struct RemoveNexthop {
  std::uint32_t id = 0;
};

using KernelChange =
    std::variant<PutDevice, RemoveDevice, PutNeighbour, RemoveNeighbour, PutNexthop, RemoveNexthop>;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
