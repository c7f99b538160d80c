#include "reference/data_plane/kernel_objects.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace reference {
namespace {

// The first member whose id is not smaller.
template <typename Members>
auto FindMember(Members* members, std::uint32_t id) {
  return std::lower_bound(
      members->begin(), members->end(), id,
      [](const auto& member, std::uint32_t bound) { return member.first < bound; });
}

// Returns whether the group had it.
bool RemoveMember(std::uint32_t id, NexthopGroup* group) {
  const auto place = FindMember(&group->members, id);
  if (place == group->members.end() || place->first != id) return false;
  group->members.erase(place);
  return true;
}

void RemoveNexthopFrom(std::uint32_t id, KernelObjects* objects) {
  objects->nexthops.erase(id);
  for (auto it = objects->nexthops.begin(); it != objects->nexthops.end();) {
    auto* const group = std::get_if<NexthopGroup>(&it->second);
    const bool emptied = group != nullptr && RemoveMember(id, group) && group->members.empty();
    it = emptied ? objects->nexthops.erase(it) : std::next(it);
  }
}

void DropNeighbours(const std::string& device, KernelObjects* objects) {
  auto& neighbours = objects->neighbours;
  auto it = neighbours.lower_bound({device, {}});
  while (it != neighbours.end() && it->first.first == device) it = neighbours.erase(it);
}

bool IsOn(const KernelDevice& device, const std::string& parent) {
  const auto* const tagged = std::get_if<TaggedDevice>(&device);
  const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
  return (tagged != nullptr && tagged->parent == parent) ||
         (macvlan != nullptr && macvlan->parent == parent);
}

// Recursive: devices stack at most three deep.
void RemoveDeviceFrom(const std::string& name, KernelObjects* objects) {
  objects->devices.erase(name);
  DropNeighbours(name, objects);
  std::vector<std::uint32_t> nexthops;
  for (const auto& [id, nexthop] : objects->nexthops) {
    const auto* const on = std::get_if<DeviceNexthop>(&nexthop);
    if (on != nullptr && on->device == name) nexthops.push_back(id);
  }
  for (const std::uint32_t id : nexthops) RemoveNexthopFrom(id, objects);
  std::vector<std::string> above;
  for (const auto& [other, device] : objects->devices) {
    if (IsOn(device, name)) above.push_back(other);
  }
  for (const std::string& other : above) RemoveDeviceFrom(other, objects);
}

struct Applier {
  KernelObjects* objects;

  void operator()(const PutDevice& put) const {
    if (put.before && HasNewAddress(*put.before, put.device)) DropNeighbours(put.name, objects);
    objects->devices.insert_or_assign(put.name, put.device);
  }
  void operator()(const RemoveDevice& removed) const { RemoveDeviceFrom(removed.name, objects); }
  void operator()(const PutNeighbour& put) const {
    objects->neighbours.insert_or_assign(put.key, put.address);
  }
  void operator()(const RemoveNeighbour& removed) const { objects->neighbours.erase(removed.key); }
  void operator()(const PutNexthop& put) const {
    objects->nexthops.insert_or_assign(put.id, put.nexthop);
  }
  void operator()(const RemoveNexthop& removed) const { RemoveNexthopFrom(removed.id, objects); }
};

}  // namespace

std::string DestinationDevice(std::uint32_t id) { return "zd" + std::to_string(id); }

std::string VrfDeviceName(std::uint32_t vrf) { return "zv" + std::to_string(vrf); }

Ipv6Address NeighbourAddress(std::uint32_t id) {
  Ipv6Address address{0xFE, 0x80};
  for (std::size_t i = 0; i < 4; ++i) {
    address[12 + i] = static_cast<std::uint8_t>(id >> (24 - 8 * i));
  }
  return address;
}

std::uint32_t DestinationOfNeighbour(const Ipv6Address& address) {
  std::uint32_t id = 0;
  for (std::size_t i = 12; i < address.size(); ++i) id = id << 8U | address[i];
  return id;
}

bool HasMember(const NexthopGroup& group, std::uint32_t id) {
  const auto place = FindMember(&group.members, id);
  return place != group.members.end() && place->first == id;
}

bool HasNewAddress(const KernelDevice& before, const KernelDevice& after) {
  const auto* const old_device = std::get_if<MacvlanDevice>(&before);
  const auto* const new_device = std::get_if<MacvlanDevice>(&after);
  return old_device != nullptr && new_device != nullptr &&
         old_device->address != new_device->address;
}

bool operator==(const VrfDevice& a, const VrfDevice& b) { return a.table == b.table; }

bool operator==(const DummyDevice& /*a*/, const DummyDevice& /*b*/) { return true; }

bool operator==(const TaggedDevice& a, const TaggedDevice& b) {
  return std::tie(a.parent, a.tag) == std::tie(b.parent, b.tag);
}

bool operator==(const MacvlanDevice& a, const MacvlanDevice& b) {
  return std::tie(a.parent, a.address, a.mtu, a.master, a.forwarding, a.alias) ==
         std::tie(b.parent, b.address, b.mtu, b.master, b.forwarding, b.alias);
}

bool operator==(const BlackholeNexthop& /*a*/, const BlackholeNexthop& /*b*/) { return true; }

bool operator==(const DeviceNexthop& a, const DeviceNexthop& b) {
  return std::tie(a.device, a.gateway, a.labels) == std::tie(b.device, b.gateway, b.labels);
}

bool operator==(const NexthopGroup& a, const NexthopGroup& b) { return a.members == b.members; }

bool operator==(const KernelObjects& a, const KernelObjects& b) {
  return std::tie(a.devices, a.neighbours, a.nexthops) ==
         std::tie(b.devices, b.neighbours, b.nexthops);
}

void Apply(const KernelChange& change, KernelObjects* objects) {
  std::visit(Applier{objects}, change);
}

}  // namespace reference
