#include "reference/hal/kinds.h"

namespace reference {
namespace {

constexpr bool RowsAreInOrder() {
  for (std::size_t place = 0; place < kHalKinds; ++place) {
    if (static_cast<std::size_t>(kAllHalKinds[place]) != place) return false;
  }
  return true;
}
static_assert(RowsAreInOrder(), "a row's place in `Kinds` is its value in `HalKind`");

constexpr bool EachOperationHasItsOwnValue() {
  std::size_t count = 0;
  for (const std::uint8_t place : kPlacesOfOperations) count += place == kNoOperation ? 0 : 1;
  return count == kAllHalOperations.size();
}
static_assert(EachOperationHasItsOwnValue(), "two operations have the same value");

}  // namespace
}  // namespace reference
