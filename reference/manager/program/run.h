#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_

#include <optional>
#include <string>
#include <vector>

#include "reference/log/log_sink.h"
#include "reference/manager/program/chosen_hal.h"
#include "reference/manager/program/command_line.h"
#include "reference/site/site.h"

namespace reference {

inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitIncomplete = 3;
inline constexpr int kExitOtherWriter = 4;
inline constexpr int kExitNotRecorded = 5;

/// The program's standard error.
LogSink& Log();

/// Logs a line.
void Say(LogLevel level, const std::string& text);

/// Reads the site of a file. If it has mistakes, shows all of them on standard error and returns
/// nothing.
std::optional<Site> ReadSiteOrSay(const std::string& path);

HalChoice HalChoiceOf(const CommandLine& line);

/// Runs a manager with its HAL on the calling thread until everything is settled or a signal ends
/// it, and shows the final state of the objects. `sites` are those of the command line, in order.
/// Returns the exit status. Throws `std::exception`, with a text for the operator, for what cannot
/// be done.
int RunManager(const CommandLine& line, std::vector<Site> sites);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_RUN_H_
