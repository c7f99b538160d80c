#include "reference/data_plane/leftovers.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <utility>
#include <variant>

namespace reference {
namespace {

// Adds the leftovers among the transition's objects to `before`, and keeps in `after` what the
// transition would remove.
template <typename Map>
void Join(const Map& left, Map* before, Map* after) {
  for (const auto& [key, object] : *after) {
    if (const auto* const former = Find(left, key)) before->insert_or_assign(key, *former);
  }
  for (const auto& [key, object] : *before) after->emplace(key, object);
}

template <typename Map>
void Add(const Map& objects, Map* all) {
  all->insert(objects.begin(), objects.end());
}

// Whether the kernel can make the change without a loss of neighbours and next hops on the device.
bool KeepsWhatIsOnIt(const KernelDevice& before, const KernelDevice& after) {
  const auto* const old_device = std::get_if<MacvlanDevice>(&before);
  const auto* const new_device = std::get_if<MacvlanDevice>(&after);
  if (old_device == nullptr || new_device == nullptr) return before == after;
  return std::tie(old_device->parent, old_device->master, old_device->address) ==
         std::tie(new_device->parent, new_device->master, new_device->address);
}

// Two devices on a parent cannot have the same address.
using Addresses = std::set<std::pair<std::string, MacAddress>>;

// The addresses of the devices that are wanted.
Addresses AddressesOf(const KernelObjects& objects, const KernelObjects& wanted) {
  Addresses addresses;
  for (const auto& [name, device] : objects.devices) {
    const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
    if (macvlan == nullptr || wanted.devices.count(name) == 0) continue;
    addresses.emplace(macvlan->parent, macvlan->address);
  }
  return addresses;
}

bool HasAddressOf(const Addresses& addresses, const KernelDevice& device) {
  const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
  return macvlan != nullptr && addresses.count({macvlan->parent, macvlan->address}) != 0;
}

// Whether leftovers outside of the transition may depend on what it changes.
bool Disturbs(const Transition& transition, const KernelObjects& left,
              const KernelObjects& wanted) {
  const auto& [before, after] = transition;
  for (const auto& [name, device] : before.devices) {
    if (!KeepsWhatIsOnIt(device, after.devices.at(name))) return true;
  }
  for (const auto& [id, nexthop] : before.nexthops) {
    const KernelNexthop& next = after.nexthops.at(id);
    if (next.index() != nexthop.index() && !std::holds_alternative<DeviceNexthop>(next)) {
      return true;
    }
  }
  const Addresses taken = AddressesOf(after, wanted);
  return std::any_of(left.devices.begin(), left.devices.end(), [&](const auto& entry) {
    return wanted.devices.count(entry.first) == 0 && HasAddressOf(taken, entry.second);
  });
}

/// Changes the leftovers among the objects so that the kernel can have them beside the wanted ones.
class Fitting {
 public:
  Fitting(const KernelObjects& wanted, KernelObjects* objects)
      : wanted_(wanted), objects_(*objects) {}

  void Fit() {
    FitDevices();
    FitNeighbours();
    FitNexthops();
    FitGroups();
  }

 private:
  void FitDevices() {
    const Addresses taken = AddressesOf(objects_, wanted_);
    for (auto it = objects_.devices.begin(); it != objects_.devices.end();) {
      const bool is_left = wanted_.devices.count(it->first) == 0;
      it = is_left && HasAddressOf(taken, it->second) ? objects_.devices.erase(it) : std::next(it);
    }
  }

  bool HasDevice(const std::string& name) const {
    return objects_.devices.count(name) != 0 || wanted_.devices.count(name) != 0;
  }

  void FitNeighbours() {
    for (auto it = objects_.neighbours.begin(); it != objects_.neighbours.end();) {
      it = HasDevice(it->first.first) ? std::next(it) : objects_.neighbours.erase(it);
    }
  }

  void FitNexthops() {
    for (auto& [id, nexthop] : objects_.nexthops) {
      const auto* const out = std::get_if<DeviceNexthop>(&nexthop);
      if (out != nullptr && !HasDevice(out->device)) nexthop = BlackholeNexthop{};
    }
  }

  bool Forwards(std::uint32_t id) const {
    const KernelNexthop* nexthop = Find(objects_.nexthops, id);
    if (nexthop == nullptr) nexthop = Find(wanted_.nexthops, id);
    return nexthop != nullptr && std::holds_alternative<DeviceNexthop>(*nexthop);
  }

