#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_DEST_DATABASE_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_DEST_DATABASE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"
#include "reference/manager/engine/hai_object.h"
#include "reference/site/site.h"

namespace reference {

/// Identifies an object. `id` is its database id, also for a VRF.
struct ObjectKey {
  HalKind kind = HalKind::kVrf;
  std::uint32_t id = 0;
};

inline bool operator==(const ObjectKey& a, const ObjectKey& b) {
  return a.kind == b.kind && a.id == b.id;
}

inline bool operator<(const ObjectKey& a, const ObjectKey& b) {
  return std::tie(a.kind, a.id) < std::tie(b.kind, b.id);
}

/// "vlan:10".
std::string KeyText(const ObjectKey& key);

/// Parses "vlan:10"; nothing for any other text.
std::optional<ObjectKey> ParseObjectKey(const std::string& text);

enum class ObjectState : std::uint8_t {
  /// Its requests are not settled yet.
  kPending,
  kInstalled,
  /// Sent to the HAL, which accepted it: the end state of VRFs, for which the library has no
  /// result.
  kSent,
  /// The last request failed, or the object is broken; `Object::code` says why.
  kFailed,
  kRemoved,
};

/// An object's state as people see it: the object's own state, except that an installed MPLS
/// destination without an active neighbor is inactive.
enum class Standing : std::uint8_t { kPending, kInstalled, kInactive, kSent, kFailed, kRemoved };
inline constexpr std::size_t kStandings = 6;

/// What the manager knows about the HAL's copy of an object.
enum class Presence : std::uint8_t {
  kAbsent,
  kPresent,
  /// A request ended inconclusively, for example because the HAL did not answer in time.
  kUnknown,
};

/// An object of the database: what the site wants, and the state of the HAL's copy.
///
/// The HAL keeps VRFs by number, with one entry per number even if several VRFs of the site share
/// it. Requests for VRFs therefore concern entries: objects whose key has the number instead of the
/// database id. A VRF object itself is only for display: name, content, `wanted`, state and code.
struct Object {
  ObjectKey key;
  std::string name;
  HaiObject content;

  /// Whether the acknowledged digests contain it, and with which hash; see `AcknowledgedDigests`.
  std::uint64_t digest_hash = 0;
  bool in_digest = false;

  /// Whether the site has it; otherwise it must be removed.
  bool wanted = true;
  Presence presence = Presence::kAbsent;
  /// The HAL has accepted it, but has told since that it does not forward for it.
  bool broken = false;
  /// The code of the last result or, if `broken`, of the state that the HAL has told since.
  HalReturnCode code = kHalSuccess;
  /// The request in flight, at most one.
  std::optional<HalAction> outstanding;
  /// Its place in the queue of due requests; see `RequestQueue`.
  std::optional<std::uint8_t> queued_rank;
  /// Whether another request must be sent, once the outstanding one has its result.
  bool due = false;
  /// Whether the next request belongs to a reinstall and must be an install, whatever the HAL
  /// holds.
  bool reinstall = false;
  /// The number of consecutive requests that ended without a verdict on the object.
  std::uint8_t attempts = 0;

  ObjectState state() const { return state_; }

  /// The HAL's reason for `code`; may be empty.
  std::string_view reason() const {
    if (reason_ == nullptr) return {};
    return *reason_;
  }
  void set_reason(const std::string& reason) {
    reason_ = reason.empty() ? nullptr : std::make_unique<const std::string>(reason);
  }

 private:
  // Sets the state and keeps the counts of objects per state.
  friend class DestDatabase;
  ObjectState state_ = ObjectState::kPending;
  // Few objects have one, so a pointer takes less memory than an empty string.
  std::unique_ptr<const std::string> reason_;
};

Standing StandingOf(const Object& object);

/// How a site differs from the objects of a database. Valid until these change.
struct SiteDifference {
  /// The site's interfaces, and its entries that are new or whose name or content differs from
  /// their object's. Each list is in the order of ids.
  Site changed;
  /// The objects that are wanted now and that the site does not have, by kind and id.
  std::vector<const Object*> gone;
  /// The number of objects that are wanted now.
  std::size_t present = 0;
};

/// The objects by kind and id, and the entries that the requests concern: the destinations
/// themselves, and the VRFs' numbers. Owned by the manager and used on its thread only. An object
/// keeps its address until it is forgotten.
class DestDatabase {
 public:
  DestDatabase() = default;
  DestDatabase(const DestDatabase&) = delete;
  DestDatabase& operator=(const DestDatabase&) = delete;

