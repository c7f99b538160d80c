#include "reference/hal/kinds.h"

#include <limits>

namespace reference {
namespace {

constexpr bool RowsAreInOrder() {
  for (std::size_t place = 0; place < kHalKinds; ++place) {
    if (static_cast<std::size_t>(kAllHalKinds[place]) != place) return false;
  }
  return true;
}
static_assert(RowsAreInOrder(), "a row's place in `Kinds` is its value in `HalKind`");

constexpr std::uint8_t kNone = std::numeric_limits<std::uint8_t>::max();

// For each byte value, the position of the operation in `kAllHalOperations`.
using Places = std::array<std::uint8_t, std::numeric_limits<std::uint8_t>::max() + 1>;

constexpr Places PlacesOfOperations() {
  Places places{};
  for (std::uint8_t& place : places) place = kNone;
  for (std::size_t place = 0; place < kAllHalOperations.size(); ++place) {
    places[static_cast<std::size_t>(kAllHalOperations[place].operation)] =
        static_cast<std::uint8_t>(place);
  }
  return places;
}
constexpr Places kPlaces = PlacesOfOperations();

constexpr bool EachOperationHasItsOwnValue() {
  std::size_t count = 0;
  for (const std::uint8_t place : kPlaces) count += place == kNone ? 0 : 1;
  return count == kAllHalOperations.size();
}
static_assert(EachOperationHasItsOwnValue(), "two operations have the same value");

}  // namespace

bool IsHalOperation(std::uint8_t value) { return kPlaces[value] != kNone; }

const OperationTraits& TraitsOf(HalOperation operation) {
  return kAllHalOperations.at(kPlaces[static_cast<std::uint8_t>(operation)]);
}

}  // namespace reference
