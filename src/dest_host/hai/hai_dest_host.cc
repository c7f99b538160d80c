#include "zuskux/hai_dest_host.h"

#include <array>
#include <memory>

#include "dest_manager/db_objects.h"
#include "hai/attributes.h"
#include "hai/log.h"
#include "hai/send_to_hal.h"
#include "hai/table.h"

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/dest_host/hai/hai_dest_host";

constexpr LogSite kRecordTrace{kFile, "TranslateHostObjectToEncapMessage", 60, kTraceLevel};
constexpr LogSite kCreateTrace{kFile, "CreateDestination", 68, kTraceLevel};
constexpr LogSite kCreateNoClient{kFile, "CreateDestination", 74, kErrorLevel};
constexpr LogSite kDeleteTrace{kFile, "DeleteDestination", 85, kTraceLevel};
constexpr LogSite kDeleteNoClient{kFile, "DeleteDestination", 90, kErrorLevel};
constexpr LogSite kUpdateTrace{kFile, "UpdateDestination", 101, kTraceLevel};
constexpr LogSite kUpdateNoClient{kFile, "UpdateDestination", 106, kErrorLevel};

}  // namespace

HaiL3MplsEncapsulationHost::HaiL3MplsEncapsulationHost() = default;

HaiL3MplsEncapsulationHost::~HaiL3MplsEncapsulationHost() = default;

encapsulation::ActionFlags HaiL3MplsEncapsulationHost::TranslateActionFlagsToEncapFlags(
    ActionFlags flag) {
  static constexpr std::array kFlags = {encapsulation::ACTION_NONE, encapsulation::ACTION_DROP,
                                        encapsulation::ACTION_TO_CPU};
  return EntryOr(kFlags, flag, encapsulation::ACTION_NONE);
}

void HaiL3MplsEncapsulationHost::TranslateHostObjectToEncapMessage(
    void* object, encapsulation::HostMessage* message) {
  auto* host = static_cast<DbHostObject*>(object);
  const auto& record = static_cast<const DestHostMessage&>(*host->record);

  if (record.has_dest_id()) message->set_dest_id(record.dest_id());
  if (record.has_lim_id()) message->set_lim_id(record.lim_id());
  if (record.has_dest_mac()) message->set_dest_mac(record.dest_mac());
  // Deliberately unset for 0, unlike in the MPLS destination, and deliberately read twice.
  if (ReadInteger(host, "vlan_dest_id") != 0) {
    message->set_vlan_dest_id(static_cast<std::uint32_t>(ReadInteger(host, "vlan_dest_id")));
  }

  for (const int flag : record.flags()) {
    message->add_flags(TranslateActionFlagsToEncapFlags(static_cast<ActionFlags>(flag)));
  }

  ZUSKUX_TRACE(kRecordTrace, "Host Object message: %s", record.ShortDebugString().c_str());
}

HostEncapsulationMessage HaiL3MplsEncapsulationHost::TranslateMessage(void* object) {
  auto* message = new encapsulation::HostMessage;
  // Deliberately unowned until the translation returns: if it throws, the message leaks.
  TranslateHostObjectToEncapMessage(object, message);
  return HostEncapsulationMessage(std::unique_ptr<encapsulation::HostMessage>(message));
}

// Deliberately, these traces show no rendering, unlike those of VLAN and MPLS destinations.

int HaiL3MplsEncapsulationHost::CreateDestination(void* object) {
  HostEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kCreateTrace, "[TX ===>] hai:host:Install host destination at HW");
  SendToHal(&HalL3MplsEncapsulationClient::InstallHostOutgoingEncapsulation, &message,
            kCreateNoClient);
  return 0;
}

int HaiL3MplsEncapsulationHost::DeleteDestination(void* object) {
  HostEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kDeleteTrace, "[TX ===>] hai:host:Delete host destination at HW");
  SendToHal(&HalL3MplsEncapsulationClient::DestroyHostOutgoingEncapsulation, &message,
            kDeleteNoClient);
  return 0;
}

int HaiL3MplsEncapsulationHost::UpdateDestination(void* object) {
  HostEncapsulationMessage message = TranslateMessage(object);
  ZUSKUX_TRACE(kUpdateTrace, "[TX ===>] hai:host:Replace host destination at HW");
  SendToHal(&HalL3MplsEncapsulationClient::ReplaceHostOutgoingEncapsulation, &message,
            kUpdateNoClient);
  return 0;
}

}  // namespace dest_mng
