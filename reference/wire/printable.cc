#include "reference/wire/printable.h"

#include <algorithm>
#include <cstddef>

namespace reference {
namespace {

constexpr std::size_t kMaxForeignText = 200;

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable(text.substr(0, kMaxForeignText));
  std::replace_if(
      printable.begin(), printable.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return printable;
}

}  // namespace reference
