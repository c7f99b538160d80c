#include "reference/text/local_time.h"

#include <array>
#include <ctime>

namespace reference {

std::string LocalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%F %T", &parts)};
}

}  // namespace reference
