#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_REQUESTS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_REQUESTS_H_

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/manager.h"
#include "reference/manager/program/control_server.h"
#include "reference/manager/program/event_feed.h"
#include "reference/manager/views/status.h"

namespace reference {

/// The manager behind the control socket. Owns nothing.
struct ControlledManager {
  Manager* manager = nullptr;
  const HalConnection* hal = nullptr;
  EventFeed* events = nullptr;
  /// The absolute path of the HAL server's socket; empty for the embedded HAL.
  std::string hal_socket;
  std::function<StatusHead()> head;
  /// Reads the site again; `max_removals` applies to this reload only. If the site is refused,
  /// returns the reason.
  std::function<std::optional<std::string>(std::optional<std::size_t> max_removals)> reload;
};

/// Answers the requests at the control socket. A request is a JSON object: "request" names it, the
/// other members are its arguments. An answer is a JSON object per line; only the last one has
/// "exit_status", which is that of the command, and "error" if the request failed.
///
/// Owned by the program, on the manager's thread.
class ControlRequests {
 public:
  explicit ControlRequests(ControlledManager controlled) : controlled_(std::move(controlled)) {}

  /// The answer refers to this object.
  Answer AnswerTo(const std::string& request) const;

 private:
  struct Named;

  Answer Status(const nlohmann::ordered_json& arguments) const;
  Answer Objects(const nlohmann::ordered_json& arguments) const;
  Answer Nodes(const nlohmann::ordered_json& arguments) const;
  Answer Entries(const nlohmann::ordered_json& arguments) const;
  Answer Events(const nlohmann::ordered_json& arguments) const;
  Answer Explain(const nlohmann::ordered_json& arguments) const;
  Answer Reload(const nlohmann::ordered_json& arguments) const;
  Answer Resync(const nlohmann::ordered_json& arguments) const;

  int ExitStatus() const;

  const ControlledManager controlled_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_REQUESTS_H_
