#include "reference/manager/program/removal_limit.h"

#include <algorithm>

#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::size_t kAlwaysAllowed = 10;
constexpr std::size_t kAllowedShare = 4;
// How many removals a refusal names.
constexpr std::size_t kNamed = 5;

bool IsWanted(const std::pair<HalKind, std::uint32_t>& entry, const DestDatabase& database) {
  const ObjectKey key{entry.first, entry.second};
  // The HAL knows a VRF by its number.
  if (key.kind == HalKind::kVrf) return database.vrf_entries().count(key) != 0;
  return database.Find(key) != nullptr;
}

}  // namespace

SiteRemovals NamedRemovals(const SiteDifference& difference) {
  SiteRemovals result{difference.gone.size(), difference.present, {}};
  for (std::size_t i = 0; i < std::min(result.removed, kNamed); ++i) {
    const Object& object = *difference.gone[i];
    result.first.push_back(KeyText(object.key) + ' ' + Quote(object.name));
  }
  return result;
}

SiteRemovals StaleEntries(const TableEntries& entries, const DestDatabase& database) {
  SiteRemovals result{0, entries.size(), {}};
  for (const auto& [entry, payload] : entries) {
    if (IsWanted(entry, database)) continue;
    if (result.removed++ >= kNamed) continue;
    result.first.push_back(std::string(HalKindName(entry.first)) + ' ' +
                           std::to_string(entry.second));
  }
  return result;
}

std::optional<std::string> TooManyRemovals(const SiteRemovals& removals, const std::string& what,
                                           std::optional<std::size_t> limit) {
  const std::size_t allowed =
      limit.value_or(std::max(kAlwaysAllowed, removals.present / kAllowedShare));
  if (removals.removed <= allowed) return std::nullopt;
  std::string text = "would remove " + std::to_string(removals.removed) + " of " +
                     std::to_string(removals.present) + ' ' + what;
  const char* separator = ": ";
  for (const std::string& name : removals.first) {
    text += separator + name;
    separator = ", ";
  }
  if (removals.removed > removals.first.size()) {
    text += " and " + std::to_string(removals.removed - removals.first.size()) + " more";
  }
  return text;
}

}  // namespace reference
