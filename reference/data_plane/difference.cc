#include "reference/data_plane/difference.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>

namespace reference {
namespace {

// A device may be on devices of a lower rank: it is added after them and removed before them.
std::size_t Rank(const KernelDevice& device) { return device.index(); }
constexpr std::size_t kRanks = std::variant_size_v<KernelDevice>;

bool IsGroup(const KernelNexthop& nexthop) { return std::holds_alternative<NexthopGroup>(nexthop); }
bool IsBlackhole(const KernelNexthop& nexthop) {
  return std::holds_alternative<BlackholeNexthop>(nexthop);
}

bool ChangesInPlace(const KernelDevice& before, const KernelDevice& after) {
  const auto* const old_device = std::get_if<MacvlanDevice>(&before);
  const auto* const new_device = std::get_if<MacvlanDevice>(&after);
  if (old_device == nullptr || new_device == nullptr) return before == after;
  return old_device->parent == new_device->parent && old_device->master == new_device->master;
}

// The changes between two states whose common objects can all change in place.
class Steps {
 public:
  Steps(const KernelObjects& before, const KernelObjects& after, std::vector<KernelChange>* changes)
      : before_(before), after_(after), changes_(*changes) {}

  void AddAll() {
    changes_.reserve(changes_.size() + after_.neighbours.size() + after_.nexthops.size());
    PutDevices();
    PutNeighbours();
    PutForwardingNexthops();
    PutGroups();
    // From here on, no group of several holds a next hop that turns into a blackhole or goes away.
    PutBlackholes();
    RemoveNexthops();
    RemoveNeighbours();
    RemoveDevices();
  }

 private:
  template <typename Change>
  void Add(Change change) {
    changes_.emplace_back(std::move(change));
  }

  void PutDevices() {
    for (std::size_t rank = 0; rank < kRanks; ++rank) {
      for (const auto& [name, device] : after_.devices) {
        if (Rank(device) != rank) continue;
        const KernelDevice* const old_device = Find(before_.devices, name);
        if (old_device == nullptr) {
          Add(PutDevice{name, device, std::nullopt});
        } else if (!(*old_device == device)) {
          Add(PutDevice{name, device, *old_device});
          if (HasNewAddress(*old_device, device)) flushed_.insert(name);
        }
      }
    }
  }

  void PutNeighbours() {
    for (const auto& [key, address] : after_.neighbours) {
      const MacAddress* const old_address = Find(before_.neighbours, key);
      if (old_address == nullptr || *old_address != address || flushed_.count(key.first) != 0) {
        Add(PutNeighbour{key, address});
      }
    }
  }

  // Writes the next hops that change and that `is` selects.
  template <typename Is>
  void PutNexthops(Is is) {
    for (const auto& [id, nexthop] : after_.nexthops) {
      const KernelNexthop* const old_nexthop = Find(before_.nexthops, id);
      if (old_nexthop != nullptr && *old_nexthop == nexthop) continue;
      if (is(old_nexthop, nexthop)) Add(PutNexthop{id, nexthop});
    }
  }

  // Includes new blackholes: they are in no group yet, and a group that drops needs one.
  void PutForwardingNexthops() {
    PutNexthops([](const KernelNexthop* old_nexthop, const KernelNexthop& nexthop) {
      return !IsGroup(nexthop) && (!IsBlackhole(nexthop) || old_nexthop == nullptr);
    });
  }

  void PutGroups() {
    PutNexthops([](const KernelNexthop* /*old*/, const KernelNexthop& nexthop) {
      return IsGroup(nexthop);
    });
    RemoveNexthopsThat([](const KernelNexthop& nexthop) { return IsGroup(nexthop); });
  }

  void PutBlackholes() {
    PutNexthops([](const KernelNexthop* old_nexthop, const KernelNexthop& nexthop) {
      return IsBlackhole(nexthop) && old_nexthop != nullptr;
    });
  }

  void RemoveNexthops() {
    RemoveNexthopsThat([](const KernelNexthop& nexthop) { return !IsGroup(nexthop); });
  }

  template <typename That>
  void RemoveNexthopsThat(That that) {
    for (const auto& [id, nexthop] : before_.nexthops) {
      if (that(nexthop) && after_.nexthops.count(id) == 0) Add(RemoveNexthop{id});
    }
  }

  void RemoveNeighbours() {
    for (const auto& [key, address] : before_.neighbours) {
      if (after_.neighbours.count(key) != 0 || flushed_.count(key.first) != 0) continue;
      Add(RemoveNeighbour{key});
    }
  }

  void RemoveDevices() {
    for (std::size_t rank = kRanks; rank-- != 0;) {
      for (const auto& [name, device] : before_.devices) {
        if (Rank(device) == rank && after_.devices.count(name) == 0) {
          Add(RemoveDevice{name});
        }
      }
    }
  }

