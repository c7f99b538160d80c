#include "zuskux/dest_controllers.h"

namespace dest_mng {

MessageControllerVlan::~MessageControllerVlan() = default;

MessageControllerHost::~MessageControllerHost() = default;

MessageControllerEcmp::~MessageControllerEcmp() = default;

MessageControllerMpls::~MessageControllerMpls() = default;

VrfController::~VrfController() = default;

}  // namespace dest_mng
