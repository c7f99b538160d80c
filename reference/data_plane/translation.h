#ifndef ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/pair_set.h"
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
  /// Its interface.
  std::uint32_t lim = 0;
  std::uint32_t vrf = 0;
  /// In bytes; 0 to use the interface's.
  std::uint32_t mtu = 0;
  MacAddress mac{};
  bool routed = false;
  std::string alias;
};

enum class Fate : std::uint8_t { kForward, kDrop, kToCpu };

/// A host or an MPLS destination.
struct Rider {
  /// A VLAN destination or, for MPLS, a tunnel; 0 for none.
  std::uint32_t below = 0;
  Fate fate = Fate::kForward;
  std::optional<MacAddress> mac;
  std::vector<std::uint32_t> labels;
};

struct Group {
  /// All of them, also those that drop.
  GroupMembers members;
};

}  // namespace entry

/// Translates the entries of the HAL's tables into kernel objects, incrementally: a change
/// translates only that entry and the entries that depend on it. The result depends on the entries
/// alone, not on the order of the changes. Keeps the entries, not their kernel objects, which would
/// take several times the memory. Used by one thread.
///
/// An entry may ride on something that no longer exists, because the HAL accepts the removal of a
/// destination that others refer to. Such an entry drops its packets.
class Translation {
 public:
  /// `interfaces` names the logical interfaces. `devices` are the devices in the kernel that are
  /// not ours. If they include "eth2" but not an interface named "eth2.20", that one is created.
  Translation(InterfaceNames interfaces, std::set<std::string> devices);

  /// `devices` are the devices in the kernel now that are not ours, `running` those that are up and
  /// have a carrier. From now on, interfaces may use them. One that has gone still counts, so that
  /// its entries stay valid. Returns whether the device of an interface has come since the last
  /// call, or is running now but was not then.
  bool NoteDevices(const std::set<std::string>& devices, const std::set<std::string>& running);

  /// Adds or replaces an entry; `message` is of the kind's class. Changes nothing on an error:
  /// - `kHalExists`: a destination of another kind has the id; all kinds share one number space;
  /// - `kHalNoInterface`: the VLAN destination's interface has no device;
  /// - `kHalNotSupported`: the kernel cannot represent the entry, or another one that rides on it.
  HalReturnCode Store(HalKind kind, std::uint32_t id, const google::protobuf::Message& message);

  /// Why the last `Store` returned `kHalNoInterface` or `kHalNotSupported`: one line for the
  /// operator.
  const std::string& reason() const { return reason_; }

  /// Removes an entry; a no-op if there is none.
  void Remove(HalKind kind, std::uint32_t id);

  /// The kind of the destination with that id; nothing if there is none.
  std::optional<HalKind> KindOfDestination(std::uint32_t id) const;
  /// The installed VRFs.
  const std::set<std::uint32_t>& vrfs() const { return vrfs_; }

  /// The kernel objects of all entries. Translates them all.
  KernelObjects Objects() const;
  /// Those of them with these keys. Translates only their entries.
  KernelObjects Objects(const ObjectKeys& keys) const;

  /// Returns the changes since the last call.
  Transition Take();

  /// Makes `transition` part of the next one again. Call it right after `Take`, with the objects
  /// that the kernel has now as `transition.before`.
  void PutBack(Transition transition);

 private:
  using Vlan = entry::Vlan;
  using Rider = entry::Rider;
  using Group = entry::Group;
  using Fate = entry::Fate;
  struct Entry {
    HalKind kind{};
    // VLAN destinations are the largest, but few.
    std::variant<std::unique_ptr<const Vlan>, Rider, Group> content;
  };
  // Where the packets of a host or an MPLS destination go.
  struct Path {
    Fate fate = Fate::kDrop;
    // If forwarded: to which VLAN destination, to which neighbour there, and the labels to push,
    // outermost first.
    std::uint32_t vlan = 0;
    std::optional<MacAddress> mac;
    std::vector<std::uint32_t> labels;
  };
  // A next hop, with the neighbour that it needs.
  struct Hop {
    KernelNexthop nexthop;
    std::optional<MacAddress> neighbour;
  };
  struct SharedDevice {
    KernelDevice device;
    std::size_t users = 0;
  };

  // Sets `reason_` and returns the code.
  HalReturnCode Refuse(HalReturnCode code, std::string reason);

  HalReturnCode Read(const google::protobuf::Message& message, HalKind kind, Entry* entry);
  HalReturnCode ReadVlan(const encapsulation::VlanMessage& message, Entry* entry);
  HalReturnCode ReadHost(const encapsulation::HostMessage& message, Entry* entry);
  HalReturnCode ReadMpls(const encapsulation::MplsMessage& message, Entry* entry);
  HalReturnCode ReadEcmp(const encapsulation::EcmpMessage& message, Entry* entry);
  HalReturnCode ReadMac(const std::string& bytes, std::optional<MacAddress>* mac);
  HalReturnCode FindInterface(const std::string& lim_id, std::uint32_t* lim);
  // The subinterface that we have to make, if the device is one.
  std::optional<TaggedDevice> MadeDevice(const std::string& device) const;
  MacvlanDevice DeviceOf(const Vlan& vlan) const;

  // Exchanges the entry with the stored one (empty if there is none), and updates the objects of
  // all entries that depend on it. Returns whether the kernel can represent them.
  HalReturnCode Exchange(std::uint32_t id, std::optional<Entry>* entry);
  void Index(std::uint32_t id, const Entry& entry, bool add);
  // The entry and all that depend on it.
  std::vector<std::uint32_t> Affected(std::uint32_t id) const;

  // Empty if the kernel cannot represent the entry.
  std::optional<Hop> HopOf(std::uint32_t id, const Entry& entry) const;
  std::optional<Path> PathOf(const Entry& entry) const;
  NexthopGroup NexthopGroupOf(const Group& group) const;
  bool Forwards(std::uint32_t id) const;

  // Adds or removes the objects of an entry, if it exists. Returns whether the kernel can represent
  // it. Removing the objects of an entry that has none succeeds.
  HalReturnCode Change(std::uint32_t id, bool add);
  // Shared objects exist for as long as something uses them.
  void UseDevice(const std::string& name, const KernelDevice& device, bool add);
  void UseVrf(std::uint32_t vrf, bool add);
  void UseDropNexthop(bool drops, bool add);

  // Records that an object comes or goes, in one of the maps of `changes_`.
  template <typename Map>
  void Record(Map KernelObjects::*objects, const typename Map::key_type& key,
              typename Map::mapped_type object, bool add);

  const InterfaceNames interfaces_;
  // Those that exist, or have existed.
  std::set<std::string> devices_;
  // The interfaces' devices, and those below their subinterfaces, as of the last `NoteDevices`.
  std::set<std::string> present_;
  std::set<std::string> running_;

  std::string reason_;

  std::set<std::uint32_t> vrfs_;
  std::unordered_map<std::uint32_t, Entry> entries_;
  // Pairs of (the entry below, its rider) and of (member, group).
  PairSet riders_;
  PairSet groups_;

  // VRFs, 802.1Q subinterfaces and the device for packets to the CPU, by name.
  std::map<std::string, SharedDevice> shared_devices_;
  // How many groups have `kDropNexthop` as their only member.
  std::size_t drop_users_ = 0;

  // What has changed since the last `Take`, except for `kDropNexthop`.
  Transition changes_;
  // Whether `kDropNexthop` existed at the last `Take`; empty if no group has changed since.
  std::optional<bool> dropped_before_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_TRANSLATION_H_
