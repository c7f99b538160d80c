#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_

#include <functional>
#include <string>

class AppMessage;

namespace testing_support {

// Fake handlers of the destination manager: each call is an event, with the run-time type of the
// application message and the carried record.

/// Called with the handler's name within every handler, after recording the call; null for none.
void SetHandlerHook(std::function<void(const std::string& handler)> hook);

/// The number of calls of `MessageController::message()` between the last two handlers.
int MessageCallsBeforeHandler();

/// The application message of the last handler's controller.
const AppMessage* HandledMessage();

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_HANDLERS_H_
