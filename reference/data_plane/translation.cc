#include "reference/data_plane/translation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace reference {
namespace {

// The kernel's own tables: default, main and local.
constexpr std::uint32_t kFirstKernelTable = 253;
constexpr std::uint32_t kLastKernelTable = 255;
// With a smaller MTU, the kernel switches IPv6 off on the device, but all next hops are IPv6.
constexpr std::uint32_t kLeastMtu = 1280;
constexpr std::size_t kMaxAlias = 255;
constexpr std::size_t kMaxTunnels = 30;
constexpr std::uint32_t kMaxTag = 4094;
constexpr std::size_t kMaxTagDigits = 4;

bool IsKernelTable(std::uint32_t vrf) {
  return vrf >= kFirstKernelTable && vrf <= kLastKernelTable;
}

bool ReadMac(const std::string& bytes, std::optional<MacAddress>* mac) {
  MacAddress address{};
  if (bytes.size() != address.size()) return false;
  std::memcpy(address.data(), bytes.data(), address.size());
  *mac = address;
  return true;
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
    : interfaces_(std::move(interfaces)), devices_(std::move(devices)) {}

HalReturnCode Translation::Store(HalKind kind, std::uint32_t id,
                                 const google::protobuf::Message& message) {
  if (kind == HalKind::kVrf) {
    if (IsKernelTable(id)) return kHalNotSupported;
    if (vrfs_.insert(id).second) UseVrf(id, true);
    return kHalSuccess;
  }
  if (id == kDropNexthop) return kHalNotSupported;
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

HalReturnCode Translation::Read(const google::protobuf::Message& message, HalKind kind,
                                Entry* entry) const {
  if (kind == HalKind::kVlan) {
    return ReadVlan(static_cast<const encapsulation::VlanMessage&>(message), entry);
  }
  if (kind == HalKind::kHost) {
    return ReadHost(static_cast<const encapsulation::HostMessage&>(message), entry);
  }
  if (kind == HalKind::kMpls) {
    return ReadMpls(static_cast<const encapsulation::MplsMessage&>(message), entry);
  }
  return ReadEcmp(static_cast<const encapsulation::EcmpMessage&>(message), entry);
}

HalReturnCode Translation::ReadVlan(const encapsulation::VlanMessage& message, Entry* entry) const {
  Vlan vlan;
  const HalReturnCode code = FindParent(message.lim_id(), &vlan);
  if (code != kHalSuccess) return code;
  vlan.vrf = message.vrf();
  if (IsKernelTable(vlan.vrf)) return kHalNotSupported;
  if (vlan.vrf != 0) vlan.device.master = VrfDeviceName(vlan.vrf);
  std::optional<MacAddress> mac = OwnMac(message.vlan_destination_id());
  if (message.has_source_mac_address() && !ReadMac(message.source_mac_address(), &mac)) {
    return kHalNotSupported;
  }
  vlan.device.address = *mac;
  vlan.device.mtu = message.mtu();
  if (vlan.device.mtu != 0 && vlan.device.mtu < kLeastMtu) return kHalNotSupported;
  const auto& capabilities = message.capabilities();
  vlan.device.forwarding = std::find(capabilities.begin(), capabilities.end(),
                                     encapsulation::VLAN_CAPABILITY_ROUTED) != capabilities.end();
  for (const std::string& value : message.list_values()) {
    if (!vlan.device.alias.empty()) vlan.device.alias += ' ';
    vlan.device.alias += value;
  }
  const std::string& alias = vlan.device.alias;
  if (alias.size() > kMaxAlias || alias.find('\0') != std::string::npos) return kHalNotSupported;
  entry->content = std::make_unique<const Vlan>(std::move(vlan));
  return kHalSuccess;
}

std::optional<HalKind> Translation::KindOfDestination(std::uint32_t id) const {
  const auto entry = entries_.find(id);
  if (entry == entries_.end()) return std::nullopt;
  return entry->second.kind;
}

HalReturnCode Translation::FindParent(const std::string& lim_id, Vlan* vlan) const {
  std::uint32_t lim = 0;
  if (lim_id.size() < sizeof lim) return kHalNoInterface;
  std::memcpy(&lim, lim_id.data(), sizeof lim);
  const auto name = interfaces_.find(lim);
  if (name == interfaces_.end()) return kHalNoInterface;
  vlan->device.parent = name->second;
  if (devices_.count(name->second) != 0) return kHalSuccess;
  vlan->made_parent = ReadTagged(name->second);
  if (!vlan->made_parent || devices_.count(vlan->made_parent->parent) == 0) return kHalNoInterface;
  return kHalSuccess;
}

HalReturnCode Translation::ReadHost(const encapsulation::HostMessage& message, Entry* entry) {
  Rider host;
  host.below = message.vlan_dest_id();
  if (message.has_dest_mac() && !ReadMac(message.dest_mac(), &host.mac)) return kHalNotSupported;
  for (const int flag : message.flags()) {
    if (flag == encapsulation::ACTION_DROP) host.fate = Fate::kDrop;
    if (flag == encapsulation::ACTION_TO_CPU && host.fate != Fate::kDrop) host.fate = Fate::kToCpu;
  }
  entry->content = std::move(host);
  return kHalSuccess;
}

HalReturnCode Translation::ReadMpls(const encapsulation::MplsMessage& message, Entry* entry) {
  Rider mpls;
  mpls.below = message.vlan_tunnel_dest_id();
  if (message.has_dest_mac() && !ReadMac(message.dest_mac(), &mpls.mac)) return kHalNotSupported;
  if (message.flag() == encapsulation::ACTION_DROP) mpls.fate = Fate::kDrop;
  if (message.flag() == encapsulation::ACTION_TO_CPU) mpls.fate = Fate::kToCpu;
  mpls.labels.assign(message.labels().begin(), message.labels().end());
  entry->content = std::move(mpls);
  return kHalSuccess;
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
    if (++group.members.back().second > kMaxWeight) return kHalNotSupported;
  }
  if (group.members.size() > kMaxMembers) return kHalNotSupported;
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
  if (!hop) return kHalNotSupported;
  if (entry->second.kind == HalKind::kVlan) {
    const auto& vlan = *std::get<std::unique_ptr<const Vlan>>(entry->second.content);
    if (vlan.made_parent) UseDevice(vlan.device.parent, *vlan.made_parent, add);
    // Even if the VRF has no entry, so that the main table never routes its packets.
    UseVrf(vlan.vrf, add);
    Record<std::string, KernelDevice>(DestinationDevice(id), vlan.device, add, &changed_devices_);
  } else if (const auto* const group = std::get_if<NexthopGroup>(&hop->nexthop)) {
    UseDropNexthop(HasMember(*group, kDropNexthop), add);
  } else if (const auto* const out = std::get_if<DeviceNexthop>(&hop->nexthop)) {
    if (hop->neighbour) {
      Record({out->device, out->gateway}, *hop->neighbour, add, &changed_neighbours_);
    } else {
      UseDevice(out->device, DummyDevice{}, add);
    }
  }
  Record(id, std::move(hop->nexthop), add, &changed_nexthops_);
  return kHalSuccess;
}

void Translation::UseDevice(const std::string& name, const KernelDevice& device, bool add) {
  const auto shared = shared_devices_.try_emplace(name, SharedDevice{device, 0}).first;
  std::size_t& users = shared->second.users;
  const bool changes = users == (add ? 0 : 1);
  users = add ? users + 1 : users - 1;
  if (users == 0) shared_devices_.erase(shared);
  if (changes) Record(name, device, add, &changed_devices_);
}

void Translation::UseVrf(std::uint32_t vrf, bool add) {
  if (vrf != 0) UseDevice(VrfDeviceName(vrf), VrfDevice{vrf}, add);
}

void Translation::UseDropNexthop(bool drops, bool add) {
  // Part of the transition in any case: it may have to park the group there.
  const auto [place, first] = changed_nexthops_.try_emplace(kDropNexthop);
  if (first) place->second.before = DropNexthop();
  if (drops) drop_users_ = add ? drop_users_ + 1 : drop_users_ - 1;
  place->second.after = DropNexthop();
}

std::optional<KernelNexthop> Translation::DropNexthop() const {
  if (drop_users_ == 0) return std::nullopt;
  return BlackholeNexthop{};
}

KernelObjects Translation::Objects() const {
  KernelObjects objects;
  for (const auto& [name, shared] : shared_devices_) objects.devices.emplace(name, shared.device);
  if (const auto drop = DropNexthop()) objects.nexthops.emplace(kDropNexthop, *drop);
  for (const auto& [id, entry] : entries_) {
    std::optional<Hop> hop = HopOf(id, entry);
    if (const auto* const vlan = std::get_if<std::unique_ptr<const Vlan>>(&entry.content)) {
      objects.devices.emplace(DestinationDevice(id), (*vlan)->device);
    }
    if (hop->neighbour) {
      const auto& out = std::get<DeviceNexthop>(hop->nexthop);
      objects.neighbours.emplace(NeighbourKey(out.device, out.gateway), *hop->neighbour);
    }
    objects.nexthops.emplace(id, std::move(hop->nexthop));
  }
  return objects;
}

Transition Translation::Take() {
  Transition taken;
  MoveChanges(&changed_devices_, &taken.before.devices, &taken.after.devices);
  MoveChanges(&changed_neighbours_, &taken.before.neighbours, &taken.after.neighbours);
  MoveChanges(&changed_nexthops_, &taken.before.nexthops, &taken.after.nexthops);
  return taken;
}

void Translation::PutBack(const Transition& transition) {
  const auto& [before, after] = transition;
  PutBackChanges(before.devices, after.devices, &changed_devices_);
  PutBackChanges(before.neighbours, after.neighbours, &changed_neighbours_);
  PutBackChanges(before.nexthops, after.nexthops, &changed_nexthops_);
  // The kernel may have it although nothing in the transition concerns it.
  const auto drop = changed_nexthops_.find(kDropNexthop);
  if (drop != changed_nexthops_.end()) drop->second.after = DropNexthop();
}

// Records that an object comes or goes.
template <typename Key, typename Value>
void Translation::Record(const Key& key, Value value, bool add, Changes<Key, Value>* changes) {
  const auto [place, first] = changes->try_emplace(key);
  Changed<Value>& change = place->second;
  if (add) {
    change.after = std::move(value);
  } else if (first) {
    change.before = std::move(value);
  } else {
    change.after.reset();
  }
}

template <typename Key, typename Value>
void Translation::MoveChanges(Changes<Key, Value>* changes, std::map<Key, Value>* before,
                              std::map<Key, Value>* after) {
  for (auto& [key, change] : *changes) {
    if (change.before) before->emplace_hint(before->end(), key, *std::move(change.before));
    if (change.after) after->emplace_hint(after->end(), key, *std::move(change.after));
  }
  changes->clear();
}

template <typename Key, typename Value>
void Translation::PutBackChanges(const std::map<Key, Value>& before,
                                 const std::map<Key, Value>& after, Changes<Key, Value>* changes) {
  for (const auto& [key, value] : before) (*changes)[key].before = value;
  for (const auto& [key, value] : after) (*changes)[key].after = value;
}

}  // namespace reference
