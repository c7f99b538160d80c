// The handlers of the library's controllers. They run on the HAL's thread, so they only pass on
// what they are told.

#include <google/protobuf/message.h>

#include "app_framework/app_message.h"
#include "dest_mng.pb.h"
#include "events.h"
#include "zuskux/dest_controllers.h"

namespace {

// A reinstall carries an empty record, hence the id 0.
template <typename Record>
void Pass(const char* handler, const msg_ctrl::MessageController& controller) {
  const auto& record = static_cast<const Record&>(*controller.message()->message());
  host::PostEvent({handler, record.db_id()});
}

constexpr auto& PassVlan = Pass<dest_mng::DestVlanMessage>;
constexpr auto& PassHost = Pass<dest_mng::DestHostMessage>;
constexpr auto& PassEcmp = Pass<dest_mng::DestEcmpRouteMessage>;
constexpr auto& PassMpls = Pass<dest_mng::DestMplsMessage>;

}  // namespace

namespace dest_mng {

void MessageControllerVlan::CreatedDestVlanSuccess() { PassVlan("CreatedDestVlanSuccess", *this); }
void MessageControllerVlan::CreatedDestVlanError() { PassVlan("CreatedDestVlanError", *this); }
void MessageControllerVlan::UpdatedDestVlanSuccess() { PassVlan("UpdatedDestVlanSuccess", *this); }
void MessageControllerVlan::UpdatedDestVlanError() { PassVlan("UpdatedDestVlanError", *this); }
void MessageControllerVlan::DeletedDestVlanSuccess() { PassVlan("DeletedDestVlanSuccess", *this); }
void MessageControllerVlan::DeletedDestVlanError() { PassVlan("DeletedDestVlanError", *this); }
void MessageControllerVlan::ReinstallDestVlan() { PassVlan("ReinstallDestVlan", *this); }

void MessageControllerHost::CreatedDestHostSuccess() { PassHost("CreatedDestHostSuccess", *this); }
void MessageControllerHost::CreatedDestHostError() { PassHost("CreatedDestHostError", *this); }
void MessageControllerHost::UpdatedDestHostSuccess() { PassHost("UpdatedDestHostSuccess", *this); }
void MessageControllerHost::UpdatedDestHostError() { PassHost("UpdatedDestHostError", *this); }
void MessageControllerHost::DeletedDestHostSuccess() { PassHost("DeletedDestHostSuccess", *this); }
void MessageControllerHost::DeletedDestHostError() { PassHost("DeletedDestHostError", *this); }
void MessageControllerHost::ReinstallDestHost() { PassHost("ReinstallDestHost", *this); }

void MessageControllerEcmp::CreatedDestEcmpSuccess() { PassEcmp("CreatedDestEcmpSuccess", *this); }
void MessageControllerEcmp::CreatedDestEcmpError() { PassEcmp("CreatedDestEcmpError", *this); }
void MessageControllerEcmp::DeletedDestEcmpSuccess() { PassEcmp("DeletedDestEcmpSuccess", *this); }
void MessageControllerEcmp::DeletedDestEcmpError() { PassEcmp("DeletedDestEcmpError", *this); }
void MessageControllerEcmp::ReinstallDestEcmp() { PassEcmp("ReinstallDestEcmp", *this); }

void MessageControllerMpls::CreatedDestMplsSuccess() { PassMpls("CreatedDestMplsSuccess", *this); }
void MessageControllerMpls::CreatedDestMplsError() { PassMpls("CreatedDestMplsError", *this); }
void MessageControllerMpls::UpdatedDestMplsSuccess() { PassMpls("UpdatedDestMplsSuccess", *this); }
void MessageControllerMpls::UpdatedDestMplsError() { PassMpls("UpdatedDestMplsError", *this); }
void MessageControllerMpls::DeletedDestMplsSuccess() { PassMpls("DeletedDestMplsSuccess", *this); }
void MessageControllerMpls::DeletedDestMplsError() { PassMpls("DeletedDestMplsError", *this); }
void MessageControllerMpls::ReinstallDestMpls() { PassMpls("ReinstallDestMpls", *this); }

void VrfController::ReinstallVrf() { Pass<VrfMessage>("ReinstallVrf", *this); }

}  // namespace dest_mng
