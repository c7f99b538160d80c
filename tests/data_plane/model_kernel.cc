#include "tests/data_plane/model_kernel.h"

#include <algorithm>
#include <variant>

namespace reference {

using Refusal = std::optional<std::string>;

Refusal ModelKernel::Write(const KernelChange& change) {
  Refusal refusal = std::visit([this](const auto& one) { return Check(one); }, change);
  if (!refusal) Apply(change, &objects_);
  return refusal;
}

Refusal ModelKernel::Check(const PutDevice& put) const {
  if (devices_.count(put.name) != 0) return put.name + " is not ours";
  const auto present = objects_.devices.find(put.name);
  if (present == objects_.devices.end()) {
    return put.before ? Refusal(put.name + " does not exist") : CheckNew(put.device);
  }
  if (!put.before) return put.name + " exists";
  if (!(*put.before == present->second)) return put.name + " is another one";
  const auto* const before = std::get_if<MacvlanDevice>(&*put.before);
  const auto* const after = std::get_if<MacvlanDevice>(&put.device);
  if (before == nullptr || after == nullptr) return put.name + " cannot change in place";
  if (before->parent != after->parent) return put.name + ": another parent";
  if (before->master != after->master) return put.name + ": another master";
  if (*before == *after) return put.name + ": nothing to write";
  return std::nullopt;
}

Refusal ModelKernel::CheckNew(const KernelDevice& device) const {
  if (const auto* const tagged = std::get_if<TaggedDevice>(&device)) {
    if (devices_.count(tagged->parent) == 0) return "no parent " + tagged->parent;
  }
  if (const auto* const macvlan = std::get_if<MacvlanDevice>(&device)) {
    if (!HasDevice(macvlan->parent)) return "no parent " + macvlan->parent;
    if (!macvlan->master.empty() && objects_.devices.count(macvlan->master) == 0) {
      return "no master " + macvlan->master;
    }
  }
  return std::nullopt;
}

Refusal ModelKernel::Check(const RemoveDevice& removed) const {
  if (objects_.devices.count(removed.name) == 0) return removed.name + " does not exist";
  for (const auto& [name, device] : objects_.devices) {
    const auto* const tagged = std::get_if<TaggedDevice>(&device);
    const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
    if ((tagged != nullptr && tagged->parent == removed.name) ||
        (macvlan != nullptr &&
         (macvlan->parent == removed.name || macvlan->master == removed.name))) {
      return removed.name + ": " + name + " is on it";
    }
  }
  for (const auto& [key, address] : objects_.neighbours) {
    if (key.first == removed.name) return removed.name + ": a neighbour is on it";
  }
  for (const auto& [id, nexthop] : objects_.nexthops) {
    const auto* const out = std::get_if<DeviceNexthop>(&nexthop);
    if (out != nullptr && out->device == removed.name) {
      return removed.name + ": next hop " + std::to_string(id) + " is on it";
    }
  }
  return std::nullopt;
}

Refusal ModelKernel::Check(const PutNeighbour& put) const {
  if (objects_.devices.count(put.key.first) == 0) return "no device " + put.key.first;
  return std::nullopt;
}

Refusal ModelKernel::Check(const RemoveNeighbour& removed) const {
  if (objects_.neighbours.count(removed.key) == 0) return "no such neighbour";
  for (const auto& [id, nexthop] : objects_.nexthops) {
    const auto* const out = std::get_if<DeviceNexthop>(&nexthop);
    if (out != nullptr && out->device == removed.key.first && out->gateway == removed.key.second) {
      return "next hop " + std::to_string(id) + " uses the neighbour";
    }
  }
  return std::nullopt;
}

Refusal ModelKernel::Check(const PutNexthop& put) const {
  const std::string name = "next hop " + std::to_string(put.id);
  const auto present = objects_.nexthops.find(put.id);
  if (present != objects_.nexthops.end()) {
    if (present->second == put.nexthop) return name + ": nothing to write";
    if (std::holds_alternative<NexthopGroup>(present->second) !=
        std::holds_alternative<NexthopGroup>(put.nexthop)) {
      return name + ": a group cannot replace a next hop, nor the other way round";
    }
  }
  if (std::holds_alternative<BlackholeNexthop>(put.nexthop)) {
    if (InGroupOfSeveral(put.id)) return name + ": a blackhole in a group of several";
    return std::nullopt;
  }
  const Refusal refusal = std::holds_alternative<DeviceNexthop>(put.nexthop)
                              ? CheckNew(std::get<DeviceNexthop>(put.nexthop))
                              : CheckNew(std::get<NexthopGroup>(put.nexthop));
  return refusal ? Refusal(name + ": " + *refusal) : std::nullopt;
}

Refusal ModelKernel::CheckNew(const DeviceNexthop& nexthop) const {
  if (objects_.devices.count(nexthop.device) == 0) return "no device " + nexthop.device;
  if (nexthop.labels.size() > kMaxLabels) return "too many labels";
  if (nexthop.gateway != Ipv6Address{} &&
      objects_.neighbours.count({nexthop.device, nexthop.gateway}) == 0) {
    return "no neighbour";
  }
  return std::nullopt;
}

Refusal ModelKernel::CheckNew(const NexthopGroup& group) const {
  if (group.members.empty() || group.members.size() > kMaxMembers) return "number of members";
  for (const auto& [id, weight] : group.members) {
    if (weight == 0 || weight > kMaxWeight) return "weight";
    const auto member = objects_.nexthops.find(id);
    if (member == objects_.nexthops.end()) return "no member " + std::to_string(id);
    if (std::holds_alternative<NexthopGroup>(member->second)) return "a group in a group";
    if (std::holds_alternative<BlackholeNexthop>(member->second) && group.members.size() > 1) {
      return "a blackhole in a group of several";
    }
  }
  return std::nullopt;
}

Refusal ModelKernel::Check(const RemoveNexthop& removed) const {
  const std::string name = "next hop " + std::to_string(removed.id);
  if (objects_.nexthops.count(removed.id) == 0) return name + " does not exist";
  for (const auto& [id, nexthop] : objects_.nexthops) {
    const auto* const group = std::get_if<NexthopGroup>(&nexthop);
    if (group != nullptr && HasMember(*group, removed.id)) {
      return name + " is in group " + std::to_string(id);
    }
  }
  return std::nullopt;
}

bool ModelKernel::InGroupOfSeveral(std::uint32_t id) const {
  return std::any_of(objects_.nexthops.begin(), objects_.nexthops.end(), [id](const auto& entry) {
    const auto* const group = std::get_if<NexthopGroup>(&entry.second);
    return group != nullptr && group->members.size() > 1 && HasMember(*group, id);
  });
}

Refusal WriteAll(const std::vector<KernelChange>& changes, ModelKernel* kernel) {
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const Refusal refusal = kernel->Write(changes[i]);
    if (refusal) return "change " + std::to_string(i) + ": " + *refusal;
  }
  return std::nullopt;
}

}  // namespace reference
