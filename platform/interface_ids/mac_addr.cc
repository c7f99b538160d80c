#include "interface_ids/mac_addr.h"

#include <algorithm>

namespace nettypes {

MACAddr::MACAddr(const std::uint8_t* bytes) : bytes_() {
  std::copy_n(bytes, bytes_.size(), bytes_.begin());
}

std::string MACAddr::to_string() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(3 * bytes_.size());
  for (const std::uint8_t byte : bytes_) {
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace nettypes
