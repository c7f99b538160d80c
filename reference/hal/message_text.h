#ifndef ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_
#define ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_

#include <ostream>
#include <string>

#include "reference/hal/hal_tables.h"

namespace reference {

/// A serialised message of the kind as one line of text: "db_id: 10 mtu: 1500". If it does not
/// decode, the text of the part before the error.
std::string MessageText(HalKind kind, const std::string& payload);

/// Writes one line per entry, with its kind, id and decoded message, by kind and id.
void DumpEntries(const TableEntries& entries, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_MESSAGE_TEXT_H_
