#ifndef ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_
#define ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"
#include "reference/manager/destination.h"
#include "reference/site/site.h"

namespace reference {

/// Names an object. `id` is its database id, of a VRF too.
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

/// Reads "vlan:10"; nothing for anything else.
std::optional<ObjectKey> ParseObjectKey(const std::string& text);

enum class ObjectState : std::uint8_t {
  /// Its requests have not been settled.
  kPending,
  kInstalled,
  /// Sent to the HAL, which took it: the end state of VRFs, for which the library has no result.
  kSent,
  /// The last request was refused; `Object::code` says why.
  kFailed,
  kRemoved,
};

/// How an object stands: its state, but an installed MPLS destination without an active neighbor
/// is inactive.
enum class Standing : std::uint8_t { kPending, kInstalled, kInactive, kSent, kFailed, kRemoved };
inline constexpr std::size_t kStandings = 6;

/// What the manager knows of the HAL's copy of an object.
enum class Presence : std::uint8_t {
  kAbsent,
  kPresent,
  /// A request ended without telling, for example because the HAL did not answer in time.
  kUnknown,
};

/// An object of the database: what the site wants, and how far the HAL has got.
///
/// The HAL has VRFs by number, under which it holds one entry however many VRFs of the site share
/// it. So the requests for VRFs are about entries: objects whose key has the number instead of the
/// database id. Of a VRF itself, only what is shown is used: name, content, `wanted`, state and
/// code.
struct Object {
  ObjectKey key;
  std::string name;
  Destination content;
  /// Whether the site has it; otherwise it is to be removed.
  bool wanted = true;

  Presence presence = Presence::kAbsent;
  /// Of the last result.
  HalReturnCode code = kHalSuccess;
  /// The request whose result is awaited: at most one.
  std::optional<HalAction> outstanding;
  /// Whether a request has to be sent, which waits for the result of the outstanding one.
  bool due = false;
  /// Whether the next request belongs to a reinstall and is an install whatever the HAL holds.
  bool reinstall = false;
  /// How often in a row a request has ended without a verdict on the object.
  std::uint8_t attempts = 0;
  /// The place in the queue of due requests; see `RequestQueue`.
  std::optional<std::uint8_t> queued_rank;
  ObjectState state() const { return state_; }

 private:
  // Sets the state, to count the objects in each.
  friend class DestDatabase;
  ObjectState state_ = ObjectState::kPending;
};

Standing StandingOf(const Object& object);

/// The objects by kind and id, and the entries that the requests are about: the destinations
/// themselves, and the VRFs' numbers. Owned by the manager and used on its thread only; an object
/// stays at its address until it is forgotten.
class DestDatabase {
 public:
  using Objects = std::map<ObjectKey, Object>;
  using StandingCounts = std::array<std::size_t, kStandings>;

  struct Changes {
    /// New entries and those whose content differs from the site's.
    std::vector<Object*> changed;
    /// Entries that the site no longer has.
    std::vector<Object*> dropped;
  };

  /// Makes `site` what is wanted and returns what that changes. States are left to the caller;
  /// objects that were already removed are forgotten.
  Changes Replace(const Site& site);

  /// The entry of that kind and id in the HAL: of a VRF by its number. Null when there is none.
  Object* FindEntry(const ObjectKey& key);

  /// Calls `function(Object*)` on each entry of the kind.
  template <typename Function>
  void ForEachEntry(HalKind kind, Function function) {
    Objects& entries = kind == HalKind::kVrf ? vrf_entries_ : objects_;
    for (auto entry = entries.lower_bound({kind, 0});
         entry != entries.end() && entry->first.kind == kind; ++entry) {
      function(&entry->second);
    }
  }

  /// Null when there is none.
  Object* Find(const ObjectKey& key);
  const Object* Find(const ObjectKey& key) const;

  /// The destination that an object refers to by `id`: the one that the site has or, without one,
  /// an older one. Null when there is none.
  const Object* FindReferenced(std::uint32_t id) const;

  /// Whether the HAL holds the destination that the site has under `id`. Another one under the same
  /// id, of the kind that it was before, does not count.
  bool InHal(std::uint32_t id) const;

  /// Sets the state of an entry, and of the VRFs that it stands for.
  void SetState(Object* entry, ObjectState state);

  /// How many objects of the kind stand how. Kept up to date, not counted on the call.
  const StandingCounts& counts(HalKind kind) const {
    return counts_[static_cast<std::size_t>(kind)];
  }

  const Objects& objects() const { return objects_; }

 private:
  template <typename SiteObject>
  void ReplaceEach(const std::vector<SiteObject>& entries, Changes* changes);
  static void Drop(Object* entry, Changes* changes);
  void ReplaceEach(const std::vector<SiteVrf>& vrfs, Changes* changes);
  void UpdateVrf(Object* vrf);
  std::size_t& CountOf(const Object& object);

  // The VRFs by database id, the destinations by theirs.
  Objects objects_;
  // By number.
  Objects vrf_entries_;
  // The numbers that a VRF has or had, as long as their entries may have to be removed for it; and
  // the other way round.
  std::map<std::uint32_t, std::set<std::uint32_t>> numbers_of_vrf_;
  std::map<std::uint32_t, std::set<std::uint32_t>> vrfs_of_number_;
  std::array<StandingCounts, kHalKinds> counts_{};
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_
