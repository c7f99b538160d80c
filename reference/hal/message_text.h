#ifndef ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_
#define ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_

#include <ostream>
#include <string>

#include "reference/hal/hal_tables.h"

namespace reference {

/// What a serialised message of the kind says, on one line: "db_id: 10 mtu: 1500". What precedes
/// the place where it does not decode, if it does not.
std::string MessageText(HalKind kind, const std::string& payload);

/// Writes a line for each entry, its kind, id and decoded message, by kind and id.
void DumpEntries(const TableEntries& entries, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_
