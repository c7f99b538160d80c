#ifndef ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_

#include <google/protobuf/message.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"
#include "reference/hal/message_fields.h"

namespace reference {

/// The objects that a set of changes affects, before and after it. An object in neither does not
/// change. If a device is included, so is everything on it; if a next hop is, so is every group
/// that holds it; if a group is, so is `kDropNexthop`.
struct Transition {
  KernelObjects before;
  KernelObjects after;
};

/// The parts of the entries that `Translation` keeps.
namespace entry {

struct Vlan {
  std::uint32_t vrf = 0;
  MacvlanDevice device;
  /// The parent, if it is a subinterface that we have to make.
  std::optional<TaggedDevice> made_parent;
};

enum class Fate { kForward, kDrop, kToCpu };

/// A host or an MPLS destination.
struct Rider {
  /// A VLAN destination or, for MPLS, a tunnel; 0 for none.
  std::uint32_t below = 0;
  Fate fate = Fate::kForward;
  std::optional<MacAddress> mac;
  std::vector<std::uint32_t> labels;
};

struct Group {
  /// How often each id occurs.
  std::map<std::uint32_t, std::uint32_t> members;
};

}  // namespace entry

/// Translates the entries of the HAL's tables into kernel objects, incrementally: a change
/// translates only that entry and the entries that depend on it. The result depends on the entries
/// alone, not on the order of the changes. Used by one thread.
///
/// An entry may ride on something that no longer exists, because the HAL lets destinations go that
/// others refer to. Such an entry drops its packets.
class Translation {
 public:
  /// `interfaces` names the logical interfaces. `devices` are the devices in the kernel that are
  /// not ours. If they include "eth2" but not an interface named "eth2.20", that one will be made.
  Translation(InterfaceNames interfaces, std::set<std::string> devices);

  /// Adds or replaces an entry; `message` is of the kind's class. Changes nothing on an error:
  /// - `kHalExists`: a destination of another kind has the id; all kinds share one number space;
  /// - `kHalNoInterface`: the VLAN destination's interface has no device;
  /// - `kHalNotSupported`: the kernel cannot represent the entry, or another one that rides on it.
  HalReturnCode Store(HalKind kind, std::uint32_t id, const google::protobuf::Message& message);

  /// Removes an entry; a no-op if there is none.
  void Remove(HalKind kind, std::uint32_t id);

  /// The kernel objects of all entries.
  const KernelObjects& objects() const { return objects_; }

  /// Returns the changes since the last call.
  Transition Take();

  /// Undoes `Take`: `transition` becomes part of the next one again. `present` are the objects that
  /// the kernel has now, in place of `transition.before`.
  void PutBack(const Transition& transition, const KernelObjects& present);

 private:
  using Vlan = entry::Vlan;
  using Rider = entry::Rider;
  using Group = entry::Group;
  using Fate = entry::Fate;
  struct Entry {
    HalKind kind{};
    std::variant<Vlan, Rider, Group> content;
  };
  // A host's or MPLS destination's next hop, with the neighbour that it needs.
  struct Hop {
    KernelNexthop nexthop;
    std::optional<MacAddress> neighbour;
  };

  HalReturnCode Read(const google::protobuf::Message& message, HalKind kind, Entry* entry) const;
  HalReturnCode ReadVlan(const encapsulation::VlanMessage& message, Entry* entry) const;
  static HalReturnCode ReadHost(const encapsulation::HostMessage& message, Entry* entry);
  static HalReturnCode ReadMpls(const encapsulation::MplsMessage& message, Entry* entry);
  static HalReturnCode ReadEcmp(const encapsulation::EcmpMessage& message, Entry* entry);
  HalReturnCode FindParent(const std::string& lim_id, Vlan* vlan) const;

  HalReturnCode StoreVrf(std::uint32_t vrf);
  void RemoveVrf(std::uint32_t vrf);

  // Sets the entry, or removes it.
  void Set(std::uint32_t id, std::optional<Entry> entry);
  void Index(std::uint32_t id, const Entry& entry, bool add);
  // Translates the entry and everything that depends on it.
  HalReturnCode Translate(std::uint32_t id);
  HalReturnCode TranslateOne(std::uint32_t id);
  HalReturnCode TranslateRider(std::uint32_t id, const Entry& entry);
  void TranslateVlan(std::uint32_t id, const Vlan& vlan);
  void TranslateGroup(std::uint32_t id, const Group& group);
  HalReturnCode FindHop(std::uint32_t id, const Entry& entry, Hop* hop) const;
  // Removes an entry's objects.
  void Withdraw(std::uint32_t id);

  // Shared objects exist for as long as something uses them.
  void UseDevice(const std::string& name, const KernelDevice& device);
  void ReleaseDevice(const std::string& name);
  void UseVrf(std::uint32_t vrf);

  void SetDevice(const std::string& name, std::optional<KernelDevice> device);
  void SetNeighbour(const NeighbourKey& key, std::optional<MacAddress> address);
  void SetNexthop(std::uint32_t id, std::optional<KernelNexthop> nexthop);

  const InterfaceNames interfaces_;
  const std::set<std::string> devices_;

  std::set<std::uint32_t> vrfs_;
  std::unordered_map<std::uint32_t, Entry> entries_;
  // Pairs of (the entry below, its rider) and of (member, group).
  std::set<std::pair<std::uint32_t, std::uint32_t>> riders_;
  std::set<std::pair<std::uint32_t, std::uint32_t>> groups_;

  KernelObjects objects_;
  std::map<std::string, std::size_t> device_users_;
  std::size_t drop_users_ = 0;

  // The former values of what has changed since the last `Take`; empty for what did not exist.
  std::map<std::string, std::optional<KernelDevice>> former_devices_;
  std::map<NeighbourKey, std::optional<MacAddress>> former_neighbours_;
  std::map<std::uint32_t, std::optional<KernelNexthop>> former_nexthops_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_
