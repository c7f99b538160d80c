// The application framework. Everything here runs on the thread that reports a result.

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "app_framework/strategy.h"

// Must not delete the carried message: the derived classes decide whether they own it.
AppMessage::~AppMessage() = default;

namespace app_strategy {

Strategy::~Strategy() = default;

}  // namespace app_strategy

namespace msg_ctrl {

// Must take ownership of `message`, which was allocated with `new`. Must neither use it yet nor
// throw.
MessageController::MessageController(AppMessage* message) noexcept : message_(message) {}

// Must delete the message exactly once.
MessageController::~MessageController() { delete message_; }

// Fill these in if your framework attaches strategies; the library never calls them.
void MessageController::set_strategy(app_strategy::Strategy* strategy) { strategy_ = strategy; }

app_strategy::Strategy* MessageController::strategy() const { return strategy_; }

void MessageController::DoStrategy() {
  if (strategy_ != nullptr) strategy_->Execute();
}

// Must return the message passed to the constructor: the library fills its record through it. May
// throw; the exception propagates to the HAL client's call of the result operation.
AppMessage* MessageController::message() const { return message_; }

}  // namespace msg_ctrl
