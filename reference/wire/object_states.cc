#include "reference/wire/object_states.h"

#include "reference/wire/frame.h"
#include "wire.pb.h"

namespace reference {

void AppendObjectStates(const std::vector<HalObjectState>& states, std::string* out) {
  wire::ObjectStates message;
  for (const HalObjectState& state : states) {
    wire::ObjectState* const added = message.add_states();
    added->set_kind(static_cast<std::uint32_t>(state.kind));
    added->set_id(state.id);
    added->set_code(static_cast<std::uint32_t>(state.code));
    added->set_reason(state.reason.substr(0, kMaxReason));
  }
  AppendFrame(FrameType::kObjectStates, 0, message.SerializeAsString(), out);
}

std::optional<std::vector<HalObjectState>> ParseObjectStates(std::string_view payload) {
  wire::ObjectStates message;
  if (!message.ParseFromArray(payload.data(), static_cast<int>(payload.size()))) {
    return std::nullopt;
  }
  std::vector<HalObjectState> states;
  for (const wire::ObjectState& state : message.states()) {
    const HalReturnCode code{state.code()};
    if (state.kind() >= kHalKinds || !IsHalCode(code)) return std::nullopt;
    states.push_back({static_cast<HalKind>(state.kind()), state.id(), code,
                      state.reason().substr(0, kMaxReason)});
  }
  return states;
}

}  // namespace reference
