#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <ostream>
#include <string>

#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/manager.h"

namespace reference {

/// The reinstall that runs, and the last one that ended. The start is a reinstall too.
struct ReinstallStatus {
  using Time = std::chrono::system_clock::time_point;
  struct Ended {
    std::size_t objects = 0;
    std::chrono::steady_clock::duration duration{0};
    Time time;
  };
  /// Nothing if none runs.
  std::optional<Time> started;
  /// Objects of the one that runs.
  std::size_t done = 0;
  std::size_t total = 0;
  std::optional<Ended> last;
};

/// The parts of a status that neither the manager nor the connection knows. Times are local, as in
/// "2024-05-17 08:15:30".
struct StatusHead {
  /// The current site file.
  std::string site;
  /// "embedded" or "unix:PATH".
  std::string hal;
  std::chrono::milliseconds uptime{0};
  /// When the connection last came up or went down.
  std::string connection_since;
  /// The last time that both sides agreed; empty for never.
  std::string last_in_sync;
  /// When the last audit ended, and the last one that found a difference, which it names; empty for
  /// never.
  std::string last_audit;
  std::string last_difference;
  std::string last_difference_text;
  /// The last reload that was refused, and why; empty for none.
  std::string refused_reload;
  std::string refused_reload_reason;
  ReinstallStatus reinstall;
  // The same as above, but for programs.
  std::chrono::system_clock::time_point started;
  std::chrono::system_clock::time_point connection_changed;
  std::optional<std::chrono::system_clock::time_point> in_sync_at;
};

/// Milliseconds since the epoch.
std::int64_t Milliseconds(std::chrono::system_clock::time_point time);

/// An object: the connection, objects by kind and state, queue depths with their peaks, the HAL
/// client's counters, and where requests spend their time. Called on the manager's thread.
nlohmann::ordered_json StatusAsJson(const StatusHead& head, Manager* manager,
                                    const HalConnection& hal);

// These show the result of `StatusAsJson`. They throw `std::runtime_error` for any other JSON.

/// Writes it as tables.
void WriteStatus(const nlohmann::ordered_json& json, std::ostream* out);
/// Writes its first part: the connection, and the objects by kind and state.
void WriteBriefStatus(const nlohmann::ordered_json& json, std::ostream* out);
/// "settled: 42 objects: 40 installed, 2 sent".
std::string StatusLine(const nlohmann::ordered_json& json);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_
