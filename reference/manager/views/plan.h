#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_PLAN_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/hal/message_fields.h"
#include "reference/site/site.h"

namespace reference {

enum class PlannedChange : std::uint8_t { kInstall, kReplace, kRemove };

/// An entry of the HAL that a site would change.
struct PlanStep {
  PlannedChange change = PlannedChange::kInstall;
  HalKind kind = HalKind::kVrf;
  /// The id under which the HAL keeps it; for a VRF, its number.
  std::uint32_t id = 0;
  /// Empty for a removal.
  std::string name;
  /// What the HAL holds now, and what it would hold. Null for none.
  MessageFields present;
  MessageFields wanted;
};

/// The changes that would bring a HAL to a site.
struct Plan {
  /// In sending order; removals come last, by kind and id.
  std::vector<PlanStep> steps;
  /// Entries that already are as the site wants them. They are sent too: a manager that finds a HAL
  /// reinstalls everything.
  std::size_t unchanged = 0;
};

/// Translates the site's objects through the library and compares the messages with what the HAL
/// holds. Sends nothing.
Plan MakePlan(const Site& site, const TableEntries& present);

/// Whether anything would change.
inline bool HasChanges(const Plan& plan) { return !plan.steps.empty(); }

/// Writes a line for each step, with its message's fields or what changes in them below it, then
/// the totals.
void WritePlan(const Plan& plan, std::ostream* out);

/// Writes the same as JSON: an object with "steps" and "summary".
void WritePlanAsJson(const Plan& plan, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_PLAN_H_
