#ifndef ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_
#define ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
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
  /// Sent to the HAL, which reports no result: the end state of VRFs.
  kSent,
  /// The HAL refused the last request; `Object::code` says why.
  kFailed,
  kRemoved,
};

/// What the manager knows of the HAL's copy of an object.
enum class Presence : std::uint8_t {
  kAbsent,
  kPresent,
  /// A request ended without telling, for example because the HAL did not answer in time.
  kUnknown,
};

/// An object of the database: what the site wants, and how far the HAL has got.
struct Object {
  ObjectKey key;
  std::string name;
  Destination content;
  /// Whether the site has it; otherwise it is to be removed.
  bool wanted = true;

  ObjectState state = ObjectState::kPending;
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
  /// Of a VRF that is present: the numeric id that the HAL has it under.
  std::uint32_t sent_vrf_id = 0;
};

/// The objects by kind and id. Owned by the manager and used on its thread only; an object stays at
/// its address until it is forgotten.
class DestDatabase {
 public:
  using Objects = std::map<ObjectKey, Object>;

  struct Changes {
    /// New objects and those whose content differs from the site's.
    std::vector<Object*> changed;
    /// Objects that the site no longer has.
    std::vector<Object*> dropped;
  };

  /// Makes `site` what is wanted and tells what that changes. Statuses are left to the caller;
  /// objects that were already removed are forgotten.
  Changes Replace(const Site& site);

  /// Null when there is none.
  Object* Find(const ObjectKey& key);
  const Object* Find(const ObjectKey& key) const;

  /// The destination that an object refers to by `id`: the one that the site has or, without one,
  /// an older one. Null when there is none.
  const Object* FindReferenced(std::uint32_t id) const;

  /// Whether the HAL holds a destination under `id` that others can refer to.
  bool InHal(std::uint32_t id) const;

  Objects& objects() { return objects_; }
  const Objects& objects() const { return objects_; }

 private:
  template <typename SiteObject>
  void ReplaceEach(const std::vector<SiteObject>& entries, Changes* changes);

  Objects objects_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_DEST_DATABASE_H_
