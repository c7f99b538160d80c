#ifndef ZUSKUX_REFERENCE_MANAGER_EXPLAIN_H_
#define ZUSKUX_REFERENCE_MANAGER_EXPLAIN_H_

#include <optional>
#include <string>

#include "reference/manager/dest_database.h"

namespace reference {

/// Why an object stands as it does: a line for it and, when it failed because it lacks another, a
/// line for each step down to the first cause. Nothing when the database has no such object.
std::optional<std::string> Explain(const DestDatabase& database, const ObjectKey& key);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_EXPLAIN_H_
