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

// Calls `use` for each id that is paired with `first`.
template <typename Use>
void ForEachPaired(const std::set<std::pair<std::uint32_t, std::uint32_t>>& pairs,
                   std::uint32_t first, Use use) {
  for (auto it = pairs.lower_bound({first, 0}); it != pairs.end() && it->first == first; ++it) {
    use(it->second);
  }
}

// Records an object's value before its first change.
template <typename Key, typename Value>
void Note(const std::map<Key, Value>& objects, const Key& key,
          std::map<Key, std::optional<Value>>* former) {
  const auto [place, added] = former->try_emplace(key);
  if (!added) return;
  const auto object = objects.find(key);
  if (object != objects.end()) place->second = object->second;
}

template <typename Key, typename Value>
void Set(const Key& key, std::optional<Value> value, std::map<Key, Value>* objects,
         std::map<Key, std::optional<Value>>* former) {
  Note(*objects, key, former);
  if (value) {
    objects->insert_or_assign(key, *std::move(value));
  } else {
    objects->erase(key);
  }
}

// Moves what has changed into the maps of its former and its present values.
template <typename Key, typename Value>
void Move(std::map<Key, std::optional<Value>>* former, const std::map<Key, Value>& objects,
          std::map<Key, Value>* before, std::map<Key, Value>* after) {
  for (auto& [key, value] : *former) {
    if (value) before->emplace_hint(before->end(), key, *std::move(value));
    const auto object = objects.find(key);
    if (object != objects.end()) after->emplace_hint(after->end(), key, object->second);
  }
  former->clear();
}

template <typename Key, typename Value>
void Overwrite(const std::map<Key, Value>& part, const std::map<Key, Value>& present,
               std::map<Key, std::optional<Value>>* former) {
  for (const auto& [key, value] : part) {
    const auto object = present.find(key);
    (*former)[key] = object == present.end() ? std::nullopt : std::optional(object->second);
  }
}

}  // namespace

Translation::Translation(InterfaceNames interfaces, std::set<std::string> devices)
    : interfaces_(std::move(interfaces)), devices_(std::move(devices)) {}

HalReturnCode Translation::Store(HalKind kind, std::uint32_t id,
                                 const google::protobuf::Message& message) {
  if (kind == HalKind::kVrf) return StoreVrf(id);
  if (id == kDropNexthop) return kHalNotSupported;
  const auto stored = entries_.find(id);
  std::optional<Entry> before;
  if (stored != entries_.end()) {
    if (stored->second.kind != kind) return kHalExists;
    before = stored->second;
  }
  Entry entry{kind, {}};
  const HalReturnCode code = Read(message, kind, &entry);
  if (code != kHalSuccess) return code;
  Set(id, std::move(entry));
  const HalReturnCode translated = Translate(id);
  if (translated == kHalSuccess) return kHalSuccess;
  Set(id, std::move(before));
  Translate(id);
  return translated;
}

void Translation::Remove(HalKind kind, std::uint32_t id) {
  if (kind == HalKind::kVrf) return RemoveVrf(id);
  const auto stored = entries_.find(id);
  if (stored == entries_.end() || stored->second.kind != kind) return;
  Set(id, std::nullopt);
  Translate(id);
}

HalReturnCode Translation::StoreVrf(std::uint32_t vrf) {
  if (IsKernelTable(vrf)) return kHalNotSupported;
  if (vrfs_.insert(vrf).second) UseVrf(vrf);
  return kHalSuccess;
}

void Translation::RemoveVrf(std::uint32_t vrf) {
  if (vrfs_.erase(vrf) != 0 && vrf != 0) ReleaseDevice(VrfDeviceName(vrf));
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
  entry->content = std::move(vlan);
  return kHalSuccess;
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
  for (const std::uint32_t id : message.members()) {
    if (++group.members[id] > kMaxWeight) return kHalNotSupported;
  }
  if (group.members.size() > kMaxMembers) return kHalNotSupported;
  entry->content = std::move(group);
  return kHalSuccess;
}

void Translation::Set(std::uint32_t id, std::optional<Entry> entry) {
  const auto stored = entries_.find(id);
  if (stored != entries_.end()) Index(id, stored->second, false);
  if (!entry) {
    if (stored != entries_.end()) entries_.erase(stored);
    return;
  }
  Index(id, *entry, true);
  entries_.insert_or_assign(id, *std::move(entry));
}

