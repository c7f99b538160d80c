#include "interface_ids/mac_addr.h"

#include <algorithm>

namespace nettypes {

MACAddr::MACAddr(const std::uint8_t* bytes) : bytes_() {
  std::copy_n(bytes, bytes_.size(), bytes_.begin());
}

std::string MACAddr::to_string() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text(3 * bytes_.size() - 1, ':');
  char* place = text.data();
  for (const std::uint8_t byte : bytes_) {
    place[0] = kDigits[byte >> 4];
    place[1] = kDigits[byte & 0xF];
    place += 3;
  }
  return text;
}

}  // namespace nettypes