  using Objects = std::map<ObjectKey, Object>;
  using StandingCounts = std::array<std::size_t, kStandings>;

  struct Changes {
    /// New entries, and those whose content differs from the site's.
    std::vector<Object*> changed;
    /// Entries that are no longer in the site.
    std::vector<Object*> dropped;
  };

  /// Looks at every object and every entry of the site.
  SiteDifference Compare(Site site) const;

  /// Makes the compared site the wanted state and returns the changes. Leaves the states to the
  /// caller. Forgets objects that were already removed. Takes time for what differs and for what
  /// is being removed, not for the other objects.
  Changes Replace(SiteDifference difference);
  Changes Replace(Site site) { return Replace(Compare(std::move(site))); }

  /// Calls `changed`, unless it is empty, whenever an object's standing has changed.
  void Watch(std::function<void(const Object& object)> changed) { changed_ = std::move(changed); }

  /// The HAL's entry of that kind and id; for a VRF, by its number. Null if there is none. Fast for
  /// the entry that follows the one found last.
  Object* FindEntry(const ObjectKey& key);

  /// The first entry, or the one that follows the key of `previous`, by kind and id. Null if there
  /// is none.
  Object* NextEntry(const std::optional<ObjectKey>& previous);

  /// Calls `function(Object*)` for each entry of the kind.
  template <typename Function>
  void ForEachEntry(HalKind kind, Function function) {
    Objects& entries = kind == HalKind::kVrf ? vrf_entries_ : objects_;
    for (auto entry = entries.lower_bound({kind, 0});
         entry != entries.end() && entry->first.kind == kind; ++entry) {
      function(&entry->second);
    }
  }

  /// Null if there is none.
  Object* Find(const ObjectKey& key);
  const Object* Find(const ObjectKey& key) const;

  /// The destination that an object refers to by `id`: the site's or, if the site has none, an
  /// older one. Null if there is none.
  const Object* FindReferenced(std::uint32_t id) const;

  /// Whether the HAL holds the destination that the site has under `id`. An older one of another
  /// kind under the same id does not count.
  bool InHal(std::uint32_t id) const;

  /// Sets the state of an entry and of the VRFs that share it.
  void SetState(Object* entry, ObjectState state);

  /// The number of objects of the kind in each state. Maintained incrementally, not counted here.
  const StandingCounts& counts(HalKind kind) const {
    return counts_[static_cast<std::size_t>(kind)];
  }

  const Objects& objects() const { return objects_; }

  /// The entries of the VRFs, by number.
  const Objects& vrf_entries() const { return vrf_entries_; }

 private:
  using Numbers = std::set<std::uint32_t>;

  template <typename SiteObject>
  void KeepChanged(std::vector<SiteObject>* entries, SiteDifference* difference) const;
  void ForgetRemoved();
  template <typename SiteObject>
  void ReplaceEach(std::vector<SiteObject> entries, Changes* changes);
  void ReplaceVrfs(SiteDifference* difference, Numbers* numbers);
  void RetryRemovals(Changes* changes);
  const Object* VrfWithNumber(std::uint32_t number) const;
  void WantNumber(std::uint32_t number, const Object& vrf, Changes* changes);
  void DropNumber(std::uint32_t number, Changes* changes);
  void UpdateVrfsOfNumber(std::uint32_t number);
  void UpdateVrf(Object* vrf);
  std::size_t& CountOf(const Object& object);
  void SetStateOf(Object* object, ObjectState state);

  // VRFs and destinations, by database id.
  Objects objects_;
  // The destination that `FindEntry` found last, or the end. Requests and results mostly go through
  // the destinations in order.
  Objects::iterator found_last_ = objects_.end();
  // By number.
  Objects vrf_entries_;
  // The objects and the numbers that the site does not have and that are not forgotten yet.
  std::set<ObjectKey> unwanted_;
  Numbers unwanted_numbers_;
  // The present and earlier numbers of a VRF, as long as their entries may have to be removed for
  // it, and the reverse mapping.
  std::map<std::uint32_t, Numbers> numbers_of_vrf_;
  std::map<std::uint32_t, std::set<std::uint32_t>> vrfs_of_number_;
  std::array<StandingCounts, kHalKinds> counts_{};
  std::function<void(const Object& object)> changed_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_DEST_DATABASE_H_
