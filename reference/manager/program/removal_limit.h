#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The reason for refusing a site that would remove more objects than `limit`, with the first few
/// of them; nothing for any other site. Without a limit, a site may remove 10 objects or, if that
/// is more, a quarter of all: a truncated or empty file would remove more.
std::optional<std::string> TooManyRemovals(const DestDatabase::Removals& removals,
                                           std::optional<std::size_t> limit);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_REMOVAL_LIMIT_H_
