// The handlers of a host program that ignores its notifications.

#include "zuskux/dest_controllers.h"

namespace dest_mng {

void MessageControllerVlan::CreatedDestVlanSuccess() {}
void MessageControllerVlan::CreatedDestVlanError() {}
void MessageControllerVlan::UpdatedDestVlanSuccess() {}
void MessageControllerVlan::UpdatedDestVlanError() {}
void MessageControllerVlan::DeletedDestVlanSuccess() {}
void MessageControllerVlan::DeletedDestVlanError() {}
void MessageControllerVlan::ReinstallDestVlan() {}
void MessageControllerHost::CreatedDestHostSuccess() {}
void MessageControllerHost::CreatedDestHostError() {}
void MessageControllerHost::UpdatedDestHostSuccess() {}
void MessageControllerHost::UpdatedDestHostError() {}
void MessageControllerHost::DeletedDestHostSuccess() {}
void MessageControllerHost::DeletedDestHostError() {}
void MessageControllerHost::ReinstallDestHost() {}
void MessageControllerEcmp::CreatedDestEcmpSuccess() {}
void MessageControllerEcmp::CreatedDestEcmpError() {}
void MessageControllerEcmp::DeletedDestEcmpSuccess() {}
void MessageControllerEcmp::DeletedDestEcmpError() {}
void MessageControllerEcmp::ReinstallDestEcmp() {}
void MessageControllerMpls::CreatedDestMplsSuccess() {}
void MessageControllerMpls::CreatedDestMplsError() {}
void MessageControllerMpls::UpdatedDestMplsSuccess() {}
void MessageControllerMpls::UpdatedDestMplsError() {}
void MessageControllerMpls::DeletedDestMplsSuccess() {}
void MessageControllerMpls::DeletedDestMplsError() {}
void MessageControllerMpls::ReinstallDestMpls() {}
void VrfController::ReinstallVrf() {}

}  // namespace dest_mng
