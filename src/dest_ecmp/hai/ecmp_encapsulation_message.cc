#include "zuskux/ecmp_encapsulation_message.h"

#include "hai/framed_payload.h"
#include "hai/rendering.h"

EcmpEncapsulationMessage::EcmpEncapsulationMessage() : AppMessage(nullptr) { set_message(&encap_); }

EcmpEncapsulationMessage::~EcmpEncapsulationMessage() = default;

bool EcmpEncapsulationMessage::Unserialize(void* buffer) {
  return dest_mng::ParsePayload(dest_mng::FramedPayload(buffer), &encap_);
}

std::string EcmpEncapsulationMessage::ToString(bool full) const {
  dest_mng::Text text;
  dest_mng::AppendObject("EcmpEncapsulationMessage", this, *this, &text);
  if (!full) return text.str();

  text.Append(": EcmpMessage(destination id(");
  text.AppendDecimal(encap_.db_id());
  text.Append(")");
  // Deliberately has no "Empty" form, unlike the fields of the other kinds.
  if (encap_.members_size() != 0) {
    text.Append(" EcmpMembers[ ");
    for (const std::uint32_t member : encap_.members()) {
      text.AppendDecimal(member);
      text.Append(" ");
    }
    text.Append("]");
  }
  text.Append(")");
  return text.str();
}
