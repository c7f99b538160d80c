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
  /// Requests that had succeeded but do not on these tables: the recording does not start with an
  /// empty HAL, or messages are missing in it.
  std::size_t not_applied = 0;
};

/// Carries out the requests that had succeeded, and those of VRFs, which have no result, on empty
/// tables of any size; a server that is found empties them.
EndState ComputeEndState(const std::vector<Step>& steps);

/// One of the two sides of a comparison. Nothing is owned.
struct DiffSide {
  /// What the side is called in the output.
  const char* name;
  const HalTables* tables;
  const RecordedSchema* schema;
};

/// Prints what differs, by kind and id, messages in protobuf's text form. Returns the number of
/// entries that differ.
std::size_t PrintDiff(const DiffSide& a, const DiffSide& b, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_DIFF_H_
