#ifndef ZUSKUX_BENCHMARKS_DESTINATIONS_H_
#define ZUSKUX_BENCHMARKS_DESTINATIONS_H_

#include <array>
#include <cstddef>
#include <vector>

#include "reference/hal/hal_request.h"
#include "reference/manager/engine/hai_object.h"

namespace bench {

/// The objects of a generated site as the library's adapters take them, by kind. Tunnels come
/// before the circuits that ride on them.
using Destinations = std::array<std::vector<reference::HaiObject>, reference::kHalKinds>;

/// Deterministic: the same objects for the same number.
Destinations MakeDestinations(std::size_t objects);

/// Calls `function(HaiObject*)` for each object, after all the objects that it refers to.
template <typename Function>
void ForEach(Destinations* destinations, Function function) {
  using reference::HalKind;
  for (const HalKind kind :
       {HalKind::kVrf, HalKind::kVlan, HalKind::kHost, HalKind::kMpls, HalKind::kEcmp}) {
    for (auto& destination : (*destinations)[static_cast<std::size_t>(kind)]) {
      function(&destination);
    }
  }
}

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_DESTINATIONS_H_
