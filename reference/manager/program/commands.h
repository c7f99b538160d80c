#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMANDS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMANDS_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/kinds.h"
#include "reference/manager/engine/dest_database.h"

namespace reference {

/// What a command was given besides its name.
struct CommandArguments {
  std::string control;
  std::optional<ObjectKey> object;
  bool json = false;
  bool failed = false;
  std::optional<HalKind> kind;
  std::optional<std::size_t> max_removals;
};

/// Runs a command, such as "status --json", if the first word is one, and returns its exit status.
/// Throws `UsageError`, also if the first word looks like a mistyped command.
std::optional<int> RunCommand(const std::vector<std::string>& words);

/// A line for each command.
std::string CommandsHelp();

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMANDS_H_
