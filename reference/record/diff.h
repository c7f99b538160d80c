#ifndef ZUSKUX_REFERENCE_RECORD_DIFF_H_
#define ZUSKUX_REFERENCE_RECORD_DIFF_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/hal/message_fields.h"
#include "reference/record/recorded_schema.h"
#include "reference/record/steps.h"

namespace reference {

/// What a HAL holds at the end of a recording.
struct EndState {
  HalTables tables;
  /// Requests that succeeded when recorded but fail on these tables: the recording does not start
  /// with an empty HAL, or messages are missing from it.
  std::size_t not_applied = 0;
};

/// Applies the requests that had succeeded, and VRF requests, which have no result, to empty tables
/// of unlimited size. A server-found entry empties the tables.
EndState ComputeEndState(const std::vector<Step>& steps);

/// One side of a comparison. Owns nothing.
struct DiffSide {
  /// The side's name in the output.
  const char* name;
  const HalTables* tables;
  const RecordedSchema* schema;
  const InterfaceNames* interfaces;
};

/// An entry that differs between the two sides, or that only one of them holds.
struct Difference {
  HalKind kind = HalKind::kVrf;
  std::uint32_t id = 0;
  /// Null on a side that does not hold the entry.
  MessageFields a;
  MessageFields b;
};

/// By kind and id.
std::vector<Difference> FindDifferences(const DiffSide& a, const DiffSide& b);

/// Writes an entry's fields, or the fields that change from `a` to `b`, for each difference, then
/// their number.
void WriteDiff(const DiffSide& a, const DiffSide& b, const std::vector<Difference>& differences,
               std::ostream* out);

/// Writes the same as JSON: an object with "a", "b" and "differences".
void WriteDiffAsJson(const DiffSide& a, const DiffSide& b,
                     const std::vector<Difference>& differences, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_DIFF_H_
