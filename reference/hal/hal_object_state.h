#ifndef ZUSKUX_REFERENCE_HAL_HAL_OBJECT_STATE_H_
#define ZUSKUX_REFERENCE_HAL_HAL_OBJECT_STATE_H_

#include <cstdint>
#include <string>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// The state of an object in the HAL's tables, told after the object's result.
struct HalObjectState {
  HalKind kind{};
  /// For a VRF, its number.
  std::uint32_t id = 0;
  /// Success if the hardware forwards as the object says; otherwise why it does not.
  HalReturnCode code = kHalSuccess;
  /// The HAL's reason, one line for the operator; may be empty.
  std::string reason;
};

inline bool operator==(const HalObjectState& a, const HalObjectState& b) {
  return a.kind == b.kind && a.id == b.id && a.code == b.code && a.reason == b.reason;
}
inline bool operator!=(const HalObjectState& a, const HalObjectState& b) { return !(a == b); }

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_OBJECT_STATE_H_
