#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/manager/engine/dest_database.h"

namespace reference {

/// What a new site would remove.
struct SiteRemovals {
  std::size_t removed = 0;
  /// The number of objects or entries before.
  std::size_t present = 0;
  /// The first few of those removed, as the operator knows them.
  std::vector<std::string> first;
};

/// The removals of a site that differs from the current one like this.
SiteRemovals NamedRemovals(const SiteDifference& difference);

/// The entries of a HAL that are not in the site of `database`, which a reinstall would remove.
SiteRemovals StaleEntries(const TableEntries& entries, const DestDatabase& database);

/// The reason for refusing a site that would remove more than `limit` of the `what`, with the first
/// few of them; nothing for any other site. Without a limit, a site may remove 10 or, if that is
/// more, a quarter of all: a truncated or empty file would remove more.
std::optional<std::string> TooManyRemovals(const SiteRemovals& removals, const std::string& what,
                                           std::optional<std::size_t> limit);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
