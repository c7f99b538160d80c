// The handlers of the library's controllers. They run on the HAL's thread and only forward the
// notifications.

#include "zuskux/dest_controllers.h"

#include <google/protobuf/message.h>

#include <mutex>
#include <string>

#include "app_framework/app_message.h"
#include "dest_mng.pb.h"
#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/notification_sink.h"

namespace reference {
namespace {

// The outcome that a handler's name states.
constexpr bool kSuccess = true;
constexpr bool kError = false;

std::mutex sink_mutex;
NotificationSink* sink = nullptr;

/// Forwards the results of one kind, which arrive in a `Record`.
template <HalKind kind, typename Record>
void PassResult(HalAction action, bool success, const msg_ctrl::MessageController& controller) {
  const auto& record = dynamic_cast<const Record&>(*controller.message()->message());
  const HalResult result{kind,           action,         success,
                         ReportedCode(), record.db_id(), std::string(ReportedReason())};
  const std::lock_guard lock(sink_mutex);
  if (sink != nullptr) sink->OnResult(result);
}

void PassReinstall(HalKind kind) {
  const std::lock_guard lock(sink_mutex);
  if (sink != nullptr) sink->OnReinstall(kind);
}

}  // namespace

void SetNotificationSink(NotificationSink* new_sink) {
  const std::lock_guard lock(sink_mutex);
  sink = new_sink;
}

}  // namespace reference

namespace dest_mng {

using reference::HalAction;
using reference::HalKind;
using reference::kError;
using reference::kSuccess;
using reference::PassReinstall;
using reference::PassResult;

constexpr auto& PassVlan = PassResult<HalKind::kVlan, DestVlanMessage>;
constexpr auto& PassHost = PassResult<HalKind::kHost, DestHostMessage>;
constexpr auto& PassEcmp = PassResult<HalKind::kEcmp, DestEcmpRouteMessage>;
constexpr auto& PassMpls = PassResult<HalKind::kMpls, DestMplsMessage>;

void MessageControllerVlan::CreatedDestVlanSuccess() {
  PassVlan(HalAction::kInstall, kSuccess, *this);
}
void MessageControllerVlan::CreatedDestVlanError() { PassVlan(HalAction::kInstall, kError, *this); }
void MessageControllerVlan::UpdatedDestVlanSuccess() {
  PassVlan(HalAction::kReplace, kSuccess, *this);
}
void MessageControllerVlan::UpdatedDestVlanError() { PassVlan(HalAction::kReplace, kError, *this); }
void MessageControllerVlan::DeletedDestVlanSuccess() {
  PassVlan(HalAction::kDestroy, kSuccess, *this);
}
void MessageControllerVlan::DeletedDestVlanError() { PassVlan(HalAction::kDestroy, kError, *this); }
void MessageControllerVlan::ReinstallDestVlan() { PassReinstall(HalKind::kVlan); }

void MessageControllerHost::CreatedDestHostSuccess() {
  PassHost(HalAction::kInstall, kSuccess, *this);
}
void MessageControllerHost::CreatedDestHostError() { PassHost(HalAction::kInstall, kError, *this); }
void MessageControllerHost::UpdatedDestHostSuccess() {
  PassHost(HalAction::kReplace, kSuccess, *this);
}
void MessageControllerHost::UpdatedDestHostError() { PassHost(HalAction::kReplace, kError, *this); }
void MessageControllerHost::DeletedDestHostSuccess() {
  PassHost(HalAction::kDestroy, kSuccess, *this);
}
void MessageControllerHost::DeletedDestHostError() { PassHost(HalAction::kDestroy, kError, *this); }
void MessageControllerHost::ReinstallDestHost() { PassReinstall(HalKind::kHost); }

void MessageControllerEcmp::CreatedDestEcmpSuccess() {
  PassEcmp(HalAction::kInstall, kSuccess, *this);
}
void MessageControllerEcmp::CreatedDestEcmpError() { PassEcmp(HalAction::kInstall, kError, *this); }
void MessageControllerEcmp::DeletedDestEcmpSuccess() {
  PassEcmp(HalAction::kDestroy, kSuccess, *this);
}
void MessageControllerEcmp::DeletedDestEcmpError() { PassEcmp(HalAction::kDestroy, kError, *this); }
void MessageControllerEcmp::ReinstallDestEcmp() { PassReinstall(HalKind::kEcmp); }

void MessageControllerMpls::CreatedDestMplsSuccess() {
  PassMpls(HalAction::kInstall, kSuccess, *this);
}
void MessageControllerMpls::CreatedDestMplsError() { PassMpls(HalAction::kInstall, kError, *this); }
void MessageControllerMpls::UpdatedDestMplsSuccess() {
  PassMpls(HalAction::kReplace, kSuccess, *this);
}
void MessageControllerMpls::UpdatedDestMplsError() { PassMpls(HalAction::kReplace, kError, *this); }
void MessageControllerMpls::DeletedDestMplsSuccess() {
  PassMpls(HalAction::kDestroy, kSuccess, *this);
}
void MessageControllerMpls::DeletedDestMplsError() { PassMpls(HalAction::kDestroy, kError, *this); }
void MessageControllerMpls::ReinstallDestMpls() { PassReinstall(HalKind::kMpls); }

void VrfController::ReinstallVrf() { PassReinstall(HalKind::kVrf); }

}  // namespace dest_mng
