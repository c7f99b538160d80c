#ifndef ZUSKUX_REFERENCE_RECORD_DIFF_H_
#define ZUSKUX_REFERENCE_RECORD_DIFF_H_

#include <cstddef>
#include <ostream>
#include <vector>

#include "reference/hal/hal_tables.h"
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
};

/// Prints the differences by kind and id, with messages in protobuf's text form. Returns the number
/// of entries that differ.
std::size_t PrintDiff(const DiffSide& a, const DiffSide& b, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_DIFF_H_
