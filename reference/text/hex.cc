#include "reference/text/hex.h"

#include <iomanip>
#include <sstream>

namespace reference {

std::string Hex(std::uint64_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(16) << std::setfill('0') << number;
  return text.str();
}

std::string HexOfBytes(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4U];
    text += kDigits[value & 0xFU];
  }
  return text;
}

}  // namespace reference
