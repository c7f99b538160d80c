#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <ostream>
#include <string>

#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/manager.h"
#include "reference/wire/client_acceptor.h"

namespace reference {

/// What a status says about the manager itself.
struct StatusHead {
  /// The current site file.
  std::string site;
  /// "embedded" or "unix:PATH".
  std::string hal;
  std::chrono::milliseconds uptime{0};
};

/// A JSON object on several lines: objects by kind and state, queue depths with their peaks, the
/// HAL client's counters, and where requests spend their time. Called on the manager's thread.
std::string StatusAsJson(const StatusHead& head, Manager* manager, const HalConnection& hal);

/// Writes the output of `StatusAsJson` as tables. Throws `std::runtime_error` for any other text.
void WriteStatus(const std::string& text, std::ostream* out);
/// The same as JSON.
void WriteStatusAsJson(const std::string& text, std::ostream* out);

/// The control socket of a running manager: sends the status to each client and closes the
/// connection, without reading from it. Only the manager's user may connect.
///
/// Owned by the program, on the thread that runs the `io_context`.
class StatusServer {
 public:
  /// `status` returns the text. Throws `boost::system::system_error`, with a text for the operator,
  /// if it cannot listen on `path`.
  StatusServer(boost::asio::io_context* io, const std::string& path,
               const std::function<std::string()>& status);
  StatusServer(const StatusServer&) = delete;
  StatusServer& operator=(const StatusServer&) = delete;
  /// Removes the socket. Do not call inside `status`.
  ~StatusServer() = default;

 private:
  ClientAcceptor acceptor_;
};

/// The status of the manager that listens on `path`. Throws `std::runtime_error`, with a text for
/// the operator, if there is none or it does not answer within 10 seconds.
std::string ReadStatus(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_STATUS_H_
