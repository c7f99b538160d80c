#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_EXPLAIN_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_EXPLAIN_H_

#include <optional>
#include <string>
#include <vector>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// A line of an explanation.
struct ExplainStep {
  /// The object that it is about; nothing if that does not exist.
  std::optional<ObjectKey> key;
  std::string text;
};

/// The lines of `Explain`: the object, then the cause of each line before. Empty if the database
/// has no such object.
std::vector<ExplainStep> ExplainSteps(const DestDatabase& database, const ObjectKey& key);

/// Explains an object's state in one line. If the object failed because another one is missing,
/// adds a line for each step down to the first cause. Nothing if the database has no such object.
std::optional<std::string> Explain(const DestDatabase& database, const ObjectKey& key);

/// Whether the HAL holds the object as the site describes it, or has removed it as the site does.
/// False for an unknown object.
bool IsInPlace(const DestDatabase& database, const ObjectKey& key);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_EXPLAIN_H_
