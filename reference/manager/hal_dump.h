#ifndef ZUSKUX_REFERENCE_MANAGER_HAL_DUMP_H_
#define ZUSKUX_REFERENCE_MANAGER_HAL_DUMP_H_

#include <ostream>

#include "reference/hal/embedded_hal.h"
#include "reference/hal/hal_tables.h"

namespace reference {

/// Waits until the HAL has carried out everything that was sent so far, also what has no result. No
/// request is outstanding, and the caller is the HAL's only user.
void WaitUntilApplied(EmbeddedHal* hal);

/// Writes what the tables hold: a line for each entry, its kind, id and decoded message, by kind
/// and id.
void DumpTables(const HalTables& tables, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_HAL_DUMP_H_
