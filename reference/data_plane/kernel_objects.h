#ifndef ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
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

/// The id of a next hop of our own: a blackhole that is the only member of a group that drops. A
/// group that became a blackhole itself would lose its routes, because the kernel turns no group
/// into a single next hop.
inline constexpr std::uint32_t kDropNexthop = 0xFFFFFFFF;

/// The device for packets to the CPU.
inline constexpr std::string_view kCpuDevice = "zcpu";

/// At most so many labels, members of a group, and shares of a member in it. The first and the last
/// are the kernel's limits; the members must fit into one netlink attribute.
inline constexpr std::size_t kMaxLabels = 30;
inline constexpr std::size_t kMaxMembers = 8191;
inline constexpr std::uint32_t kMaxWeight = 256;

/// The device of a VLAN destination: "zd10".
std::string DestinationDevice(std::uint32_t id);
/// The device of a VRF: "zv7".
std::string VrfDeviceName(std::uint32_t vrf);
/// A destination's neighbour: fe80::<id>.
Ipv6Address NeighbourAddress(std::uint32_t id);

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
  /// Weight, 1 to 256, by next-hop id. Not empty. No member is a group, and only the single member
  /// of a group may be a blackhole.
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
bool operator==(const KernelObjects& a, const KernelObjects& b);

/// One write to the kernel: an object that it shall have (new or changed), or lose.
struct PutDevice {
  std::string name;
  KernelDevice device;
  /// What the kernel has under this name; nothing for a new device. Both are macvlan devices with
  /// the same parent and master then. Only what differs may be written: a new MAC address, even an
  /// equal one, makes the kernel forget the device's neighbours.
  std::optional<KernelDevice> before;
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

/// Whether a device gets another MAC address.
bool HasNewAddress(const KernelDevice& before, const KernelDevice& after);

/// Carries out a change that the kernel has accepted, with what the kernel does by itself: a device
/// takes along what is on it, a next hop leaves its groups, and a new MAC address drops the
/// device's neighbours.
void Apply(const KernelChange& change, KernelObjects* objects);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