  const KernelObjects& before_;
  const KernelObjects& after_;
  std::vector<KernelChange>& changes_;
  // Devices whose neighbours the kernel has flushed.
  std::set<std::string> flushed_;
};

using Names = std::set<std::string>;

bool IsOnOneOf(const KernelDevice& device, const Names& names) {
  if (const auto* const tagged = std::get_if<TaggedDevice>(&device)) {
    return names.count(tagged->parent) != 0;
  }
  const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
  return macvlan != nullptr &&
         (names.count(macvlan->parent) != 0 || names.count(macvlan->master) != 0);
}

// The devices to recreate.
Names Remade(const KernelObjects& before, const KernelObjects& after) {
  Names remade;
  for (const auto& [name, device] : before.devices) {
    const KernelDevice* const new_device = Find(after.devices, name);
    if (new_device != nullptr && !ChangesInPlace(device, *new_device)) remade.insert(name);
  }
  return remade;
}

// The state between the two: `after` without the devices to recreate and without anything on them.
class Bridge {
 public:
  Bridge(const KernelObjects& before, KernelObjects after, Names remade)
      : before_(before), bridge_(std::move(after)), absent_(std::move(remade)) {
    RemoveDevices();
    ParkNexthops();
    ParkGroups();
  }

  const KernelObjects& objects() const { return bridge_; }

 private:
  void RemoveDevices() {
    for (std::size_t rank = 0; rank < kRanks; ++rank) {
      for (const auto& [name, device] : bridge_.devices) {
        if (Rank(device) == rank && IsOnOneOf(device, absent_)) absent_.insert(name);
      }
    }
    for (const std::string& name : absent_) bridge_.devices.erase(name);
    for (auto it = bridge_.neighbours.begin(); it != bridge_.neighbours.end();) {
      it = absent_.count(it->first.first) != 0 ? bridge_.neighbours.erase(it) : std::next(it);
    }
  }

  // Next hops that exist already stay, as blackholes.
  void ParkNexthops() {
    for (auto it = bridge_.nexthops.begin(); it != bridge_.nexthops.end();) {
      const KernelNexthop* const old_nexthop = Find(before_.nexthops, it->first);
      const bool turns = old_nexthop != nullptr && IsGroup(*old_nexthop) != IsGroup(it->second);
      const auto* const out = std::get_if<DeviceNexthop>(&it->second);
      const bool parked = turns || (out != nullptr && absent_.count(out->device) != 0);
      if (parked) parked_.insert(it->first);
      if (turns || (parked && old_nexthop == nullptr)) {
        it = bridge_.nexthops.erase(it);
        continue;
      }
      if (parked) it->second = BlackholeNexthop{};
      ++it;
    }
  }

  void ParkGroups() {
    bool drops = false;
    for (auto it = bridge_.nexthops.begin(); it != bridge_.nexthops.end();) {
      auto* const group = std::get_if<NexthopGroup>(&it->second);
      const bool loses = group != nullptr && Reduce(group);
      if (loses && before_.nexthops.count(it->first) == 0) {
        it = bridge_.nexthops.erase(it);
        continue;
      }
      if (loses && group->members.empty()) {
        group->members.emplace_back(kDropNexthop, 1);
        drops = true;
      }
      ++it;
    }
    if (drops) bridge_.nexthops.emplace(kDropNexthop, BlackholeNexthop{});
  }

  // Removes parked members. Returns whether the group has lost any.
  bool Reduce(NexthopGroup* group) const {
    const std::size_t size = group->members.size();
    for (auto it = group->members.begin(); it != group->members.end();) {
      it = parked_.count(it->first) != 0 ? group->members.erase(it) : std::next(it);
    }
    return group->members.size() != size;
  }

  const KernelObjects& before_;
  KernelObjects bridge_;
  Names absent_;
  std::set<std::uint32_t> parked_;
};

bool Turns(const KernelObjects& before, const KernelObjects& after) {
  return std::any_of(before.nexthops.begin(), before.nexthops.end(), [&after](const auto& entry) {
    const KernelNexthop* const new_nexthop = Find(after.nexthops, entry.first);
    return new_nexthop != nullptr && IsGroup(*new_nexthop) != IsGroup(entry.second);
  });
}

}  // namespace

std::vector<KernelChange> Difference(const KernelObjects& before, const KernelObjects& after) {
  std::vector<KernelChange> changes;
  Names remade = Remade(before, after);
  if (remade.empty() && !Turns(before, after)) {
    Steps(before, after, &changes).AddAll();
    return changes;
  }
  const Bridge bridge(before, after, std::move(remade));
  Steps(before, bridge.objects(), &changes).AddAll();
  Steps(bridge.objects(), after, &changes).AddAll();
  return changes;
}

}  // namespace reference
