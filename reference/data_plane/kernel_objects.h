#ifndef ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace reference {

// The Linux data plane's kernel objects, as values. The same types describe what the tables want
// and what the kernel has, so that the two can be compared.

using MacAddress = std::array<std::uint8_t, 6>;
/// In network byte order.
using Ipv6Address = std::array<std::uint8_t, 16>;

/// The routing protocol that marks our next hops, as in `ip nexthop ... protocol 171`.
inline constexpr std::uint8_t kRoutingProtocol = 171;

/// The id of the blackhole next hop that is the only member of a group that drops. The kernel
/// cannot replace a group with a single next hop; removing the group would remove its routes.
inline constexpr std::uint32_t kDropNexthop = 0xFFFFFFFF;

/// The device for packets to the CPU.
inline constexpr std::string_view kCpuDevice = "zcpu";

/// The maximum number of labels, of members of a group, and the maximum weight of a member. The
/// first and the last are the kernel's limits; the members must fit into one netlink attribute.
inline constexpr std::size_t kMaxLabels = 30;
inline constexpr std::size_t kMaxMembers = 8191;
inline constexpr std::uint32_t kMaxWeight = 256;

/// The device of a VLAN destination: "zd10".
std::string DestinationDevice(std::uint32_t id);
/// The device of a VRF: "zv7".
std::string VrfDeviceName(std::uint32_t vrf);
/// The address of a destination's neighbour: fe80::<id>.
Ipv6Address NeighbourAddress(std::uint32_t id);
/// The id of the destination whose neighbour would have this address.
std::uint32_t DestinationOfNeighbour(const Ipv6Address& address);

/// A VRF's device.
struct VrfDevice {
  std::uint32_t table = 0;
};

/// A dummy device, which receives the packets for the CPU.
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
  /// In bytes; 0 to use the parent's.
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

/// Next-hop ids in ascending order, each with its weight, 1 to 256. In one piece of memory instead
/// of one for each member.
using GroupMembers = std::vector<std::pair<std::uint32_t, std::uint16_t>>;

/// Spreads traffic over several next hops.
struct NexthopGroup {
  /// Not empty. No member is a group, and only the single member of a group may be a blackhole.
  GroupMembers members;
};

using KernelNexthop = std::variant<BlackholeNexthop, DeviceNexthop, NexthopGroup>;

bool HasMember(const NexthopGroup& group, std::uint32_t id);

/// The key of a permanent neighbour: its device's name and its address.
using NeighbourKey = std::pair<std::string, Ipv6Address>;

/// All our objects in the kernel, by the kernel's own keys.
struct KernelObjects {
  /// By name.
  std::map<std::string, KernelDevice> devices;
  std::map<NeighbourKey, MacAddress> neighbours;
  /// By id.
  std::map<std::uint32_t, KernelNexthop> nexthops;
};

/// The keys of some neighbours and next hops.
struct ObjectKeys {
  std::set<NeighbourKey> neighbours;
  std::set<std::uint32_t> nexthops;

  std::size_t size() const { return neighbours.size() + nexthops.size(); }
};

/// Which of our objects other programs may have changed.
struct ForeignChanges {
  /// Any object may have changed, including devices.
  bool any_object = false;
  ObjectKeys objects;

  bool empty() const { return !any_object && objects.size() == 0; }
};

bool operator==(const VrfDevice& a, const VrfDevice& b);
bool operator==(const DummyDevice& a, const DummyDevice& b);
bool operator==(const TaggedDevice& a, const TaggedDevice& b);
bool operator==(const MacvlanDevice& a, const MacvlanDevice& b);
bool operator==(const BlackholeNexthop& a, const BlackholeNexthop& b);
bool operator==(const DeviceNexthop& a, const DeviceNexthop& b);
bool operator==(const NexthopGroup& a, const NexthopGroup& b);
bool operator==(const KernelObjects& a, const KernelObjects& b);

/// The object with that key; null if there is none.
template <typename Objects>
const typename Objects::mapped_type* Find(const Objects& objects,
                                          const typename Objects::key_type& key) {
  const auto place = objects.find(key);
  return place == objects.end() ? nullptr : &place->second;
}

// One write to the kernel: it adds, changes or removes an object.

struct PutDevice {
  std::string name;
  KernelDevice device;
  /// The device that the kernel has under this name; empty for a new device. If set, both are
  /// macvlan devices with the same parent and master. Only the differences may be written: setting
  /// a MAC address, even to the same value, makes the kernel flush the device's neighbours.
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

/// Whether the device's MAC address changes.
bool HasNewAddress(const KernelDevice& before, const KernelDevice& after);

/// Applies a change that the kernel has accepted, with its side effects: removing a device removes
/// everything on it, removing a next hop removes it from its groups, and a new MAC address flushes
/// the device's neighbours.
void Apply(const KernelChange& change, KernelObjects* objects);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_OBJECTS_H_
