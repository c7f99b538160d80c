#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The digests of the entries that the HAL has acknowledged. Each entry has to be translated, so
/// they are computed in steps; once they are complete, only entries that change are read again.
/// Belongs to the manager; used on its thread.
class AcknowledgedDigests {
 public:
  /// Any entry may have changed: start over.
  void Invalidate() { StartWith(digests_.function); }

  /// Starts over with another hash function.
  void StartWith(EntryHashFunction function) {
    *this = {};
    digests_.function = function;
  }

  /// A request for the entry is about to be sent, after which the HAL may hold something else.
  void WillChange(Object* entry);

  /// Reads at most `max_entries` entries. Returns whether the digests are complete.
  bool Continue(DestDatabase* database, std::size_t max_entries);

  /// Complete once `Continue` has returned true.
  const HalDigests& digests() const { return digests_; }

 private:
  // Bounds the memory for the changes; after more of them, everything is read again.
  static constexpr std::size_t kMaxChanged = std::size_t{1} << 16U;

  void Read(Object* entry);

  HalDigests digests_;
  // Whether each entry has been read once; until then, the last one that was.
  bool all_read_ = false;
  std::optional<ObjectKey> last_read_;
  // The entries to be read again; may name an entry twice.
  std::vector<ObjectKey> changed_;
};

/// Limits how often a difference leads to a reinstall: again after a minute at the earliest, then
/// after two and so on up to an hour. Starts over when an audit after that pause finds no
/// difference. A value.
class ReinstallBackoff {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Whether a difference found now may lead to a reinstall; if so, counts it.
  bool Allow(Time now);
  /// An audit has found no difference.
  void InOrder(Time now);

 private:
  static constexpr std::chrono::minutes kFirstPause{1};
  static constexpr std::chrono::minutes kLastPause{60};

  std::chrono::minutes pause_ = kFirstPause;
  std::optional<Time> not_before_;
};

/// "vlan 8 here, 7 there; host 40 with other content"; empty if the digests are equal. Both use the
/// same hash function.
std::string DifferenceText(const HalDigests& here, const HalDigests& there);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_
