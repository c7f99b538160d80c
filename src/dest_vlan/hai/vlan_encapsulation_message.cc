#include "zuskux/vlan_encapsulation_message.h"

#include <string_view>

#include "hai/framed_payload.h"
#include "hai/rendering.h"

VlanEncapsulationMessage::VlanEncapsulationMessage() noexcept : AppMessage(nullptr) {}

VlanEncapsulationMessage::VlanEncapsulationMessage(
    std::unique_ptr<encapsulation::VlanMessage> message) noexcept
    : AppMessage(message.release()) {}

VlanEncapsulationMessage::~VlanEncapsulationMessage() { delete message(); }

bool VlanEncapsulationMessage::Unserialize(void* buffer) {
  const std::string_view payload = dest_mng::FramedPayload(buffer);
  auto* parsed = new encapsulation::VlanMessage;
  set_message(parsed);
  return dest_mng::ParsePayload(payload, parsed);
}

std::string VlanEncapsulationMessage::ToString(bool full) const {
  dest_mng::Text text;
  dest_mng::AppendObject("VlanEncapsulationMessage", this, *this, &text);
  if (!full) return text.str();

  const auto& vlan = dest_mng::MessageOrEmpty<encapsulation::VlanMessage>(message());
  text.Append(": VlanMessage(vlan destination id(");
  text.AppendDecimal(vlan.vlan_destination_id());
  text.Append(")");

  if (vlan.has_lim_id()) {
    dest_mng::AppendLimId(vlan.lim_id(), *this, &text);
  } else {
    text.Append(", lim id(Empty)");
  }

  if (vlan.has_vrf()) {
    text.Append(", vrf=");
    text.AppendDecimal(vlan.vrf());
  } else {
    text.Append(", vrf=Empty");
  }

  // Deliberately tests the value, unlike the VRF: a present MTU of 0 reads as absent.
  if (vlan.mtu() != 0) {
    text.Append(", mtu=");
    text.AppendDecimal(vlan.mtu());
  } else {
    text.Append(", mtu=Empty");
  }

  // The doubled "source" of the absent form is deliberate.
  text.Append(", source ");
  if (vlan.has_source_mac_address()) {
    dest_mng::AppendMacAddress(vlan.source_mac_address(), &text);
  } else {
    text.Append("source mac address(Empty)");
  }

  text.Append(")");
  return text.str();
}
