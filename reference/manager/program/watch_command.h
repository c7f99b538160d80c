#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_

#include "reference/manager/program/commands.h"

namespace reference {

/// Shows the state of a running manager until the manager ends or a signal arrives. On a terminal,
/// redraws the status and the objects that failed or are pending; elsewhere, writes a line whenever
/// the condition or the number of objects in a state changes. Returns the exit status. Throws
/// `std::runtime_error`, with a text for the operator, if no manager listens on `arguments.control`
/// at the start.
int WatchManager(const CommandArguments& arguments);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_
