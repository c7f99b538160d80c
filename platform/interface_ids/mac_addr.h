#ifndef ZUSKUX_PLATFORM_INTERFACE_IDS_MAC_ADDR_H_
#define ZUSKUX_PLATFORM_INTERFACE_IDS_MAC_ADDR_H_

#include <array>
#include <cstdint>
#include <string>

namespace nettypes {

/// A MAC address; a plain value.
class __attribute__((visibility("default"))) MACAddr {
 public:
  /// Copies 6 bytes from `bytes`, in transmission order.
  explicit MACAddr(const std::uint8_t* bytes);

  /// Six lower-case hexadecimal pairs with colons: "02:00:00:00:01:0a".
  std::string to_string() const;

 private:
  std::array<std::uint8_t, 6> bytes_;
};

}  // namespace nettypes

#endif  // ZUSKUX_PLATFORM_INTERFACE_IDS_MAC_ADDR_H_
