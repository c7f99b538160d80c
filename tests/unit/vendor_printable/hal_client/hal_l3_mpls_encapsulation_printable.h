#ifndef ZUSKUX_TESTS_UNIT_VENDOR_PRINTABLE_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_
#define ZUSKUX_TESTS_UNIT_VENDOR_PRINTABLE_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_

#include <boost/core/demangle.hpp>
#include <cstddef>
#include <string>
#include <typeinfo>

/// A vendor's base in place of the platform's: its numbers show how they were requested.
class __attribute__((visibility("default"))) HalL3MplsEncapsulationPrintable {
 public:
  HalL3MplsEncapsulationPrintable() = default;
  HalL3MplsEncapsulationPrintable(const HalL3MplsEncapsulationPrintable&) = delete;
  HalL3MplsEncapsulationPrintable& operator=(const HalL3MplsEncapsulationPrintable&) = delete;
  virtual ~HalL3MplsEncapsulationPrintable() = default;

  virtual std::string ToString(bool full) const = 0;

  /// "<TYPE VALUE, WIDTH digits>"
  template <typename T>
  std::string ToHexString(T value, std::size_t width) const {
    return "<" + boost::core::demangle(typeid(T).name()) + " " + std::to_string(value) + ", " +
           std::to_string(width) + " digits>";
  }
};

#endif  // ZUSKUX_TESTS_UNIT_VENDOR_PRINTABLE_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_PRINTABLE_H_
