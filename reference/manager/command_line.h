#ifndef ZUSKUX_REFERENCE_MANAGER_COMMAND_LINE_H_
#define ZUSKUX_REFERENCE_MANAGER_COMMAND_LINE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/manager/dest_database.h"

namespace reference {

/// What the command line asks for.
struct CommandLine {
  /// Show the status of a running manager.
  bool status = false;
  /// The site and those to apply after it.
  std::vector<std::string> sites;
  /// Only read this one.
  std::optional<std::string> check;
  bool help = false;
  bool version = false;

  bool trace = false;
  std::optional<std::string> log_config;
  /// Path of the HAL server's socket; nothing for the HAL in the process.
  std::optional<std::string> hal_socket;
  std::chrono::milliseconds deadline{0};
  std::size_t table_size = 0;
  /// Restart the HAL after so many results; 0 for not at all.
  std::uint64_t restart_hal_after = 0;
  bool stay = false;
  /// End the work of a manager that programs the HAL already.
  bool take_over = false;
  /// Wait while another manager programs the HAL.
  bool stand_by = false;
  /// Path of the control socket.
  std::string control;
  std::optional<std::string> record;
  /// Only show what would change.
  bool plan = false;

  bool json = false;
  std::optional<ObjectKey> explain;
  std::optional<std::string> graph;
  /// "-" for the standard output.
  std::optional<std::string> dump_hal;
};

/// A command line that cannot be followed; says what to write instead.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws `UsageError`.
CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

std::string HelpText();

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_COMMAND_LINE_H_
