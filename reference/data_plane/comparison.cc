#include "reference/data_plane/comparison.h"

#include <arpa/inet.h>

#include <array>
#include <variant>

namespace reference {
namespace {

std::string NameOf(const std::string& device) { return device; }

std::string NameOf(const NeighbourKey& key) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, key.second.data(), text.data(), text.size());
  return std::string("neighbour ") + text.data() + " on " + key.first;
}

std::string NameOf(std::uint32_t nexthop) { return "next hop " + std::to_string(nexthop); }

template <typename Map>
void CompareEach(const Map& wanted, const Map& present, ObjectStates* states) {
  for (const auto& [key, object] : wanted) {
    const auto found = present.find(key);
    if (found != present.end() && found->second == object) continue;
    (*states)[NameOf(key)] =
        found == present.end() ? ObjectState::kMissing : ObjectState::kDifferent;
  }
  for (const auto& [key, object] : present) {
    if (wanted.count(key) == 0) (*states)[NameOf(key)] = ObjectState::kNotWanted;
  }
}

// The objects without a state are as wanted.
template <typename Map>
void AddOthers(const Map& wanted, ObjectStates* states) {
  for (const auto& [key, object] : wanted) states->emplace(NameOf(key), ObjectState::kAsWanted);
}

}  // namespace

std::string ObjectStateText(ObjectState state) {
  static constexpr std::array kTexts = {"as wanted", "missing", "different", "not wanted"};
  return kTexts.at(static_cast<std::size_t>(state));
}

void UseMtusOfParents(const std::map<std::string, std::uint32_t>& mtus,
                      std::map<std::string, KernelDevice>* devices) {
  for (auto& [name, device] : *devices) {
    auto* const macvlan = std::get_if<MacvlanDevice>(&device);
    if (macvlan == nullptr || macvlan->mtu != 0) continue;
    const auto parent = mtus.find(macvlan->parent);
    if (parent != mtus.end()) macvlan->mtu = parent->second;
  }
}

ObjectStates Compare(const KernelObjects& wanted, const KernelObjects& present,
                     const std::map<std::string, std::uint32_t>& mtus) {
  KernelObjects with_mtus = wanted;
  UseMtusOfParents(mtus, &with_mtus.devices);
  ObjectStates states = Differences(with_mtus, present);
  AddOthers(wanted.devices, &states);
  AddOthers(wanted.neighbours, &states);
  AddOthers(wanted.nexthops, &states);
  return states;
}

ObjectStates Differences(const KernelObjects& wanted, const KernelObjects& present) {
  ObjectStates states;
  CompareEach(wanted.devices, present.devices, &states);
  CompareEach(wanted.neighbours, present.neighbours, &states);
  CompareEach(wanted.nexthops, present.nexthops, &states);
  return states;
}

std::vector<std::string> ObjectsOfDestination(std::uint32_t id, const KernelObjects& wanted) {
  const auto nexthop = wanted.nexthops.find(id);
  if (nexthop == wanted.nexthops.end()) return {};
  std::vector<std::string> names = {NameOf(id)};
  if (const auto* const out = std::get_if<DeviceNexthop>(&nexthop->second)) {
    names.push_back(out->device);
    if (out->gateway != Ipv6Address{}) names.push_back(NameOf({out->device, out->gateway}));
  }
  return names;
}

}  // namespace reference
