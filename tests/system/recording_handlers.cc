#include "tests/system/recording_handlers.h"

#include <google/protobuf/message.h>

#include "app_framework/app_message.h"
#include "zuskux/dest_controllers.h"

namespace {

void Record(const char* handler, const msg_ctrl::MessageController& controller) {
  const std::string record = controller.message()->message()->ShortDebugString();
  HandlerCalls().push_back(handler + (record.empty() ? "" : " " + record));
}

}  // namespace

std::vector<std::string>& HandlerCalls() {
  static std::vector<std::string> calls;
  return calls;
}

namespace dest_mng {

#define HANDLER(controller, handler) \
  void controller::handler() { Record(#handler, *this); }

HANDLER(MessageControllerVlan, CreatedDestVlanSuccess)
HANDLER(MessageControllerVlan, CreatedDestVlanError)
HANDLER(MessageControllerVlan, UpdatedDestVlanSuccess)
HANDLER(MessageControllerVlan, UpdatedDestVlanError)
HANDLER(MessageControllerVlan, DeletedDestVlanSuccess)
HANDLER(MessageControllerVlan, DeletedDestVlanError)
HANDLER(MessageControllerVlan, ReinstallDestVlan)
HANDLER(MessageControllerHost, CreatedDestHostSuccess)
HANDLER(MessageControllerHost, CreatedDestHostError)
HANDLER(MessageControllerHost, UpdatedDestHostSuccess)
HANDLER(MessageControllerHost, UpdatedDestHostError)
HANDLER(MessageControllerHost, DeletedDestHostSuccess)
HANDLER(MessageControllerHost, DeletedDestHostError)
HANDLER(MessageControllerHost, ReinstallDestHost)
HANDLER(MessageControllerEcmp, CreatedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, CreatedDestEcmpError)
HANDLER(MessageControllerEcmp, DeletedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, DeletedDestEcmpError)
HANDLER(MessageControllerEcmp, ReinstallDestEcmp)
HANDLER(MessageControllerMpls, CreatedDestMplsSuccess)
HANDLER(MessageControllerMpls, CreatedDestMplsError)
HANDLER(MessageControllerMpls, UpdatedDestMplsSuccess)
HANDLER(MessageControllerMpls, UpdatedDestMplsError)
HANDLER(MessageControllerMpls, DeletedDestMplsSuccess)
HANDLER(MessageControllerMpls, DeletedDestMplsError)
HANDLER(MessageControllerMpls, ReinstallDestMpls)
HANDLER(VrfController, ReinstallVrf)

#undef HANDLER

}  // namespace dest_mng
