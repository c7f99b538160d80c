#include "zuskux/vrf_encapsulation_message.h"

#include "hai/framed_payload.h"
#include "hai/text.h"

// vrf_hai.cc has a copy.
VrfEncapsulationMessage::VrfEncapsulationMessage() : AppMessage(nullptr) { set_message(&encap_); }

VrfEncapsulationMessage::~VrfEncapsulationMessage() = default;

bool VrfEncapsulationMessage::Unserialize(void* buffer) {
  return dest_mng::ParsePayload(dest_mng::FramedPayload(buffer), &encap_);
}

std::string VrfEncapsulationMessage::ToString(bool /*full*/) const {
  dest_mng::Text text;
  text.Append("VrfEncapsulationMessage(");
  if (encap_.has_vrf_id()) {
    text.Append("VRF id(");
    text.AppendDecimal(encap_.vrf_id());
    text.Append(")");
  } else {
    text.Append("empty");
  }
  text.Append(")");
  return text.str();
}
