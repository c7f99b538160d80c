// The application framework: messages and the controllers that hold them.

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "app_framework/strategy.h"

AppMessage::~AppMessage() = default;

namespace app_strategy {

Strategy::~Strategy() = default;

}  // namespace app_strategy

namespace msg_ctrl {

MessageController::MessageController(AppMessage* message) noexcept : message_(message) {}

MessageController::~MessageController() { delete message_; }

void MessageController::set_strategy(app_strategy::Strategy* strategy) { strategy_ = strategy; }

app_strategy::Strategy* MessageController::strategy() const { return strategy_; }

void MessageController::DoStrategy() {
  if (strategy_ != nullptr) strategy_->Execute();
}

AppMessage* MessageController::message() const { return message_; }

}  // namespace msg_ctrl
