#include "reference/data_plane/broken_entries.h"

#include <optional>
#include <utility>
#include <variant>

namespace reference {
namespace {

struct Cause {
  HalReturnCode code = kHalKernelRefused;
  std::string reason;
};

// The device below; null if there is none.
const std::string* ParentOf(const KernelDevice& device) {
  if (const auto* const tagged = std::get_if<TaggedDevice>(&device)) return &tagged->parent;
  if (const auto* const macvlan = std::get_if<MacvlanDevice>(&device)) return &macvlan->parent;
  return nullptr;
}

// What is wrong with the wanted objects.
class Examination {
 public:
  Examination(const KernelObjects& wanted, const KernelObjects& present,
              const std::map<std::string, std::uint32_t>& mtus, const RefusedObjects& refused)
      : wanted_(wanted), present_(present), mtus_(mtus), refused_(refused) {}

  std::optional<Cause> OfDevice(const std::string& name) const {
    const KernelDevice* const device = Find(wanted_.devices, name);
    if (device == nullptr || IsPresent(name, *device, present_.devices)) return std::nullopt;
    if (const std::string* const parent = ParentOf(*device)) {
      if (auto below = OfDevice(*parent)) return below;
      if (mtus_.count(*parent) == 0) return Cause{kHalNoInterface, "there is no device " + *parent};
    }
    return CauseOf(refused_.devices, name);
  }

  std::optional<Cause> OfNexthop(std::uint32_t id, const KernelNexthop& nexthop) const {
    if (const auto* const out = std::get_if<DeviceNexthop>(&nexthop)) {
      if (auto below = OfDevice(out->device)) return below;
      const NeighbourKey key(out->device, out->gateway);
      const MacAddress* const neighbour = Find(wanted_.neighbours, key);
      if (neighbour != nullptr && !IsPresent(key, *neighbour, present_.neighbours)) {
        return CauseOf(refused_.neighbours, key);
      }
    }
    if (IsPresent(id, nexthop, present_.nexthops)) return std::nullopt;
    return CauseOf(refused_.nexthops, id);
  }

 private:
  template <typename Key, typename Value>
  static bool IsPresent(const Key& key, const Value& value, const std::map<Key, Value>& present) {
    const Value* const found = Find(present, key);
    return found != nullptr && *found == value;
  }

  // An object without a refusal of its own waits for another one.
  template <typename Key>
  static Cause CauseOf(const std::map<Key, std::string>& refused, const Key& key) {
    const std::string* const text = Find(refused, key);
    return {kHalKernelRefused, text == nullptr ? std::string() : *text};
  }

  const KernelObjects& wanted_;
  const KernelObjects& present_;
  const std::map<std::string, std::uint32_t>& mtus_;
  const RefusedObjects& refused_;
};

}  // namespace

void RefusedObjects::Add(const KernelChange& change, const std::string& text) {
  if (const auto* const device = std::get_if<PutDevice>(&change)) {
    devices[device->name] = text;
  } else if (const auto* const neighbour = std::get_if<PutNeighbour>(&change)) {
    neighbours[neighbour->key] = text;
  } else if (const auto* const nexthop = std::get_if<PutNexthop>(&change)) {
    nexthops[nexthop->id] = text;
  }
}

std::vector<HalObjectState> BrokenEntries(const Translation& translation,
                                          const KernelObjects& wanted, const KernelObjects& present,
                                          const std::map<std::string, std::uint32_t>& mtus,
                                          const RefusedObjects& refused) {
  const Examination examination(wanted, present, mtus, refused);
  std::vector<HalObjectState> broken;
  const auto add = [&broken](HalKind kind, std::uint32_t id, std::optional<Cause> cause) {
    if (cause) broken.push_back({kind, id, cause->code, std::move(cause->reason)});
  };
  for (const std::uint32_t vrf : translation.vrfs()) {
    add(HalKind::kVrf, vrf, examination.OfDevice(VrfDeviceName(vrf)));
  }
  for (const auto& [id, nexthop] : wanted.nexthops) {
    // The next hop of groups that drop belongs to no entry.
    const std::optional<HalKind> kind = translation.KindOfDestination(id);
    if (kind) add(*kind, id, examination.OfNexthop(id, nexthop));
  }
  return broken;
}

}  // namespace reference
