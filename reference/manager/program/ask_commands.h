#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_ASK_COMMANDS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_ASK_COMMANDS_H_

#include "reference/manager/program/commands.h"

namespace reference {

// The commands that ask a running manager. Each writes the answer to standard output and returns
// the exit status. They throw `std::runtime_error`, with a text for the operator, if there is no
// manager at `arguments.control`.

int ShowStatus(const CommandArguments& arguments);
int ListObjects(const CommandArguments& arguments);
int ExplainObject(const CommandArguments& arguments);
int DrawGraph(const CommandArguments& arguments);
int FollowEvents(const CommandArguments& arguments);
int AuditHal(const CommandArguments& arguments);
int ReloadSite(const CommandArguments& arguments);
int ResyncHal(const CommandArguments& arguments);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_ASK_COMMANDS_H_
