#ifndef ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_
#define ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_

#include <string>
#include <vector>

/// The calls of the handlers so far, for example "CreatedDestVlanSuccess db_id: 5". The handlers do
/// nothing else.
std::vector<std::string>& HandlerCalls();

#endif  // ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_
