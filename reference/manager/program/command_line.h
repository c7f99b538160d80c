#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMAND_LINE_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMAND_LINE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/manager/engine/dest_database.h"
#include "reference/web/http_address.h"

namespace reference {

/// The parsed command line.
struct CommandLine {
  /// The site, and those to apply after it.
  std::vector<std::string> sites;
  /// Only check these site files.
  std::vector<std::string> check;
  bool help = false;
  bool version = false;

  bool trace = false;
  std::optional<std::string> log_config;
  /// Path of the HAL server's socket; nothing for the embedded HAL.
  std::optional<std::string> hal_socket;
  std::chrono::milliseconds deadline{0};
  std::size_t table_size = 0;
  /// Restart the HAL after this many results; 0 for never.
  std::uint64_t restart_hal_after = 0;
  bool stay = false;
  /// How many objects a new site may remove; nothing for the default limit.
  std::optional<std::size_t> max_removals;
  /// Take over from a manager that already programs the HAL.
  bool take_over = false;
  /// Wait while another manager programs the HAL.
  bool stand_by = false;
  /// The interval between two audits; 0 for none.
  std::chrono::seconds audit{0};
  /// Path of the control socket.
  std::string control;
  /// Where to serve the page.
  std::optional<HttpAddress> http;
  std::optional<std::string> record;
  /// Only show what would change.
  bool plan = false;

  bool json = false;
  std::optional<ObjectKey> explain;
  std::optional<std::string> graph;
  /// "-" for the standard output.
  std::optional<std::string> dump_hal;
};

/// An invalid command line; the text says what to write instead.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Values that options and commands share. Each throws `UsageError` for any other text.

/// Parses "vlan:10", which `where` was given.
ObjectKey ReadObjectKey(const std::string& where, const std::string& text);
/// Parses "vlan".
HalKind ReadKind(const std::string& text);
/// Parses "12" or "all".
std::size_t ReadMaxRemovals(const std::string& text);

/// Throws `UsageError`.
CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

/// Whether the word, with its dashes, is an option of a run.
bool IsOption(const std::string& word);

std::string HelpText();

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_COMMAND_LINE_H_
