#include "tests/support/fake_app_framework.h"

#include <utility>

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "app_framework/strategy.h"
#include "tests/support/events.h"

namespace {

int message_calls = 0;
std::function<AppMessage*(AppMessage*)> message_hook;
std::function<void(const AppMessage&)> construction_hook;

}  // namespace

namespace testing_support {

int MessageCalls() { return message_calls; }

void SetMessageHook(std::function<AppMessage*(AppMessage*)> hook) {
  message_hook = std::move(hook);
}

void SetConstructionHook(std::function<void(const AppMessage&)> hook) {
  construction_hook = std::move(hook);
}

}  // namespace testing_support

AppMessage::~AppMessage() { testing_support::AddEvent("AppMessage destroyed"); }

namespace app_strategy {

Strategy::~Strategy() = default;

}  // namespace app_strategy

namespace msg_ctrl {

MessageController::MessageController(AppMessage* message) noexcept : message_(message) {
  if (construction_hook) construction_hook(*message);
}

MessageController::~MessageController() {
  delete message_;
  testing_support::AddEvent("MessageController destroyed");
}

void MessageController::set_strategy(app_strategy::Strategy* strategy) { strategy_ = strategy; }

app_strategy::Strategy* MessageController::strategy() const { return strategy_; }

void MessageController::DoStrategy() {
  if (strategy_ != nullptr) strategy_->Execute();
}

AppMessage* MessageController::message() const {
  ++message_calls;
  return message_hook ? message_hook(message_) : message_;
}

}  // namespace msg_ctrl
