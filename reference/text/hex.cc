#include "reference/text/hex.h"

#include <iomanip>
#include <sstream>

namespace reference {

std::string Hex(std::uint64_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(16) << std::setfill('0') << number;
  return text.str();
}

}  // namespace reference
