#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_

#include <functional>

class AppMessage;

namespace testing_support {

// Stands in for the application framework: the destruction of every `AppMessage` and of every
// `MessageController` is an event.

/// How often `MessageController::message()` was called so far.
int MessageCalls();

/// What `MessageController::message()` returns, given what it would; null for just that. For looks
/// at the message between two calls, and for controllers that answer with another message.
void SetMessageHook(std::function<AppMessage*(AppMessage* message)> hook);

/// Called with the message of every controller that is being built; null for nothing.
void SetConstructionHook(std::function<void(const AppMessage& message)> hook);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_
