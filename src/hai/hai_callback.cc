#include "zuskux/hai_callback.h"

#include <google/protobuf/message.h>

#include "dest_mng.pb.h"
#include "hai/log.h"
#include "zuskux/dest_app_messages.h"
#include "zuskux/dest_controllers.h"

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/hai/hai_callback";

constexpr LogSite kInstallVlan{kFile, "InstallVlanOutgoingEncapsulationResCallback", 23,
                               kTraceLevel};
constexpr LogSite kReplaceVlan{kFile, "ReplaceVlanOutgoingEncapsulationResCallback", 37,
                               kTraceLevel};
constexpr LogSite kDestroyVlan{kFile, "DestroyVlanOutgoingEncapsulationResCallback", 51,
                               kTraceLevel};
constexpr LogSite kInstallHost{kFile, "InstallHostOutgoingEncapsulationResCallback", 65,
                               kTraceLevel};
constexpr LogSite kReplaceHost{kFile, "ReplaceHostOutgoingEncapsulationResCallback", 79,
                               kTraceLevel};
constexpr LogSite kDestroyHost{kFile, "DestroyHostOutgoingEncapsulationResCallback", 93,
                               kTraceLevel};
constexpr LogSite kInstallEcmp{kFile, "InstallEcmpEncapResCallback", 107, kTraceLevel};
constexpr LogSite kDestroyEcmp{kFile, "DestroyEcmpEncapResCallback", 121, kTraceLevel};
constexpr LogSite kInstallMpls{kFile, "InstallMplsUnprotectedOutgoingEncapsulationResCallback", 135,
                               kTraceLevel};
constexpr LogSite kReplaceMpls{kFile, "ReplaceMplsUnprotectedOutgoingEncapsulationResCallback", 150,
                               kTraceLevel};
constexpr LogSite kDestroyMpls{kFile, "DestroyMplsUnprotectedOutgoingEncapsulationResCallback", 165,
                               kTraceLevel};
constexpr LogSite kServerFound{kFile, "HalServerFoundCallback", 179, kTraceLevel};

bool IsSuccess(HalL3MplsEncapsulationReturnCode code) {
  return code == HalL3MplsEncapsulationReturnCode{};
}

// The record that `controller` works on. Throws `std::bad_cast` if it is of another kind.
template <typename Record>
Record& CarriedRecord(const msg_ctrl::MessageController& controller) {
  return dynamic_cast<Record&>(*controller.message()->message());
}

}  // namespace

HaiDestClientCallback::HaiDestClientCallback() = default;

HaiDestClientCallback::~HaiDestClientCallback() = default;

void HaiDestClientCallback::InitEncapsulationModuleResCallback(ReturnCode /*code*/) {}

void HaiDestClientCallback::InstallVlanOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kInstallVlan, "Entry Point");
  DestVlanMessage record;
  MessageControllerVlan controller(new AppDestVlanMessage(&record));
  CarriedRecord<DestVlanMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.CreatedDestVlanSuccess();
  } else {
    controller.CreatedDestVlanError();
  }
}

void HaiDestClientCallback::ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kReplaceVlan, "Entry Point");
  DestVlanMessage record;
  MessageControllerVlan controller(new AppDestVlanMessage(&record));
  CarriedRecord<DestVlanMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.UpdatedDestVlanSuccess();
  } else {
    controller.UpdatedDestVlanError();
  }
}

void HaiDestClientCallback::DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kDestroyVlan, "Entry Point");
  DestVlanMessage record;
  MessageControllerVlan controller(new AppDestVlanMessage(&record));
  CarriedRecord<DestVlanMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.DeletedDestVlanSuccess();
  } else {
    controller.DeletedDestVlanError();
  }
}

void HaiDestClientCallback::InstallHostOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kInstallHost, "Entry Point");
  DestHostMessage record;
  MessageControllerHost controller(new AppDestHostMessage(&record));
  CarriedRecord<DestHostMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.CreatedDestHostSuccess();
  } else {
    controller.CreatedDestHostError();
  }
}

void HaiDestClientCallback::ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kReplaceHost, "Entry Point");
  DestHostMessage record;
  MessageControllerHost controller(new AppDestHostMessage(&record));
  CarriedRecord<DestHostMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.UpdatedDestHostSuccess();
  } else {
    controller.UpdatedDestHostError();
  }
}

