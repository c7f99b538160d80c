#ifndef ZUSKUX_REFERENCE_TEXT_HEX_H_
#define ZUSKUX_REFERENCE_TEXT_HEX_H_

#include <cstdint>
#include <string>

namespace reference {

/// "0x" and sixteen lower-case digits, the form of generations and digests everywhere.
std::string Hex(std::uint64_t number);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_HEX_H_
