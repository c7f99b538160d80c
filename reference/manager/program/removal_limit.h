#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// What to say if a new site would remove more objects than `limit`, with the first few. A
/// truncated or empty file reads as a site without most of the objects. Without a limit, a site may
/// remove 10 objects or, if that is more, a quarter of all.
std::optional<std::string> TooManyRemovals(const DestDatabase::Removals& removals,
                                           std::optional<std::size_t> limit);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
