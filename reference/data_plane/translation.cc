#include "reference/data_plane/translation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace reference {
namespace {

// The kernel's own tables: default, main and local.
constexpr std::uint32_t kFirstKernelTable = 253;
constexpr std::uint32_t kLastKernelTable = 255;
constexpr char kKernelTables[] = "VRFs 253 to 255 are the kernel's own tables";
// With a smaller MTU, the kernel switches IPv6 off on the device, but all next hops are IPv6.
constexpr std::uint32_t kLeastMtu = 1280;
constexpr std::size_t kMaxAlias = 255;
constexpr std::size_t kMaxTunnels = 30;
constexpr std::uint32_t kMaxTag = 4094;
constexpr std::size_t kMaxTagDigits = 4;

bool IsKernelTable(std::uint32_t vrf) {
  return vrf >= kFirstKernelTable && vrf <= kLastKernelTable;
}

// A locally administered address, different for each destination.
MacAddress OwnMac(std::uint32_t id) {
  return {0x02,
          0x7A,
          static_cast<std::uint8_t>(id >> 24U),
          static_cast<std::uint8_t>(id >> 16U),
          static_cast<std::uint8_t>(id >> 8U),
          static_cast<std::uint8_t>(id)};
}

// "9000 members, but at most 8191 are possible"
std::string TooMany(std::size_t count, const std::string& what, std::size_t limit) {
  return std::to_string(count) + ' ' + what + ", but at most " + std::to_string(limit) +
         " are possible";
}

// "eth2.20" means tag 20 on eth2.
std::optional<TaggedDevice> ReadTagged(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return std::nullopt;
  const std::string digits = name.substr(dot + 1);
  if (digits.empty() || digits.size() > kMaxTagDigits || digits.front() == '0' ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  const auto tag = static_cast<std::uint32_t>(std::stoul(digits));
  if (tag > kMaxTag) return std::nullopt;
  return TaggedDevice{name.substr(0, dot), static_cast<std::uint16_t>(tag)};
}

}  // namespace

Translation::Translation(InterfaceNames interfaces, std::set<std::string> devices)
    : interfaces_(std::move(interfaces)), devices_(std::move(devices)), present_(devices_) {}

bool Translation::NoteDevices(const std::set<std::string>& devices,
                              const std::set<std::string>& running) {
  std::set<std::string> needed;
  for (const auto& [lim, device] : interfaces_) {
    needed.insert(device);
    if (const auto tagged = ReadTagged(device)) needed.insert(tagged->parent);
  }
  bool came = false;
  std::set<std::string> present_now;
  std::set<std::string> running_now;
  for (const std::string& name : needed) {
    // A subinterface that entries use remains ours, even if another program has replaced it.
    if (devices.count(name) != 0 && shared_devices_.count(name) == 0) {
      devices_.insert(name);
      present_now.insert(name);
      came = came || present_.count(name) == 0;
    }
    if (running.count(name) != 0) {
      running_now.insert(name);
      came = came || running_.count(name) == 0;
    }
  }
  present_ = std::move(present_now);
  running_ = std::move(running_now);
  return came;
}

HalReturnCode Translation::Store(HalKind kind, std::uint32_t id,
                                 const google::protobuf::Message& message) {
  if (kind == HalKind::kVrf) {
    if (IsKernelTable(id)) return Refuse(kHalNotSupported, kKernelTables);
    if (vrfs_.insert(id).second) UseVrf(id, true);
    return kHalSuccess;
  }
  if (id == kDropNexthop) return Refuse(kHalNotSupported, "the id is that of a blackhole");
  const auto stored = entries_.find(id);
  if (stored != entries_.end() && stored->second.kind != kind) return kHalExists;
  std::optional<Entry> entry = Entry{kind, {}};
  HalReturnCode code = Read(message, kind, &*entry);
  if (code != kHalSuccess) return code;
  code = Exchange(id, &entry);
  if (code != kHalSuccess) Exchange(id, &entry);
  return code;
}

void Translation::Remove(HalKind kind, std::uint32_t id) {
  if (kind == HalKind::kVrf) {
    if (vrfs_.erase(id) != 0) UseVrf(id, false);
    return;
  }
  const auto stored = entries_.find(id);
  if (stored == entries_.end() || stored->second.kind != kind) return;
  std::optional<Entry> none;
  Exchange(id, &none);
}

HalReturnCode Translation::Refuse(HalReturnCode code, std::string reason) {
  reason_ = std::move(reason);
  return code;
}

HalReturnCode Translation::Read(const google::protobuf::Message& message, HalKind kind,
                                Entry* entry) {
  switch (kind) {
    case HalKind::kVlan:
      return ReadVlan(static_cast<const encapsulation::VlanMessage&>(message), entry);
    case HalKind::kHost:
      return ReadHost(static_cast<const encapsulation::HostMessage&>(message), entry);
    case HalKind::kMpls:
      return ReadMpls(static_cast<const encapsulation::MplsMessage&>(message), entry);
    case HalKind::kEcmp:
      return ReadEcmp(static_cast<const encapsulation::EcmpMessage&>(message), entry);
    case HalKind::kVrf:
      break;  // Has no content.
  }
  return kHalBadRequest;
}

HalReturnCode Translation::ReadVlan(const encapsulation::VlanMessage& message, Entry* entry) {
  Vlan vlan;
  HalReturnCode code = FindInterface(message.lim_id(), &vlan.lim);
  if (code != kHalSuccess) return code;
  vlan.vrf = message.vrf();
  if (IsKernelTable(vlan.vrf)) return Refuse(kHalNotSupported, kKernelTables);
  std::optional<MacAddress> mac = OwnMac(message.vlan_destination_id());
  if (message.has_source_mac_address()) code = ReadMac(message.source_mac_address(), &mac);
  if (code != kHalSuccess) return code;
  vlan.mac = *mac;
  vlan.mtu = message.mtu();
  if (vlan.mtu != 0 && vlan.mtu < kLeastMtu) {
    return Refuse(kHalNotSupported, "MTU " + std::to_string(vlan.mtu) + "; IPv6 needs at least " +
                                        std::to_string(kLeastMtu));
  }
  const auto& capabilities = message.capabilities();
  vlan.routed = std::find(capabilities.begin(), capabilities.end(),
                          encapsulation::VLAN_CAPABILITY_ROUTED) != capabilities.end();
  for (const std::string& value : message.list_values()) {
    if (!vlan.alias.empty()) vlan.alias += ' ';
    vlan.alias += value;
  }
  if (vlan.alias.size() > kMaxAlias) {
    return Refuse(kHalNotSupported, TooMany(vlan.alias.size(), "bytes of list values", kMaxAlias));
  }
  if (vlan.alias.find('\0') != std::string::npos) {
    return Refuse(kHalNotSupported, "a list value contains a zero byte");
  }
  entry->content = std::make_unique<const Vlan>(std::move(vlan));
  return kHalSuccess;
}

std::optional<HalKind> Translation::KindOfDestination(std::uint32_t id) const {
  const auto entry = entries_.find(id);
  if (entry == entries_.end()) return std::nullopt;
  return entry->second.kind;
}

HalReturnCode Translation::FindInterface(const std::string& lim_id, std::uint32_t* lim) {
  if (lim_id.size() < sizeof *lim) {
    return Refuse(kHalNoInterface, "the lim id is shorter than 4 bytes");
  }
  std::memcpy(lim, lim_id.data(), sizeof *lim);
  const std::string* const device = Find(interfaces_, *lim);
  if (device == nullptr) {
    return Refuse(kHalNoInterface, "no interface has lim id " + std::to_string(*lim));
  }
  if (devices_.count(*device) != 0) return kHalSuccess;
  const std::optional<TaggedDevice> made = ReadTagged(*device);
  if (made && devices_.count(made->parent) != 0) return kHalSuccess;
  return Refuse(kHalNoInterface, "there is no device " + (made ? made->parent : *device));
}

std::optional<TaggedDevice> Translation::MadeDevice(const std::string& device) const {
  return devices_.count(device) != 0 ? std::nullopt : ReadTagged(device);
}

MacvlanDevice Translation::DeviceOf(const Vlan& vlan) const {
  MacvlanDevice device;
  device.parent = interfaces_.at(vlan.lim);
  device.address = vlan.mac;
  device.mtu = vlan.mtu;
  if (vlan.vrf != 0) device.master = VrfDeviceName(vlan.vrf);
  device.forwarding = vlan.routed;
  device.alias = vlan.alias;
  return device;
}

HalReturnCode Translation::ReadMac(const std::string& bytes, std::optional<MacAddress>* mac) {
  MacAddress address{};
  if (bytes.size() != address.size()) {
    return Refuse(kHalNotSupported,
                  "a MAC address has 6 bytes, not " + std::to_string(bytes.size()));
  }
  std::memcpy(address.data(), bytes.data(), address.size());
  *mac = address;
  return kHalSuccess;
}

HalReturnCode Translation::ReadHost(const encapsulation::HostMessage& message, Entry* entry) {
  Rider host;
  host.below = message.vlan_dest_id();
  HalReturnCode code = kHalSuccess;
  if (message.has_dest_mac()) code = ReadMac(message.dest_mac(), &host.mac);
  for (const int flag : message.flags()) {
    if (flag == encapsulation::ACTION_DROP) host.fate = Fate::kDrop;
    if (flag == encapsulation::ACTION_TO_CPU && host.fate != Fate::kDrop) host.fate = Fate::kToCpu;
  }
  entry->content = std::move(host);
  return code;
}

HalReturnCode Translation::ReadMpls(const encapsulation::MplsMessage& message, Entry* entry) {
  Rider mpls;
  mpls.below = message.vlan_tunnel_dest_id();
  HalReturnCode code = kHalSuccess;
  if (message.has_dest_mac()) code = ReadMac(message.dest_mac(), &mpls.mac);
  if (message.flag() == encapsulation::ACTION_DROP) mpls.fate = Fate::kDrop;
  if (message.flag() == encapsulation::ACTION_TO_CPU) mpls.fate = Fate::kToCpu;
  mpls.labels.assign(message.labels().begin(), message.labels().end());
  entry->content = std::move(mpls);
  return code;
}

HalReturnCode Translation::ReadEcmp(const encapsulation::EcmpMessage& message, Entry* entry) {
  Group group;
  std::vector<std::uint32_t> ids(message.members().begin(), message.members().end());
  std::sort(ids.begin(), ids.end());
  group.members.reserve(ids.size());
  for (const std::uint32_t id : ids) {
    if (group.members.empty() || group.members.back().first != id) {
      group.members.emplace_back(id, 0);
    }
    if (++group.members.back().second > kMaxWeight) {
      return Refuse(kHalNotSupported, "member " + std::to_string(id) + " is listed more than " +
                                          std::to_string(kMaxWeight) + " times");
    }
  }
  if (group.members.size() > kMaxMembers) {
    return Refuse(kHalNotSupported, TooMany(group.members.size(), "members", kMaxMembers));
  }
  group.members.shrink_to_fit();
  entry->content = std::move(group);
  return kHalSuccess;
}

HalReturnCode Translation::Exchange(std::uint32_t id, std::optional<Entry>* entry) {
  const std::vector<std::uint32_t> affected = Affected(id);
  for (const std::uint32_t one : affected) Change(one, false);

  std::optional<Entry> former;
  const auto stored = entries_.find(id);
  if (stored != entries_.end()) {
    Index(id, stored->second, false);
    former = std::move(stored->second);
  }
  if (*entry) {
    Index(id, **entry, true);
    entries_.insert_or_assign(id, std::move(**entry));
  } else if (stored != entries_.end()) {
    entries_.erase(stored);
  }
  *entry = std::move(former);

  HalReturnCode code = kHalSuccess;
  for (const std::uint32_t one : affected) {
    if (Change(one, true) != kHalSuccess) code = kHalNotSupported;
  }
  return code;
}

void Translation::Index(std::uint32_t id, const Entry& entry, bool add) {
  const auto change = [id, add](std::uint32_t first, PairSet* pairs) {
    if (add) {
      pairs->Insert({first, id});
    } else {
      pairs->Erase({first, id});
    }
  };
  if (const auto* const rider = std::get_if<Rider>(&entry.content)) {
    if (rider->below != 0) change(rider->below, &riders_);
  } else if (const auto* const group = std::get_if<Group>(&entry.content)) {
    for (const auto& [member, weight] : group->members) change(member, &groups_);
  }
}

std::vector<std::uint32_t> Translation::Affected(std::uint32_t id) const {
  std::vector<std::uint32_t> affected = {id};
  const auto add = [id, &affected](std::uint32_t dependent) {
    if (dependent != id) affected.push_back(dependent);
  };
  // An entry rides on one other at most, so each is found once, and a ring leads back to `id`.
  std::size_t next = 0;
  while (next < affected.size()) riders_.ForEach(affected[next++], add);
  const std::size_t riders = affected.size();
  for (std::size_t i = 0; i < riders; ++i) groups_.ForEach(affected[i], add);
  // A group may have several of them.
  const auto groups = affected.begin() + static_cast<std::ptrdiff_t>(riders);
  std::sort(groups, affected.end());
  affected.erase(std::unique(groups, affected.end()), affected.end());
  return affected;
}

std::optional<Translation::Hop> Translation::HopOf(std::uint32_t id, const Entry& entry) const {
  if (entry.kind == HalKind::kVlan) {
    return Hop{DeviceNexthop{DestinationDevice(id), {}, {}}, std::nullopt};
  }
  if (const auto* const group = std::get_if<Group>(&entry.content)) {
    return Hop{NexthopGroupOf(*group), std::nullopt};
  }
  std::optional<Path> path = PathOf(entry);
  if (!path) return std::nullopt;
  if (path->fate == Fate::kDrop) return Hop{BlackholeNexthop{}, std::nullopt};
  if (path->fate == Fate::kToCpu) {
    return Hop{DeviceNexthop{std::string(kCpuDevice), {}, {}}, std::nullopt};
  }
  return Hop{
      DeviceNexthop{DestinationDevice(path->vlan), NeighbourAddress(id), std::move(path->labels)},
      path->mac};
}

std::optional<Translation::Path> Translation::PathOf(const Entry& entry) const {
  Path path;
  const auto* at = &std::get<Rider>(entry.content);
  // The limit also breaks a loop of tunnels.
  for (std::size_t tunnels = 0; tunnels <= kMaxTunnels; ++tunnels) {
    if (at->fate == Fate::kDrop) return path;
    if (at->fate == Fate::kToCpu || at->below == 0) {
      path.fate = Fate::kToCpu;
      return path;
    }
    // Its own label is the innermost; each tunnel's labels go in front.
    path.labels.insert(path.labels.begin(), at->labels.begin(), at->labels.end());
    if (path.labels.size() > kMaxLabels) return std::nullopt;
    if (!path.mac) path.mac = at->mac;
    const auto below = entries_.find(at->below);
    if (below == entries_.end()) return path;
    if (below->second.kind == HalKind::kVlan) {
      path.fate = path.mac ? Fate::kForward : Fate::kToCpu;
      path.vlan = at->below;
      return path;
    }
    if (entry.kind != HalKind::kMpls || below->second.kind != HalKind::kMpls) return path;
    at = &std::get<Rider>(below->second.content);
  }
  return std::nullopt;
}

NexthopGroup Translation::NexthopGroupOf(const Group& group) const {
  NexthopGroup nexthops;
  nexthops.members.reserve(group.members.size());
  for (const auto& [member, weight] : group.members) {
    if (Forwards(member)) nexthops.members.emplace_back(member, weight);
  }
  if (nexthops.members.empty()) nexthops.members.emplace_back(kDropNexthop, 1);
  return nexthops;
}

// Whether a group may have it as a member: its next hop leads out of a device.
bool Translation::Forwards(std::uint32_t id) const {
  const auto entry = entries_.find(id);
  if (entry == entries_.end() || entry->second.kind == HalKind::kEcmp) return false;
  if (entry->second.kind == HalKind::kVlan) return true;
  const std::optional<Path> path = PathOf(entry->second);
  return path && path->fate != Fate::kDrop;
}

HalReturnCode Translation::Change(std::uint32_t id, bool add) {
  const auto entry = entries_.find(id);
  if (entry == entries_.end()) return kHalSuccess;
  std::optional<Hop> hop = HopOf(id, entry->second);
  if (!hop) {
    return Refuse(kHalNotSupported, "destination " + std::to_string(id) + " would have more than " +
                                        std::to_string(kMaxLabels) +
                                        " labels, or ride on more than " +
                                        std::to_string(kMaxTunnels) + " tunnels");
  }
  if (entry->second.kind == HalKind::kVlan) {
    const auto& vlan = *std::get<std::unique_ptr<const Vlan>>(entry->second.content);
    const MacvlanDevice device = DeviceOf(vlan);
    const auto made = MadeDevice(device.parent);
    if (made) UseDevice(device.parent, *made, add);
    // Even if the VRF has no entry, so that the main table never routes its packets.
    UseVrf(vlan.vrf, add);
    Record(&KernelObjects::devices, DestinationDevice(id), device, add);
  } else if (const auto* const group = std::get_if<NexthopGroup>(&hop->nexthop)) {
    UseDropNexthop(HasMember(*group, kDropNexthop), add);
  } else if (const auto* const out = std::get_if<DeviceNexthop>(&hop->nexthop)) {
    if (hop->neighbour) {
      Record(&KernelObjects::neighbours, {out->device, out->gateway}, *hop->neighbour, add);
    } else {
      UseDevice(out->device, DummyDevice{}, add);
    }
  }
  Record(&KernelObjects::nexthops, id, std::move(hop->nexthop), add);
  return kHalSuccess;
}

void Translation::UseDevice(const std::string& name, const KernelDevice& device, bool add) {
  const auto shared = shared_devices_.try_emplace(name, SharedDevice{device, 0}).first;
  std::size_t& users = shared->second.users;
  const bool changes = users == (add ? 0 : 1);
  users = add ? users + 1 : users - 1;
  if (users == 0) shared_devices_.erase(shared);
  if (changes) Record(&KernelObjects::devices, name, device, add);
}

void Translation::UseVrf(std::uint32_t vrf, bool add) {
  if (vrf != 0) UseDevice(VrfDeviceName(vrf), VrfDevice{vrf}, add);
}

void Translation::UseDropNexthop(bool drops, bool add) {
  if (!dropped_before_) dropped_before_ = drop_users_ != 0;
  if (drops) drop_users_ = add ? drop_users_ + 1 : drop_users_ - 1;
}

KernelObjects Translation::Objects() const {
  KernelObjects objects;
  for (const auto& [name, shared] : shared_devices_) objects.devices.emplace(name, shared.device);
  if (drop_users_ != 0) objects.nexthops.emplace(kDropNexthop, BlackholeNexthop{});
  for (const auto& [id, entry] : entries_) {
    std::optional<Hop> hop = HopOf(id, entry);
    if (const auto* const vlan = std::get_if<std::unique_ptr<const Vlan>>(&entry.content)) {
      objects.devices.emplace(DestinationDevice(id), DeviceOf(**vlan));
    }
    if (hop->neighbour) {
      const auto& out = std::get<DeviceNexthop>(hop->nexthop);
      objects.neighbours.emplace(NeighbourKey(out.device, out.gateway), *hop->neighbour);
    }
    objects.nexthops.emplace(id, std::move(hop->nexthop));
  }
  return objects;
}

KernelObjects Translation::Objects(const ObjectKeys& keys) const {
  KernelObjects objects;
  for (const std::uint32_t id : keys.nexthops) {
    if (id == kDropNexthop && drop_users_ != 0) objects.nexthops.emplace(id, BlackholeNexthop{});
    const auto entry = entries_.find(id);
    if (entry == entries_.end()) continue;
    objects.nexthops.emplace(id, std::move(HopOf(id, entry->second)->nexthop));
  }
  for (const NeighbourKey& key : keys.neighbours) {
    const std::uint32_t id = DestinationOfNeighbour(key.second);
    const auto entry = entries_.find(id);
    if (entry == entries_.end()) continue;
    const std::optional<Hop> hop = HopOf(id, entry->second);
    if (!hop->neighbour) continue;
    const auto& out = std::get<DeviceNexthop>(hop->nexthop);
    if (key == NeighbourKey(out.device, out.gateway)) {
      objects.neighbours.emplace(key, *hop->neighbour);
    }
  }
  return objects;
}

Transition Translation::Take() {
  Transition taken = std::exchange(changes_, {});
  // With each group that changes: the difference may have to park the group there.
  if (dropped_before_) {
    if (*dropped_before_) taken.before.nexthops.emplace(kDropNexthop, BlackholeNexthop{});
    if (drop_users_ != 0) taken.after.nexthops.emplace(kDropNexthop, BlackholeNexthop{});
  }
  dropped_before_.reset();
  return taken;
}

void Translation::PutBack(Transition transition) {
  changes_ = std::move(transition);
  const bool existed = changes_.before.nexthops.erase(kDropNexthop) != 0;
  const bool wanted = changes_.after.nexthops.erase(kDropNexthop) != 0;
  if (existed || wanted) dropped_before_ = existed;
}

// An object that goes has either come since the last `Take` or existed then.
template <typename Map>
void Translation::Record(Map KernelObjects::*objects, const typename Map::key_type& key,
                         typename Map::mapped_type object, bool add) {
  Map& before = changes_.before.*objects;
  Map& after = changes_.after.*objects;
  // Most changes come in ascending order.
  if (add) {
    after.insert_or_assign(after.end(), key, std::move(object));
  } else if (after.erase(key) == 0) {
    before.try_emplace(before.end(), key, std::move(object));
  }
}

}  // namespace reference
