#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_WAITLIST_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_WAITLIST_H_

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The objects that the HAL refused because a destination that they refer to was missing, or
/// because their table was full. Returns them when that may have changed. It does not track them in
/// between: a returned object may be gone. Used on the manager's thread only.
class Waitlist {
 public:
  /// `object` lacks the destination with that id. May be called for several ids.
  void AddForReference(std::uint32_t id, const ObjectKey& object);
  /// `object` found its table full.
  void AddForRoom(const ObjectKey& object);

  /// Removes and returns the objects that lack the destination.
  std::vector<ObjectKey> TakeForReference(std::uint32_t id);
  /// Removes and returns an object that waits for room in its kind's table.
  std::optional<ObjectKey> TakeForRoom(HalKind kind);

  void Clear();

 private:
  // A missing id, and an object that lacks it.
  std::set<std::pair<std::uint32_t, ObjectKey>> for_reference_;
  // Ids by kind.
  std::array<std::set<std::uint32_t>, kHalKinds> for_room_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_WAITLIST_H_
