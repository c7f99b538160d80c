#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_

#include <functional>
#include <string>

class AppMessage;

namespace testing_support {

// Stands in for the destination manager's handlers: every call is an event, with the run-time type
// of the application message and the carried record.

/// Called within every handler, after it was recorded, with the handler's name; null for nothing.
void SetHandlerHook(std::function<void(const std::string& handler)> hook);

/// How often the library had called `MessageController::message()` when the last handler began,
/// counted from the handler before.
int MessageCallsBeforeHandler();

/// The application message of the last handler's controller.
const AppMessage* HandledMessage();

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_
