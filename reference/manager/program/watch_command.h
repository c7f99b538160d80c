#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_

#include "reference/manager/program/commands.h"

namespace reference {

/// Shows how a running manager stands until it ends or a signal interrupts. On a terminal, redraws
/// the status and the objects that are not in order; else writes a line whenever the condition or
/// the number of objects in a state changes. Returns the exit status. Throws `std::runtime_error`,
/// with a text for the operator, if there is no manager at `arguments.control` to begin with.
int WatchManager(const CommandArguments& arguments);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_WATCH_COMMAND_H_
