#include "zuskux/host_encapsulation_message.h"

#include <string_view>
#include <vector>

#include "dest_host/hai/action_flags.h"
#include "hai/framed_payload.h"
#include "hai/rendering.h"

HostEncapsulationMessage::HostEncapsulationMessage() noexcept : AppMessage(nullptr) {}

HostEncapsulationMessage::HostEncapsulationMessage(
    std::unique_ptr<encapsulation::HostMessage> message) noexcept
    : AppMessage(message.release()) {}

HostEncapsulationMessage::~HostEncapsulationMessage() { delete message(); }

bool HostEncapsulationMessage::Unserialize(void* buffer) {
  const std::string_view payload = dest_mng::FramedPayload(buffer);
  auto* parsed = new encapsulation::HostMessage;
  set_message(parsed);
  return dest_mng::ParsePayload(payload, parsed);
}

std::string HostEncapsulationMessage::ToString(bool full) const {
  dest_mng::Text text;
  dest_mng::AppendObject("HostEncapsulationMessage", this, *this, &text);
  if (!full) return text.str();

  const auto& host = dest_mng::MessageOrEmpty<encapsulation::HostMessage>(message());
  text.Append(": HostMessage(host destination id(");
  text.AppendDecimal(host.dest_id());
  text.Append(")");

  if (host.has_vlan_dest_id()) {
    text.Append(", vlan destination id(");
    text.AppendDecimal(host.vlan_dest_id());
    text.Append(")");
  } else {
    text.Append(", vlan destination id(Empty)");
  }

  if (host.has_lim_id()) {
    dest_mng::AppendLimId(host.lim_id(), *this, &text);
  } else {
    text.Append(", lim id(Empty)");
  }

  std::vector<ActionFlags> flags;
  flags.reserve(static_cast<std::size_t>(host.flags_size()));
  for (const int flag : host.flags()) flags.push_back(static_cast<ActionFlags>(flag));
  text.Append(", HAL Flags(");
  std::string_view separator;
  for (const ActionFlags flag : flags) {
    text.Append(separator);
    text.Append(dest_mng::ActionFlagLabel(flag));
    separator = ", ";
  }
  text.Append(")");

  if (host.has_dest_mac()) {
    text.Append(", destination ");
    dest_mng::AppendMacAddress(host.dest_mac(), &text);
  } else {
    text.Append(", destination mac address(Empty)");
  }

  text.Append(")");
  return text.str();
}
