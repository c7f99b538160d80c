#ifndef ZUSKUX_REFERENCE_TEXT_HEX_H_
#define ZUSKUX_REFERENCE_TEXT_HEX_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace reference {

/// "0x" and sixteen lower-case digits, the form of generations and digests everywhere.
std::string Hex(std::uint64_t number);

/// Two lower-case digits for each byte.
std::string HexOfBytes(std::string_view bytes);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_HEX_H_