void HaiDestClientCallback::DestroyHostOutgoingEncapsulationResCallback(ReturnCode code,
                                                                        unsigned int db_id) {
  ZUSKUX_LOG(kDestroyHost, "Entry Point");
  DestHostMessage record;
  MessageControllerHost controller(new AppDestHostMessage(&record));
  CarriedRecord<DestHostMessage>(controller).set_db_id(db_id);
  if (IsSuccess(code)) {
    controller.DeletedDestHostSuccess();
  } else {
    controller.DeletedDestHostError();
  }
}

void HaiDestClientCallback::InstallEcmpEncapResCallback(ReturnCode code, unsigned int db_id) {
  ZUSKUX_LOG(kInstallEcmp, "Entry Point");
  DestEcmpRouteMessage record;
  // Unlike for the other kinds, the record is filled before the controller exists.
  record.set_db_id(db_id);
  MessageControllerEcmp controller(new AppDestEcmpMessage(&record));
  if (IsSuccess(code)) {
    controller.CreatedDestEcmpSuccess();
  } else {
    controller.CreatedDestEcmpError();
  }
}

void HaiDestClientCallback::DestroyEcmpEncapResCallback(ReturnCode code, unsigned int db_id) {
  ZUSKUX_LOG(kDestroyEcmp, "Entry Point");
  DestEcmpRouteMessage record;
  // Unlike for the other kinds, the record is filled before the controller exists.
  record.set_db_id(db_id);
  MessageControllerEcmp controller(new AppDestEcmpMessage(&record));
  if (IsSuccess(code)) {
    controller.DeletedDestEcmpSuccess();
  } else {
    controller.DeletedDestEcmpError();
  }
}

void HaiDestClientCallback::InstallMplsUnprotectedOutgoingEncapsulationResCallback(
    ReturnCode code, unsigned int db_id, unsigned int secondary_id) {
  ZUSKUX_LOG(kInstallMpls, "Entry Point");
  DestMplsMessage record;
  MessageControllerMpls controller(new AppDestMplsMessage(&record));
  CarriedRecord<DestMplsMessage>(controller).set_db_id(db_id);
  CarriedRecord<DestMplsMessage>(controller).set_secondary_id(secondary_id);
  if (IsSuccess(code)) {
    controller.CreatedDestMplsSuccess();
  } else {
    controller.CreatedDestMplsError();
  }
}

void HaiDestClientCallback::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(
    ReturnCode code, unsigned int db_id, unsigned int secondary_id) {
  ZUSKUX_LOG(kReplaceMpls, "Entry Point");
  DestMplsMessage record;
  MessageControllerMpls controller(new AppDestMplsMessage(&record));
  CarriedRecord<DestMplsMessage>(controller).set_db_id(db_id);
  CarriedRecord<DestMplsMessage>(controller).set_secondary_id(secondary_id);
  if (IsSuccess(code)) {
    controller.UpdatedDestMplsSuccess();
  } else {
    controller.UpdatedDestMplsError();
  }
}

void HaiDestClientCallback::DestroyMplsUnprotectedOutgoingEncapsulationResCallback(
    ReturnCode code, unsigned int db_id, unsigned int secondary_id) {
  ZUSKUX_LOG(kDestroyMpls, "Entry Point");
  DestMplsMessage record;
  MessageControllerMpls controller(new AppDestMplsMessage(&record));
  CarriedRecord<DestMplsMessage>(controller).set_db_id(db_id);
  CarriedRecord<DestMplsMessage>(controller).set_secondary_id(secondary_id);
  if (IsSuccess(code)) {
    controller.DeletedDestMplsSuccess();
  } else {
    controller.DeletedDestMplsError();
  }
}

void HaiDestClientCallback::HalServerFoundCallback(void* /*context*/) {
  ZUSKUX_LOG(kServerFound, "Entry Point");

  // Declared in this order so that every controller outlives the last handler.
  VrfMessage vrf_record;
  VrfController vrf(new AppVrfMessage(&vrf_record));
  vrf.ReinstallVrf();

  DestVlanMessage vlan_record;
  MessageControllerVlan vlan(new AppDestVlanMessage(&vlan_record));
  vlan.ReinstallDestVlan();

  DestHostMessage host_record;
  MessageControllerHost host(new AppDestHostMessage(&host_record));
  host.ReinstallDestHost();

  DestEcmpRouteMessage ecmp_record;
  MessageControllerEcmp ecmp(new AppDestEcmpMessage(&ecmp_record));
  ecmp.ReinstallDestEcmp();

  DestMplsMessage mpls_record;
  MessageControllerMpls mpls(new AppDestMplsMessage(&mpls_record));
  mpls.ReinstallDestMpls();
}

}  // namespace dest_mng
