#ifndef ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_
#define ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "reference/server/server_faults.h"

namespace reference {

/// How a process ends that a fault crashed.
inline constexpr int kFaultCrashExitCode = 70;

struct FaultPlanOptions {
  /// Told every fault that happens, one line each. May be empty.
  std::function<void(const std::string& line)> log;
  /// Called for a crash; if empty, the process exits at once with `kFaultCrashExitCode`.
  std::function<void()> crash;
};

/// One mistake in a fault file: where it is, what is wrong and what to do about it.
struct FaultError {
  /// Counted from 1; 0 when the file as a whole is meant.
  int line = 0;
  int column = 0;
  std::string text;
};

/// "<file>:<line>:<column>: <text>", without the numbers that are 0.
std::string FormatFaultError(const std::string& file, const FaultError& error);

/// The faults that a text asks for, whose grammar is in fault.proto, or every mistake of the text.
/// A syntax error stops the reading and is then the only one.
std::variant<std::unique_ptr<ServerFaults>, std::vector<FaultError>> ParseFaultPlan(
    const std::string& text, FaultPlanOptions options);

/// The same of a file; a file that cannot be read is one error.
std::variant<std::unique_ptr<ServerFaults>, std::vector<FaultError>> ReadFaultFile(
    const std::string& path, FaultPlanOptions options);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_
