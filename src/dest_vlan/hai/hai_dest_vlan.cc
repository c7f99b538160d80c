#include "zuskux/hai_dest_vlan.h"

#include <array>
#include <boost/variant/get.hpp>
#include <memory>
#include <string>

#include "dest_manager/db_objects.h"
#include "hai/log.h"
#include "hai/send_to_hal.h"
#include "hai/table.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/dest_vlan/hai/hai_dest_vlan";

constexpr LogSite kRecordTrace{kFile, "TranslateVlanObjectToEncapMessage", 52, kTraceLevel};
constexpr LogSite kCreateTrace{kFile, "CreateDestination", 81, kTraceLevel};
constexpr LogSite kCreateNoClient{kFile, "CreateDestination", 85, kErrorLevel};
constexpr LogSite kDeleteTrace{kFile, "DeleteDestination", 102, kTraceLevel};
constexpr LogSite kDeleteNoClient{kFile, "DeleteDestination", 106, kErrorLevel};
constexpr LogSite kUpdateTrace{kFile, "UpdateDestination", 123, kTraceLevel};
constexpr LogSite kUpdateNoClient{kFile, "UpdateDestination", 127, kErrorLevel};

std::unique_ptr<encapsulation::VlanMessage> TranslateToNewVlanMessage(
    HaiL3MplsEncapsulationVlan* adapter, void* object) {
  auto* message = new encapsulation::VlanMessage;
  // Deliberately unowned until the translation returns: if it throws, the message leaks.
  adapter->TranslateVlanObjectToEncapMessage(object, message);
  return std::unique_ptr<encapsulation::VlanMessage>(message);
}

}  // namespace

HaiL3MplsEncapsulationVlan::HaiL3MplsEncapsulationVlan() = default;

HaiL3MplsEncapsulationVlan::~HaiL3MplsEncapsulationVlan() = default;

encapsulation::VlanCapabilities
HaiL3MplsEncapsulationVlan::TranslateVlanCapabilityToEncapCapability(VlanCapabilities capability) {
  static constexpr std::array kCapabilities = {encapsulation::VLAN_CAPABILITY_NONE,
                                               encapsulation::VLAN_CAPABILITY_ROUTED};
  return EntryOr(kCapabilities, capability, encapsulation::VLAN_CAPABILITY_NONE);
}

void HaiL3MplsEncapsulationVlan::TranslateVlanObjectToEncapMessage(
    void* object, encapsulation::VlanMessage* message) {
  auto* vlan = static_cast<DbVlanObject*>(object);
  const auto& record = static_cast<const DestVlanMessage&>(*vlan->record);

  if (record.has_vlan_dest_id()) message->set_vlan_destination_id(record.vlan_dest_id());
  // Deliberately no presence test: the HAL always gets a lim id, even if it is empty.
  message->set_lim_id(record.lim_id());
  if (record.has_vrf()) message->set_vrf(record.vrf());
  if (record.has_mtu()) message->set_mtu(record.mtu());
  if (record.has_source_mac()) message->set_source_mac_address(record.source_mac());

  ZUSKUX_TRACE(kRecordTrace, "Vlan Object message: %s", record.ShortDebugString().c_str());

  for (const int capability : record.capabilities()) {
    message->add_capabilities(
        TranslateVlanCapabilityToEncapCapability(static_cast<VlanCapabilities>(capability)));
  }

  // Deliberately inserts a missing list, so that later readers find an empty one.
  for (const db::Attribute& value : vlan->attribute_lists[vlan->list_attribute_name].second) {
    if (!value.present) continue;
    const auto& text = boost::get<std::string>(value.value);
    if (!text.empty()) message->add_list_values(text);
  }
}

int HaiL3MplsEncapsulationVlan::CreateDestination(void* object) {
  VlanEncapsulationMessage message(TranslateToNewVlanMessage(this, object));
  ZUSKUX_TRACE(kCreateTrace, "[TX ===>] hai:vlan:Installing VLAN destination at HW: msg=%s",
               message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::InstallVlanOutgoingEncapsulation, &message,
            kCreateNoClient);
  return 0;
}

int HaiL3MplsEncapsulationVlan::DeleteDestination(void* object) {
  VlanEncapsulationMessage message(TranslateToNewVlanMessage(this, object));
  ZUSKUX_TRACE(kDeleteTrace, "[TX ===>] hai:vlan:Delete VLAN destination at HW: msg=%s",
               message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::DestroyVlanOutgoingEncapsulation, &message,
            kDeleteNoClient);
  return 0;
}

int HaiL3MplsEncapsulationVlan::UpdateDestination(void* object) {
  VlanEncapsulationMessage message(TranslateToNewVlanMessage(this, object));
  ZUSKUX_TRACE(kUpdateTrace, "[TX ===>] hai:vlan:Replace VLAN destination at HW: msg=%s",
               message.ToString(true).c_str());
  SendToHal(&HalL3MplsEncapsulationClient::ReplaceVlanOutgoingEncapsulation, &message,
            kUpdateNoClient);
  return 0;
}

}  // namespace dest_mng
