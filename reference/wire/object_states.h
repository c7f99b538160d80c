#ifndef ZUSKUX_REFERENCE_WIRE_OBJECT_STATES_H_
#define ZUSKUX_REFERENCE_WIRE_OBJECT_STATES_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reference/hal/hal_object_state.h"

namespace reference {

/// The maximum number of objects in a `kObjectStates` frame, which therefore stays below 64 KiB.
inline constexpr std::size_t kMaxObjectStates = 128;

/// Appends a `kObjectStates` frame; `states` has at most `kMaxObjectStates`. Truncates each reason
/// after `kMaxReason` bytes.
void AppendObjectStates(const std::vector<HalObjectState>& states, std::string* out);

/// Parses the payload of a `kObjectStates` frame; nothing if it does not decode, names no kind, or
/// has a code that no server sends.
std::optional<std::vector<HalObjectState>> ParseObjectStates(std::string_view payload);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_OBJECT_STATES_H_
