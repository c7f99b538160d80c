#ifndef ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_
#define ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_

#include <string>
#include <vector>

/// The handlers' calls so far, for example "CreatedDestVlanSuccess db_id: 5". The handlers of a
/// host program that does nothing else, on the stand-in platform.
std::vector<std::string>& HandlerCalls();

#endif  // ZUSKUX_TESTS_SYSTEM_RECORDING_HANDLERS_H_
