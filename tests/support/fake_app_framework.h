#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_

#include <functional>

class AppMessage;

namespace testing_support {

// A fake application framework: the destruction of each `AppMessage` and each `MessageController`
// is an event.

/// The number of calls of `MessageController::message()` so far.
int MessageCalls();

/// Replaces the result of `MessageController::message()`, given the real one; null restores it.
/// Lets tests inspect the message between two calls, and return another message.
void SetMessageHook(std::function<AppMessage*(AppMessage* message)> hook);

/// Called with the message of every controller under construction; null for none.
void SetConstructionHook(std::function<void(const AppMessage& message)> hook);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_APP_FRAMEWORK_H_
