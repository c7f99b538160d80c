#include "tests/support/fake_handlers.h"

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <typeinfo>
#include <utility>

#include "app_framework/app_message.h"
#include "tests/support/events.h"
#include "tests/support/fake_app_framework.h"
#include "zuskux/dest_app_messages.h"
#include "zuskux/dest_controllers.h"

namespace {

std::function<void(const std::string&)> handler_hook;
int message_calls_seen = 0;
int message_calls_before_handler = 0;
const AppMessage* handled_message = nullptr;

template <typename AppMessageType>
void Record(const std::string& handler, const std::string& type,
            const msg_ctrl::MessageController& controller) {
  message_calls_before_handler = testing_support::MessageCalls() - message_calls_seen;
  const AppMessage& message = *controller.message();
  message_calls_seen = testing_support::MessageCalls();
  handled_message = &message;
  EXPECT_EQ(typeid(message), typeid(AppMessageType)) << handler;
  const std::string record = message.message()->ShortDebugString();
  testing_support::AddEvent("handler " + handler + " " + type + (record.empty() ? "" : " ") +
                            record);
  if (handler_hook) handler_hook(handler);
}

}  // namespace

namespace testing_support {

void SetHandlerHook(std::function<void(const std::string&)> hook) {
  handler_hook = std::move(hook);
}

int MessageCallsBeforeHandler() { return message_calls_before_handler; }

const AppMessage* HandledMessage() { return handled_message; }

}  // namespace testing_support

namespace dest_mng {

#define HANDLER(controller, app_message, handler) \
  void controller::handler() { Record<app_message>(#handler, #app_message, *this); }

HANDLER(MessageControllerVlan, AppDestVlanMessage, CreatedDestVlanSuccess)
HANDLER(MessageControllerVlan, AppDestVlanMessage, CreatedDestVlanError)
HANDLER(MessageControllerVlan, AppDestVlanMessage, UpdatedDestVlanSuccess)
HANDLER(MessageControllerVlan, AppDestVlanMessage, UpdatedDestVlanError)
HANDLER(MessageControllerVlan, AppDestVlanMessage, DeletedDestVlanSuccess)
HANDLER(MessageControllerVlan, AppDestVlanMessage, DeletedDestVlanError)
HANDLER(MessageControllerVlan, AppDestVlanMessage, ReinstallDestVlan)
HANDLER(MessageControllerHost, AppDestHostMessage, CreatedDestHostSuccess)
HANDLER(MessageControllerHost, AppDestHostMessage, CreatedDestHostError)
HANDLER(MessageControllerHost, AppDestHostMessage, UpdatedDestHostSuccess)
HANDLER(MessageControllerHost, AppDestHostMessage, UpdatedDestHostError)
HANDLER(MessageControllerHost, AppDestHostMessage, DeletedDestHostSuccess)
HANDLER(MessageControllerHost, AppDestHostMessage, DeletedDestHostError)
HANDLER(MessageControllerHost, AppDestHostMessage, ReinstallDestHost)
HANDLER(MessageControllerEcmp, AppDestEcmpMessage, CreatedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, AppDestEcmpMessage, CreatedDestEcmpError)
HANDLER(MessageControllerEcmp, AppDestEcmpMessage, DeletedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, AppDestEcmpMessage, DeletedDestEcmpError)
HANDLER(MessageControllerEcmp, AppDestEcmpMessage, ReinstallDestEcmp)
HANDLER(MessageControllerMpls, AppDestMplsMessage, CreatedDestMplsSuccess)
HANDLER(MessageControllerMpls, AppDestMplsMessage, CreatedDestMplsError)
HANDLER(MessageControllerMpls, AppDestMplsMessage, UpdatedDestMplsSuccess)
HANDLER(MessageControllerMpls, AppDestMplsMessage, UpdatedDestMplsError)
HANDLER(MessageControllerMpls, AppDestMplsMessage, DeletedDestMplsSuccess)
HANDLER(MessageControllerMpls, AppDestMplsMessage, DeletedDestMplsError)
HANDLER(MessageControllerMpls, AppDestMplsMessage, ReinstallDestMpls)
HANDLER(VrfController, AppVrfMessage, ReinstallVrf)

#undef HANDLER

}  // namespace dest_mng
