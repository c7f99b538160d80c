#include "zuskux/mpls_encapsulation_message.h"

#include <array>
#include <string_view>
#include <vector>

#include "dest_host/hai/action_flags.h"
#include "hai/framed_payload.h"
#include "hai/rendering.h"
#include "hai/table.h"
#include "hal_client/hal_mpls_capabilities.h"

namespace dest_mng {
namespace {

std::string_view CapabilityName(en_HalMplsCapabilities capability) {
  static constexpr std::array<std::string_view, 6> kNames = {"None",    "Protection", "Swap",
                                                             "Forward", "Push",       "VCLabel"};
  return EntryOr(kNames, capability, std::string_view("Unknown"));
}

}  // namespace
}  // namespace dest_mng

MplsEncapsulationMessage::MplsEncapsulationMessage() noexcept : AppMessage(nullptr) {}

MplsEncapsulationMessage::MplsEncapsulationMessage(
    std::unique_ptr<encapsulation::MplsMessage> message) noexcept
    : AppMessage(message.release()) {}

MplsEncapsulationMessage::~MplsEncapsulationMessage() { delete message(); }

bool MplsEncapsulationMessage::Unserialize(void* buffer) {
  const std::string_view payload = dest_mng::FramedPayload(buffer);
  auto* parsed = new encapsulation::MplsMessage;
  set_message(parsed);
  return dest_mng::ParsePayload(payload, parsed);
}

std::string MplsEncapsulationMessage::ToString(bool full) const {
  dest_mng::Text text;
  dest_mng::AppendObject("MplsEncapsulationMessage", this, *this, &text);
  if (!full) return text.str();

  const auto& mpls = dest_mng::MessageOrEmpty<encapsulation::MplsMessage>(message());
  text.Append(": MplsMessage(mpls destination id(");
  text.AppendDecimal(mpls.dest_id());
  text.Append(")");

  if (mpls.has_vlan_tunnel_dest_id()) {
    text.Append(", vlan/tunnel destination id(");
    text.AppendDecimal(mpls.vlan_tunnel_dest_id());
    text.Append(")");
  } else {
    text.Append(", vlan/tunnel destination id(Empty)");
  }

  if (mpls.has_lim_id()) {
    dest_mng::AppendLimId(mpls.lim_id(), *this, &text);
  } else {
    text.Append(", lim id(Empty)");
  }

  if (mpls.has_dest_mac()) {
    text.Append(", destination ");
    dest_mng::AppendMacAddress(mpls.dest_mac(), &text);
  } else {
    text.Append(", destination mac address(Empty)");
  }

  text.Append(", labels(size=");
  text.AppendDecimal(mpls.labels_size());
  for (const std::uint32_t label : mpls.labels()) {
    text.Append(", label(");
    text.AppendDecimal(label);
    text.Append(")");
  }
  text.Append(")");

  std::vector<en_HalMplsCapabilities> capabilities;
  capabilities.reserve(static_cast<std::size_t>(mpls.capabilities_size()));
  for (const int capability : mpls.capabilities()) {
    capabilities.push_back(static_cast<en_HalMplsCapabilities>(capability));
  }
  text.Append(", MPLS Capabilities(");
  std::string_view separator;
  for (const en_HalMplsCapabilities capability : capabilities) {
    text.Append(separator);
    text.Append(dest_mng::CapabilityName(capability));
    separator = ", ";
  }
  text.Append(")");

  // A single flag, hence "Flag"; a host destination has a list of "Flags". Absent reads as 0.
  text.Append(", HAL Flag(");
  text.Append(dest_mng::ActionFlagLabel(static_cast<ActionFlags>(mpls.flag())));
  text.Append("))");
  return text.str();
}