  void FitGroups() {
    bool drops = false;
    for (auto& [id, nexthop] : objects_.nexthops) {
      auto* const group = std::get_if<NexthopGroup>(&nexthop);
      if (group == nullptr || wanted_.nexthops.count(id) != 0) continue;
      for (auto it = group->members.begin(); it != group->members.end();) {
        it = Forwards(it->first) ? std::next(it) : group->members.erase(it);
      }
      if (!group->members.empty()) continue;
      group->members.emplace_back(kDropNexthop, 1);
      drops = true;
    }
    if (drops) objects_.nexthops.emplace(kDropNexthop, BlackholeNexthop{});
  }

  const KernelObjects& wanted_;
  KernelObjects& objects_;
};

// Notes which of the transition's objects are left over now.
template <typename Map>
void SettleEach(const Map& concerned, const Map& present, const Map& wanted, Map* left) {
  for (const auto& [key, object] : concerned) {
    const auto* const now = Find(present, key);
    if (now == nullptr || wanted.count(key) != 0) {
      left->erase(key);
    } else {
      left->insert_or_assign(key, *now);
    }
  }
}

// Moves up to `limit` of the objects that `is` selects.
template <typename Map, typename Is>
void Move(std::size_t* limit, Map* from, Map* to, Is is) {
  for (auto it = from->begin(); *limit != 0 && it != from->end();) {
    const auto object = it++;
    if (!is(object->second)) continue;
    to->insert(from->extract(object));
    --*limit;
  }
}

}  // namespace

Leftovers::Leftovers(KernelObjects objects, std::map<std::string, std::uint32_t> mtus)
    : objects_(std::move(objects)), mtus_(std::move(mtus)) {}

std::size_t Leftovers::size() const {
  return objects_.devices.size() + objects_.neighbours.size() + objects_.nexthops.size();
}

bool Leftovers::HasMtuOfParent(const MacvlanDevice& device) const {
  const auto parent = mtus_.find(device.parent);
  return parent != mtus_.end() && parent->second == device.mtu;
}

Transition Leftovers::Extend(Transition transition, const KernelObjects& wanted) const {
  auto& [before, after] = transition;
  Join(objects_.devices, &before.devices, &after.devices);
  Join(objects_.neighbours, &before.neighbours, &after.neighbours);
  Join(objects_.nexthops, &before.nexthops, &after.nexthops);
  for (auto& [name, device] : before.devices) {
    auto* const macvlan = std::get_if<MacvlanDevice>(&device);
    const auto* const next = std::get_if<MacvlanDevice>(&after.devices.at(name));
    if (macvlan == nullptr || next == nullptr || next->mtu != 0) continue;
    if (HasMtuOfParent(*macvlan)) macvlan->mtu = 0;
  }
  // A group may have to drop in between.
  for (const KernelObjects* const all : {&objects_, &wanted}) {
    const auto drop = all->nexthops.find(kDropNexthop);
    if (drop == all->nexthops.end() || !after.nexthops.insert(*drop).second) continue;
    before.nexthops.insert(*drop);
  }
  if (!Disturbs(transition, objects_, wanted)) return transition;

  for (KernelObjects* const all : {&before, &after}) {
    Add(objects_.devices, &all->devices);
    Add(objects_.neighbours, &all->neighbours);
    Add(objects_.nexthops, &all->nexthops);
  }
  Fitting(wanted, &after).Fit();
  return transition;
}

void Leftovers::Settle(const Transition& extended, const KernelObjects& present,
                       const KernelObjects& wanted) {
  for (const KernelObjects* const part : {&extended.before, &extended.after}) {
    SettleEach(part->devices, present.devices, wanted.devices, &objects_.devices);
    SettleEach(part->neighbours, present.neighbours, wanted.neighbours, &objects_.neighbours);
    SettleEach(part->nexthops, present.nexthops, wanted.nexthops, &objects_.nexthops);
  }
}

KernelObjects Leftovers::Take(std::size_t limit) {
  KernelObjects taken;
  const auto any = [](const auto& /*object*/) { return true; };
  const auto group = [](const KernelNexthop& nexthop) {
    return std::holds_alternative<NexthopGroup>(nexthop);
  };
  Move(&limit, &objects_.nexthops, &taken.nexthops, group);
  Move(&limit, &objects_.nexthops, &taken.nexthops, any);
  Move(&limit, &objects_.neighbours, &taken.neighbours, any);
  // All at once, because some are on others.
  if (limit != 0) taken.devices = std::exchange(objects_.devices, {});
  return taken;
}

}  // namespace reference
