#ifndef ZUSKUX_REFERENCE_SERVER_OBJECT_STATES_H_
#define ZUSKUX_REFERENCE_SERVER_OBJECT_STATES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/hal_object_state.h"

namespace reference {

/// The objects of the tables that the hardware does not forward for, and what the writer knows
/// about them: after an object's result, it takes the object to be in order until a state says
/// otherwise. Changes that have not reached the writer yet are merged, so an object waits at most
/// once. The server's state owns it; used on the server's thread.
class ObjectStates {
 public:
  /// `broken` are all objects that are not in order now.
  void SetAll(const std::vector<HalObjectState>& broken);
  /// The state of one object.
  void Set(const HalObjectState& state);
  /// The object is no longer in the tables, so it has no state.
  void Remove(HalKind kind, std::uint32_t id);
  /// The same for all objects that `is_held(kind, id)` denies.
  template <typename IsHeld>
  void RemoveUnless(IsHeld is_held) {
    for (const auto& [key, state] : States(broken_)) {
      if (!is_held(key.first, key.second)) Remove(key.first, key.second);
    }
  }
  /// Drops everything, as a restart does.
  void Clear() { *this = {}; }

  /// The writer has got a result that installs or replaces the object. Returns whether the object
  /// is not in order all the same.
  bool TellAgain(HalKind kind, std::uint32_t id);
  /// The writer has got a result that refuses the object, with a code that the state of the
  /// hardware explains. Remembers it if that makes at most `limit` objects.
  void NoteRefusal(HalKind kind, std::uint32_t id, HalReturnCode code, std::size_t limit);
  /// The hardware may accept now what was refused: tells of each such object that it is in order,
  /// so that the writer sends it again.
  void TellOfRefusals();
  /// The writer is new and knows nothing.
  void TellAll();

  /// Whether every object is in order, and the writer knows that.
  bool empty() const { return broken_.empty() && told_.empty() && untold_.empty(); }
  bool has_news() const { return !untold_.empty(); }
  /// The next states to tell, at most `limit`. Empty if the writer knows everything.
  std::vector<HalObjectState> TakeNews(std::size_t limit);

 private:
  using Key = std::pair<HalKind, std::uint32_t>;
  using States = std::map<Key, HalObjectState>;

  // Those that are not in order: now, and as far as the writer knows, refused ones included.
  States broken_;
  States told_;
  // Those that may differ between the two.
  std::set<Key> untold_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_OBJECT_STATES_H_
