#ifndef ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_
#define ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_

#include <cstddef>
#include <cstdint>
#include <string>

/// A HAL message that renders itself as one line of text for the trace log. Used by one thread at a
/// time.
///
/// The order of the virtual operations is part of the binary interface.
class __attribute__((visibility("default"))) HalL3MplsEncapsulationPrintable {
 public:
  HalL3MplsEncapsulationPrintable() = default;
  HalL3MplsEncapsulationPrintable(const HalL3MplsEncapsulationPrintable&) = delete;
  HalL3MplsEncapsulationPrintable& operator=(const HalL3MplsEncapsulationPrintable&) = delete;
  virtual ~HalL3MplsEncapsulationPrintable() = default;

  /// One line: the object's name and address and, if `full`, the carried message too.
  virtual std::string ToString(bool full) const = 0;

  /// "0x" and exactly `width` upper-case hexadecimal digits: the lowest `width` nibbles of the
  /// unsigned `value`, left-padded with zeros. Higher nibbles are dropped.
  template <typename T>
  std::string ToHexString(T value, std::size_t width) const {
    static const char* digits = "0123456789ABCDEF";
    std::string text(width + 2, '0');
    text[1] = 'x';
    std::uint64_t rest = value;
    for (std::size_t place = text.size(); place > 2; --place, rest >>= 4) {
      text[place - 1] = digits[rest & 0xF];
    }
    return text;
  }
};

#endif  // ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_