void Translation::Index(std::uint32_t id, const Entry& entry, bool add) {
  const auto change = [add](auto* pairs, std::uint32_t first, std::uint32_t second) {
    if (add) {
      pairs->emplace(first, second);
    } else {
      pairs->erase({first, second});
    }
  };
  if (const auto* const rider = std::get_if<Rider>(&entry.content)) {
    if (rider->below != 0) change(&riders_, rider->below, id);
  } else if (const auto* const group = std::get_if<Group>(&entry.content)) {
    for (const auto& [member, weight] : group->members) change(&groups_, member, id);
  }
}

HalReturnCode Translation::Translate(std::uint32_t id) {
  std::vector<std::uint32_t> affected = {id};
  std::set<std::uint32_t> seen = {id};
  for (std::size_t i = 0; i < affected.size(); ++i) {
    ForEachPaired(riders_, affected[i], [&](std::uint32_t rider) {
      if (seen.insert(rider).second) affected.push_back(rider);
    });
  }
  // Groups come last, because they depend on their members' next hops.
  const std::size_t destinations = affected.size();
  for (std::size_t i = 0; i < destinations; ++i) {
    ForEachPaired(groups_, affected[i], [&](std::uint32_t group) {
      if (seen.insert(group).second) affected.push_back(group);
    });
  }
  for (const std::uint32_t one : affected) {
    const HalReturnCode code = TranslateOne(one);
    if (code != kHalSuccess) return code;
  }
  return kHalSuccess;
}

HalReturnCode Translation::TranslateOne(std::uint32_t id) {
  Withdraw(id);
  const auto entry = entries_.find(id);
  if (entry == entries_.end()) return kHalSuccess;
  if (const auto* const vlan = std::get_if<Vlan>(&entry->second.content)) {
    TranslateVlan(id, *vlan);
  } else if (const auto* const group = std::get_if<Group>(&entry->second.content)) {
    TranslateGroup(id, *group);
  } else {
    return TranslateRider(id, entry->second);
  }
  return kHalSuccess;
}

void Translation::TranslateVlan(std::uint32_t id, const Vlan& vlan) {
  if (vlan.made_parent) UseDevice(vlan.device.parent, *vlan.made_parent);
  // Even if the VRF has no entry, so that the main table never routes its packets.
  UseVrf(vlan.vrf);
  const std::string name = DestinationDevice(id);
  SetDevice(name, vlan.device);
  SetNexthop(id, DeviceNexthop{name, {}, {}});
}

HalReturnCode Translation::TranslateRider(std::uint32_t id, const Entry& entry) {
  Hop hop;
  const HalReturnCode code = FindHop(id, entry, &hop);
  if (code != kHalSuccess) return code;
  if (const auto* const out = std::get_if<DeviceNexthop>(&hop.nexthop)) {
    if (hop.neighbour) {
      SetNeighbour({out->device, out->gateway}, hop.neighbour);
    } else {
      UseDevice(out->device, DummyDevice{});
    }
  }
  SetNexthop(id, std::move(hop.nexthop));
  return kHalSuccess;
}

HalReturnCode Translation::FindHop(std::uint32_t id, const Entry& entry, Hop* hop) const {
  const auto& rider = std::get<Rider>(entry.content);
  const Hop to_cpu{DeviceNexthop{std::string(kCpuDevice), {}, {}}, std::nullopt};
  *hop = {BlackholeNexthop{}, std::nullopt};
  // Its own label is the innermost; each tunnel's labels go in front.
  std::vector<std::uint32_t> labels;
  std::optional<MacAddress> mac;
  const Rider* at = &rider;
  // The limit also breaks a loop of tunnels.
  for (std::size_t tunnels = 0; tunnels <= kMaxTunnels; ++tunnels) {
    if (at->fate == Fate::kDrop) return kHalSuccess;
    if (at->fate == Fate::kToCpu || at->below == 0) {
      *hop = to_cpu;
      return kHalSuccess;
    }
    labels.insert(labels.begin(), at->labels.begin(), at->labels.end());
    if (labels.size() > kMaxLabels) return kHalNotSupported;
    if (!mac) mac = at->mac;
    const auto below = entries_.find(at->below);
    if (below == entries_.end()) return kHalSuccess;
    if (below->second.kind == HalKind::kVlan) {
      if (!mac) {
        *hop = to_cpu;
      } else {
        *hop = {DeviceNexthop{DestinationDevice(at->below), NeighbourAddress(id), labels}, mac};
      }
      return kHalSuccess;
    }
    if (entry.kind != HalKind::kMpls || below->second.kind != HalKind::kMpls) return kHalSuccess;
    at = &std::get<Rider>(below->second.content);
  }
  return kHalNotSupported;
}

