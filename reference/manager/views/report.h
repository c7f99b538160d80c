#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// "pending", "installed" and so on.
std::string_view StandingName(Standing standing);
/// The reverse. Throws `std::runtime_error` for any other text.
Standing ParseStanding(const std::string& name);

/// The reason for the object's state; empty if there is none to give.
std::string ReasonOf(const Object& object);

/// A row of the table of objects.
struct ObjectRow {
  ObjectKey key;
  std::string name;
  Standing standing = Standing::kPending;
  std::uint32_t code = 0;
  std::string reason;
};

ObjectRow RowOf(const Object& object);

/// {"kind":"vlan","id":10,...}
nlohmann::ordered_json RowAsJson(const ObjectRow& row);
/// The reverse. Throws `nlohmann::json::exception` or `std::runtime_error` for other JSON.
ObjectRow RowOfJson(const nlohmann::ordered_json& json);

/// Counts objects by `Standing`.
class Summary {
 public:
  explicit Summary(const DestDatabase& database);
  /// Of its JSON. Throws as `RowOfJson` does.
  explicit Summary(const nlohmann::ordered_json& json);

  std::size_t count(Standing standing) const { return counts_[static_cast<std::size_t>(standing)]; }
  std::size_t objects() const;
  /// Whether every object has reached its end state: installed, sent or removed.
  bool complete() const { return count(Standing::kPending) + count(Standing::kFailed) == 0; }
  /// "42 objects: 40 installed, 1 sent, 1 failed".
  std::string text() const;
  /// {"objects":42,"installed":40,...}
  nlohmann::ordered_json json() const;

 private:
  DestDatabase::StandingCounts counts_{};
};

/// Writes a line for each row below a header, then the meanings of the states in these rows.
void WriteRows(const std::vector<ObjectRow>& rows, std::ostream* out);

/// Writes what every state means, one sentence each.
void WriteStandings(std::ostream* out);

/// Writes the rows and the summary as JSON: an object with "objects" and "summary", one line per
/// entry.
void WriteRowsAsJson(const std::vector<ObjectRow>& rows, const Summary& summary, std::ostream* out);

/// Writes a row for each object, by kind and id, then the summary.
void WriteTable(const DestDatabase& database, std::ostream* out);

/// Writes the same as JSON.
void WriteJson(const DestDatabase& database, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_REPORT_H_
