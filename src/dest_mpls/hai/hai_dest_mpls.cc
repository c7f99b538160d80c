#include "zuskux/hai_dest_mpls.h"

#include <array>
#include <memory>

#include "dest_manager/db_objects.h"
#include "hai/attributes.h"
#include "hai/log.h"
#include "hai/send_to_hal.h"
#include "hai/table.h"

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/dest_mpls/hai/hai_dest_mpls";

constexpr LogSite kDropFlagTrace{kFile, "TranslateMplsObjectToEncapMessage", 70, kTraceLevel};
constexpr LogSite kCreateTrace{kFile, "CreateDestination", 80, kTraceLevel};
constexpr LogSite kCreateNoClient{kFile, "CreateDestination", 84, kErrorLevel};
constexpr LogSite kDeleteTrace{kFile, "DeleteDestination", 95, kTraceLevel};
constexpr LogSite kDeleteNoClient{kFile, "DeleteDestination", 99, kErrorLevel};
constexpr LogSite kUpdateTrace{kFile, "UpdateDestination", 110, kTraceLevel};
constexpr LogSite kUpdateNoClient{kFile, "UpdateDestination", 114, kErrorLevel};

}  // namespace

HaiL3MplsEncapsulationMpls::HaiL3MplsEncapsulationMpls() = default;

HaiL3MplsEncapsulationMpls::~HaiL3MplsEncapsulationMpls() = default;

encapsulation::MplsCapabilities
HaiL3MplsEncapsulationMpls::TranslateMplsCapabilityToEncapCapability(MplsCapabilities capability) {
  // Deliberate: 3 and 4 are swapped, and 0 and every unknown value become 3.
  static constexpr std::array kCapabilities = {
      encapsulation::MPLS_CAPABILITY_FORWARD, encapsulation::MPLS_CAPABILITY_PROTECTION,
      encapsulation::MPLS_CAPABILITY_SWAP,    encapsulation::MPLS_CAPABILITY_PUSH,
      encapsulation::MPLS_CAPABILITY_FORWARD, encapsulation::MPLS_CAPABILITY_VC_LABEL};
  return EntryOr(kCapabilities, capability, encapsulation::MPLS_CAPABILITY_FORWARD);
}

void HaiL3MplsEncapsulationMpls::TranslateMplsObjectToEncapMessage(
    void* object, encapsulation::MplsMessage* message) {
  auto* mpls = static_cast<DbMplsObject*>(object);
  const auto& record = static_cast<const DestMplsMessage&>(*mpls->record);

  if (record.has_mpls_dest_id()) message->set_dest_id(record.mpls_dest_id());
  // Deliberately always set, even to 0, unlike in the host destination.
  message->set_vlan_tunnel_dest_id(
      mpls->HasVcLabel() ? record.tunnel_dest_id()
                         : static_cast<std::uint32_t>(ReadInteger(mpls, "vlan_dest_id")));
  if (record.has_lim_id()) message->set_lim_id(record.lim_id());
  if (record.has_dest_mac()) message->set_dest_mac(record.dest_mac());
  if (record.has_label()) message->add_labels(record.label());
  if (record.has_pass_through_value()) {
    message->set_pass_through_value(record.pass_through_value());
  }

  for (const int capability : record.capabilities()) {
    message->add_capabilities(
        TranslateMplsCapabilityToEncapCapability(static_cast<MplsCapabilities>(capability)));
  }

  if (ReadInteger(mpls, "host_dest_id") == 0) {
    ZUSKUX_TRACE(kDropFlagTrace, "[TX ===>] hai:mpls:No neighbor active, turn on Drop Flag");
    message->set_flag(encapsulation::ACTION_DROP);
  }
}

MplsEncapsulationMessage HaiL3MplsEncapsulationMpls::TranslateMessage(void* object) {
  auto* message = new encapsulation::MplsMessage;
  // Deliberately unowned until the translation returns: if it throws, the message leaks.
  TranslateMplsObjectToEncapMessage(object, message);
  return MplsEncapsulationMessage(std::unique_ptr<encapsulation::MplsMessage>(message));
}

int HaiL3MplsEncapsulationMpls::CreateDestination(void* object) {
  MplsEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kCreateTrace, "[TX ===>] hai:mpls:msg:%s", message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::InstallMplsUnprotectedOutgoingEncapsulation, &message,
            kCreateNoClient);
  return 0;
}

int HaiL3MplsEncapsulationMpls::DeleteDestination(void* object) {
  MplsEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kDeleteTrace, "[TX ===>] hai:mpls:msg:%s", message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::DestroyMplsUnprotectedOutgoingEncapsulation, &message,
            kDeleteNoClient);
  return 0;
}

int HaiL3MplsEncapsulationMpls::UpdateDestination(void* object) {
  MplsEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kUpdateTrace, "[TX ===>] hai:mpls:msg:%s", message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::ReplaceMplsUnprotectedOutgoingEncapsulation, &message,
            kUpdateNoClient);
  return 0;
}

}  // namespace dest_mng
