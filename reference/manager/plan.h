#ifndef ZUSKUX_REFERENCE_MANAGER_PLAN_H_
#define ZUSKUX_REFERENCE_MANAGER_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/site/site.h"

namespace reference {

enum class PlannedChange : std::uint8_t { kInstall, kReplace, kRemove };

/// An entry of the HAL that a site would change.
struct PlanStep {
  PlannedChange change = PlannedChange::kInstall;
  HalKind kind = HalKind::kVrf;
  /// The id under which the HAL has it: the numeric one of a VRF.
  std::uint32_t id = 0;
  /// Empty for what is removed.
  std::string name;
  /// Serialised messages: what the HAL holds, and what it is to hold. Empty for none.
  std::string present;
  std::string wanted;
};

/// What bringing a HAL to a site changes.
struct Plan {
  /// In the order of sending; what is removed comes last, by kind and id.
  std::vector<PlanStep> steps;
  /// Entries that are as the site wants them. They are sent too: a manager that finds a HAL
  /// reinstalls everything.
  std::size_t unchanged = 0;
};

/// Translates the site's objects through the library, and compares the messages with what the HAL
/// holds. Sends nothing.
Plan MakePlan(const Site& site, const TableEntries& present);

/// Writes a line for each step with its messages below it, and the totals.
void WritePlan(const Plan& plan, std::ostream* out);

/// Writes the same for programs: an object with "steps" and "summary".
void WritePlanAsJson(const Plan& plan, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PLAN_H_
