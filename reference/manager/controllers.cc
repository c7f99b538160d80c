// The handlers of the library's controllers. They run on the HAL's thread and only pass on what
// they are told.

#include "zuskux/dest_controllers.h"

#include <google/protobuf/message.h>

#include <mutex>

#include "app_framework/app_message.h"
#include "dest_mng.pb.h"
#include "reference/hal/hal_connection.h"
#include "reference/manager/notification_sink.h"

namespace reference {
namespace {

// What the name of a result's handler says.
constexpr bool kSuccess = true;
constexpr bool kError = false;

std::mutex sink_mutex;
NotificationSink* sink = nullptr;

std::uint32_t SecondaryId(const google::protobuf::Message& /*record*/) { return 0; }

std::uint32_t SecondaryId(const dest_mng::DestMplsMessage& record) { return record.secondary_id(); }

template <typename Record>
void PassResult(HalKind kind, HalAction action, bool success,
                const msg_ctrl::MessageController& controller) {
  const auto& record = dynamic_cast<const Record&>(*controller.message()->message());
  const HalResult result{kind,           action,         success,
                         ReportedCode(), record.db_id(), SecondaryId(record)};
  const std::lock_guard lock(sink_mutex);
  if (sink != nullptr) sink->OnResult(result);
}

void PassReinstall(HalKind kind) {
  const std::lock_guard lock(sink_mutex);
  if (sink != nullptr) sink->OnReinstall(kind);
}

void PassVlan(HalAction action, bool success, const msg_ctrl::MessageController& controller) {
  PassResult<dest_mng::DestVlanMessage>(HalKind::kVlan, action, success, controller);
}

void PassHost(HalAction action, bool success, const msg_ctrl::MessageController& controller) {
  PassResult<dest_mng::DestHostMessage>(HalKind::kHost, action, success, controller);
}

void PassEcmp(HalAction action, bool success, const msg_ctrl::MessageController& controller) {
  PassResult<dest_mng::DestEcmpRouteMessage>(HalKind::kEcmp, action, success, controller);
}

void PassMpls(HalAction action, bool success, const msg_ctrl::MessageController& controller) {
  PassResult<dest_mng::DestMplsMessage>(HalKind::kMpls, action, success, controller);
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
using reference::PassEcmp;
using reference::PassHost;
using reference::PassMpls;
using reference::PassReinstall;
using reference::PassVlan;

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
