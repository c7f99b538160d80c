#ifndef ZUSKUX_REFERENCE_MANAGER_WEB_CHANGE_HISTORY_H_
#define ZUSKUX_REFERENCE_MANAGER_WEB_CHANGE_HISTORY_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <vector>

#include "reference/manager/views/report.h"

namespace reference {

/// An object's standing has changed.
struct Change {
  /// Counted from 1.
  std::uint64_t seq = 0;
  std::chrono::system_clock::time_point time;
  /// What the object is like since then.
  ObjectRow row;
};

/// {"seq":12,"time_ms":...,"key":"vlan:10",...}
nlohmann::ordered_json ChangeAsJson(const Change& change);

/// The latest changes of all objects. A burst of changes displaces older ones, except for refusals,
/// which it keeps longer. Used on one thread.
class ChangeHistory {
 public:
  static constexpr std::size_t kMaxChanges = 65'536;
  static constexpr std::size_t kMaxRefusals = 16'384;

  struct Wanted {
    /// Nothing for all objects.
    std::optional<ObjectKey> key;
    /// Empty for all.
    std::set<Standing> standings;
    /// Only earlier changes than this.
    std::uint64_t before = UINT64_MAX;
    std::size_t limit = 0;
  };
  struct Page {
    /// The newest first.
    std::vector<const Change*> changes;
    /// Whether there are more.
    bool more = false;
    /// The time since which every wanted change is known.
    std::chrono::system_clock::time_point since;
  };

  /// The history begins now.
  ChangeHistory();

  void Add(const Change& change);
  /// Changes that were not added because there were too many.
  void Lose(std::chrono::system_clock::time_point time);
  /// Valid until the history changes.
  Page Find(const Wanted& wanted) const;

 private:
  // A queue that forgets the oldest.
  struct Ring {
    void Add(const Change& change, std::size_t max);

    std::deque<Change> changes;
    std::chrono::system_clock::time_point since;
  };

  Ring all_;
  // Changes to failed.
  Ring refusals_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_WEB_CHANGE_HISTORY_H_
