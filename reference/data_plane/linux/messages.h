#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_MESSAGES_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_MESSAGES_H_

#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/linux/netlink.h"

namespace reference {

// Converts kernel objects to route netlink messages and back. Does no I/O.

/// The group of our devices, as in `ip link show group 171`.
inline constexpr std::uint32_t kDeviceGroup = kRoutingProtocol;
/// The kernel builds the answer to a query in less than a page, which has 4 KiB; a member takes up
/// 8 bytes.
inline constexpr std::size_t kMaxQueriedMembers = 400;

/// The kernel's index of each device, by name.
using DeviceIndexes = std::map<std::string, int>;

/// What the kernel reports about a device, ours or not.
struct Link {
  int index = 0;
  std::string name;
  /// As in `ip link ... type`; empty for hardware.
  std::string kind;
  std::uint32_t group = 0;
  /// The device below it and the VRF it belongs to; 0 for none.
  int parent = 0;
  int master = 0;
  MacAddress address{};
  std::uint32_t mtu = 0;
  std::string alias;
  bool up = false;
  /// Up, and with a carrier.
  bool running = false;
  bool forwards_ipv4 = false;
  /// Absent if the device has no IPv6, as with an MTU below 1280.
  struct Ipv6 {
    bool forwards = false;
    bool disabled = false;
    /// Generates a link-local address when it comes up.
    bool generates_addresses = false;
  };
  std::optional<Ipv6> ipv6;
  /// For an 802.1Q subinterface only.
  std::uint16_t tag = 0;
  /// For a VRF only.
  std::uint32_t table = 0;
};

/// A neighbour with our mark.
struct NeighbourEntry {
  int device = 0;
  Ipv6Address address{};
  MacAddress mac{};
  bool permanent = false;
};

struct NexthopEntry {
  std::uint32_t id = 0;
  std::uint8_t protocol = 0;
  /// The device's index; 0 for a blackhole and a group.
  int device = 0;
  /// In a `DeviceNexthop`, the device's name is still empty.
  KernelNexthop nexthop;
};

/// Request one object.
void WriteLinkQuery(const std::string& name, MessageBatch* batch);
void WriteNeighbourQuery(int device, const Ipv6Address& address, MessageBatch* batch);
/// The kernel cannot answer for a group of more than `kMaxQueriedMembers`.
void WriteNexthopQuery(std::uint32_t id, MessageBatch* batch);
/// Request all objects of a type.
void WriteLinkDump(MessageBatch* batch);
void WriteNeighbourDump(MessageBatch* batch);
void WriteNexthopDump(MessageBatch* batch);
/// IPv4 and IPv6, each with a message of its own.
void WriteIpv4RouteDump(MessageBatch* batch);
void WriteIpv6RouteDump(MessageBatch* batch);

/// Creates the device, down. The kernel accepts the other settings only afterwards: see
/// `WriteDeviceChange`.
void WriteNewDevice(const std::string& name, const KernelDevice& device,
                    const DeviceIndexes& indexes, MessageBatch* batch);
/// Sets what differs and can change in place.
void WriteDeviceChange(const Link& present, const KernelDevice& device,
                       const DeviceIndexes& indexes, MessageBatch* batch);
void WriteDeviceUp(int index, MessageBatch* batch);
void WriteDeviceRemoval(int index, MessageBatch* batch);

/// Adds or replaces a permanent neighbour.
void WriteNeighbour(int device, const Ipv6Address& address, const MacAddress& mac,
                    MessageBatch* batch);
void WriteNeighbourRemoval(int device, const Ipv6Address& address, MessageBatch* batch);

/// Adds a next hop. The kernel refuses an id in use unless `replace` is set. `device` is the index
/// of a `DeviceNexthop`'s device; a group has at most `kMaxMembers`.
void WriteNexthop(std::uint32_t id, const KernelNexthop& nexthop, int device, bool replace,
                  MessageBatch* batch);
void WriteNexthopRemoval(std::uint32_t id, MessageBatch* batch);

/// RTM_NEWLINK.
Link ReadLink(const nlmsghdr& message);
/// RTM_NEWNEIGH, RTM_DELNEIGH; empty for a neighbour without our mark.
std::optional<NeighbourEntry> ReadNeighbour(const nlmsghdr& message);
/// RTM_NEWNEXTHOP, RTM_DELNEXTHOP.
NexthopEntry ReadNexthop(const nlmsghdr& message);

/// RTM_NEWROUTE: the id of the route's next hop; 0 for a route without one.
std::uint32_t ReadNexthopOfRoute(const nlmsghdr& message);

/// Whether to forward packets that arrive on the device; empty to leave the setting alone.
std::optional<bool> ForwardingOf(const KernelDevice& device);

/// The device as an object; empty if it is not ours. `names` has the names of all devices, by
/// index.
std::optional<KernelDevice> OurDevice(const Link& link, const std::map<int, std::string>& names);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_MESSAGES_H_
