#ifndef ZUSKUX_TESTS_SUPPORT_EVENTS_H_
#define ZUSKUX_TESTS_SUPPORT_EVENTS_H_

#include <string>
#include <vector>

namespace testing_support {

/// What the library did to its surroundings, in order: log records, HAL calls, handler calls and
/// destructions, one text each. All fakes write to this one list, so that an expectation on it pins
/// the order between them.
///
///     "log 10 src/hai/hai_callback HalServerFoundCallback:179 Entry Point"
///     "hal InstallVlanOutgoingEncapsulation VlanEncapsulationMessage lim_id: \"\""
///     "handler CreatedDestVlanSuccess AppDestVlanMessage db_id: 5"
///     "message freed", "AppMessage destroyed", "MessageController destroyed"
std::vector<std::string>& Events();

/// Appends one event. Thread-safe.
void AddEvent(std::string event);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_EVENTS_H_
