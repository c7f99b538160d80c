#ifndef ZUSKUX_REFERENCE_WIRE_PRINTABLE_H_
#define ZUSKUX_REFERENCE_WIRE_PRINTABLE_H_

#include <string>
#include <string_view>

namespace reference {

/// Text of the other side, for a line of ours: at most 200 bytes of it, and '?' for each byte that
/// is no printable ASCII character.
std::string Printable(std::string_view text);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_PRINTABLE_H_
