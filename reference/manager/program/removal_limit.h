#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// If a new site would remove more objects than `limit`, says so and names the first few; otherwise
/// empty. A truncated or empty file reads as a site without most of the objects. Without a limit, a
/// site may remove 10 objects or, if that is more, a quarter of all.
std::string TooManyRemovals(const DestDatabase::Removals& removals,
                            std::optional<std::size_t> limit);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
