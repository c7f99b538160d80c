#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHOSEN_HAL_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHOSEN_HAL_H_

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "reference/hal/embedded_hal.h"
#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_tables.h"
#include "reference/log/log_function.h"

namespace reference {

struct CommandLine;

struct HalChoice {
  /// Path of the server's socket; nothing for the embedded HAL.
  std::optional<std::string> socket;
  /// Maximum number of entries in each table of the embedded HAL.
  std::size_t table_size = 0;
  /// A request that the server has not answered within this time ends with `kHalDeadline`.
  std::chrono::milliseconds deadline{0};
  /// Called with the events of a socket's connection, on the connection's thread.
  LogFunction log;
  /// For a HAL behind a socket: as in `SocketHalOptions`.
  bool take_over = false;
  std::function<void()> other_writer = nullptr;
};

/// The HAL that the command line chooses. Logs to standard error.
HalChoice MakeHalChoice(const CommandLine& line);

/// The HAL that the operator chose, embedded or behind a socket. Used on the manager's thread.
class ChosenHal {
 public:
  /// Throws `boost::system::system_error` if the path is too long, `std::runtime_error` if this
  /// user may not connect.
  explicit ChosenHal(const HalChoice& choice);

  HalConnection* connection() { return connection_.get(); }
  const HalConnection& connection() const { return *connection_; }
  /// Null for a HAL behind a socket.
  EmbeddedHal* embedded() { return embedded_; }
  /// "embedded" or "unix:PATH".
  const std::string& name() const { return name_; }

  /// The HAL's contents. Throws `std::runtime_error` if they cannot be read.
  TableEntries ReadTables() const;

 private:
  const std::optional<std::string> socket_;
  const std::string name_;
  std::unique_ptr<HalConnection> connection_;
  EmbeddedHal* embedded_ = nullptr;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHOSEN_HAL_H_
