#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "reference/hal/hal_tables.h"
#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The digests of the entries that the HAL has acknowledged, computed in steps, because each entry
/// has to be translated. Belongs to the manager; used on its thread.
class AcknowledgedDigests {
 public:
  /// An entry has changed: start over.
  void Invalidate() { *this = {}; }

  /// Adds at most `max_entries` entries. Returns whether the digests are complete.
  bool Continue(const DestDatabase& database, std::size_t max_entries);

  /// Complete once `Continue` has returned true.
  const HalDigests& digests() const { return digests_; }

 private:
  HalDigests digests_{};
  // The table being read (VRFs, then destinations) and the last entry read there.
  std::size_t table_ = 0;
  std::optional<ObjectKey> place_;
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

/// "vlan 8 here, 7 there; host 40 with other content"; empty if the digests are equal.
std::string DifferenceText(const HalDigests& here, const HalDigests& there);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_AUDIT_H_
