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

/// The objects that changes concern, before and after them. An object in neither does not change.
/// With a device, both have everything on it; with a next hop, every group that holds it; with a
/// group, `kDropNexthop`.
struct Transition {
  KernelObjects before;
  KernelObjects after;
};

/// What `Translation` keeps of the entries.
namespace entry {

struct Vlan {
  std::uint32_t vrf = 0;
  MacvlanDevice device;
  /// The parent, if it is a subinterface that is ours to make.
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

/// Translates the entries of the HAL's tables into kernel objects, entry by entry: a change
/// translates the entry again and what depends on it, nothing else. The result depends on the
/// entries alone, not on the order of the changes. Used by one thread.
///
/// What an entry rides on may be gone, because the HAL lets destinations go that others refer to.
/// Such an entry drops its packets.
class Translation {
 public:
  /// `interfaces` names the logical interfaces. `devices` are the devices in the kernel that are
  /// not ours; an interface "eth2.20" that is not among them while "eth2" is will be made.
  Translation(InterfaceNames interfaces, std::set<std::string> devices);

  /// Adds or replaces an entry; `message` is of the kind's class. Changes nothing on an error:
  /// - `kHalExists`: the id is one of a destination of another kind; all share one number space;
  /// - `kHalNoInterface`: the VLAN destination's interface has no device;
  /// - `kHalNotSupported`: the kernel cannot represent the entry, or another one that rides on it.
  HalReturnCode Store(HalKind kind, std::uint32_t id, const google::protobuf::Message& message);

  /// Removes an entry; a no-op if there is none.
  void Remove(HalKind kind, std::uint32_t id);

  /// What the entries are in the kernel.
  const KernelObjects& objects() const { return objects_; }

  /// What has changed since the last call.
  Transition Take();

  /// The kernel has these objects in place of the former ones of `transition`, which was taken
  /// before and is part of the next one again.
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
  // Removes what an entry became.
  void Withdraw(std::uint32_t id);

  // Shared objects exist while something uses them.
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
  // Pairs of what is ridden on and what rides on it; of member and group.
  std::set<std::pair<std::uint32_t, std::uint32_t>> riders_;
  std::set<std::pair<std::uint32_t, std::uint32_t>> groups_;

  KernelObjects objects_;
  std::map<std::string, std::size_t> device_users_;
  std::size_t drop_users_ = 0;

  // What changed since the last `Take`, as it was before; nothing for what did not exist.
  std::map<std::string, std::optional<KernelDevice>> former_devices_;
  std::map<NeighbourKey, std::optional<MacAddress>> former_neighbours_;
  std::map<std::uint32_t, std::optional<KernelNexthop>> former_nexthops_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_
