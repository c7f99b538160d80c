#include "reference/manager/program/removal_limit.h"

#include <algorithm>

#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::size_t kAlwaysAllowed = 10;
constexpr std::size_t kAllowedShare = 4;
// How many removals a refusal names.
constexpr std::size_t kNamed = 5;

}  // namespace

std::optional<std::string> TooManyRemovals(const DestDatabase::Removals& removals,
                                           std::optional<std::size_t> limit) {
  const std::size_t count = removals.objects.size();
  const std::size_t allowed =
      limit.value_or(std::max(kAlwaysAllowed, removals.present / kAllowedShare));
  if (count <= allowed) return std::nullopt;
  std::string text = "would remove " + std::to_string(count) + " of " +
                     std::to_string(removals.present) + " objects";
  const char* separator = ": ";
  for (std::size_t i = 0; i < std::min(count, kNamed); ++i) {
    const Object& object = *removals.objects[i];
    text += separator + KeyText(object.key) + ' ' + Quote(object.name);
    separator = ", ";
  }
  if (count > kNamed) text += " and " + std::to_string(count - kNamed) + " more";
  return text;
}

}  // namespace reference
