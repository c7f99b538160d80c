#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// "pending", "installed" and so on.
std::string_view StandingName(Standing standing);

/// The reason for the object's state; empty if there is none to give.
std::string ReasonOf(const Object& object);

/// Counts objects by `Standing`.
class Summary {
 public:
  explicit Summary(const DestDatabase& database);

  std::size_t count(Standing standing) const { return counts_[static_cast<std::size_t>(standing)]; }
  std::size_t objects() const;
  /// Whether every object has reached its end state: installed, sent or removed.
  bool complete() const { return count(Standing::kPending) + count(Standing::kFailed) == 0; }
  /// "42 objects: 40 installed, 1 sent, 1 failed".
  std::string text() const;

 private:
  DestDatabase::StandingCounts counts_{};
};

/// Writes a line for each object, by kind and id, then the summary.
void WriteTable(const DestDatabase& database, std::ostream* out);

/// Writes the same as JSON: an object with "objects" and "summary", one line per entry.
void WriteJson(const DestDatabase& database, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_