void Translation::TranslateGroup(std::uint32_t id, const Group& group) {
  NexthopGroup nexthops;
  for (const auto& [member, weight] : group.members) {
    const auto nexthop = objects_.nexthops.find(member);
    if (nexthop == objects_.nexthops.end()) continue;
    if (!std::holds_alternative<DeviceNexthop>(nexthop->second)) continue;
    nexthops.members.emplace(member, static_cast<std::uint16_t>(weight));
  }
  if (nexthops.members.empty()) {
    nexthops.members.emplace(kDropNexthop, 1);
    if (++drop_users_ == 1) SetNexthop(kDropNexthop, BlackholeNexthop{});
  }
  SetNexthop(id, std::move(nexthops));
}

void Translation::Withdraw(std::uint32_t id) {
  const auto nexthop = objects_.nexthops.find(id);
  if (nexthop == objects_.nexthops.end()) return;
  if (const auto* const out = std::get_if<DeviceNexthop>(&nexthop->second)) {
    const std::string device = out->device;
    if (device == kCpuDevice) {
      ReleaseDevice(device);
    } else if (out->gateway != Ipv6Address{}) {
      SetNeighbour({device, out->gateway}, std::nullopt);
    } else {
      const auto macvlan = std::get<MacvlanDevice>(objects_.devices.at(device));
      SetDevice(device, std::nullopt);
      if (devices_.count(macvlan.parent) == 0) ReleaseDevice(macvlan.parent);
      if (!macvlan.master.empty()) ReleaseDevice(macvlan.master);
    }
  } else if (const auto* const group = std::get_if<NexthopGroup>(&nexthop->second)) {
    // A transition may have to park the group on it.
    Note(objects_.nexthops, kDropNexthop, &former_nexthops_);
    if (group->members.count(kDropNexthop) != 0 && --drop_users_ == 0) {
      SetNexthop(kDropNexthop, std::nullopt);
    }
  }
  SetNexthop(id, std::nullopt);
}

void Translation::UseDevice(const std::string& name, const KernelDevice& device) {
  if (++device_users_[name] == 1) SetDevice(name, device);
}

void Translation::ReleaseDevice(const std::string& name) {
  const auto users = device_users_.find(name);
  if (--users->second != 0) return;
  device_users_.erase(users);
  SetDevice(name, std::nullopt);
}

void Translation::UseVrf(std::uint32_t vrf) {
  if (vrf != 0) UseDevice(VrfDeviceName(vrf), VrfDevice{vrf});
}

void Translation::SetDevice(const std::string& name, std::optional<KernelDevice> device) {
  reference::Set(name, std::move(device), &objects_.devices, &former_devices_);
}

void Translation::SetNeighbour(const NeighbourKey& key, std::optional<MacAddress> address) {
  reference::Set(key, address, &objects_.neighbours, &former_neighbours_);
}

void Translation::SetNexthop(std::uint32_t id, std::optional<KernelNexthop> nexthop) {
  reference::Set(id, std::move(nexthop), &objects_.nexthops, &former_nexthops_);
}

Transition Translation::Take() {
  Transition taken;
  Move(&former_devices_, objects_.devices, &taken.before.devices, &taken.after.devices);
  Move(&former_neighbours_, objects_.neighbours, &taken.before.neighbours, &taken.after.neighbours);
  Move(&former_nexthops_, objects_.nexthops, &taken.before.nexthops, &taken.after.nexthops);
  return taken;
}

void Translation::PutBack(const Transition& transition, const KernelObjects& present) {
  for (const KernelObjects* const part : {&transition.before, &transition.after}) {
    Overwrite(part->devices, present.devices, &former_devices_);
    Overwrite(part->neighbours, present.neighbours, &former_neighbours_);
    Overwrite(part->nexthops, present.nexthops, &former_nexthops_);
  }
  Overwrite(present.devices, present.devices, &former_devices_);
  Overwrite(present.neighbours, present.neighbours, &former_neighbours_);
  Overwrite(present.nexthops, present.nexthops, &former_nexthops_);
}

}  // namespace reference
