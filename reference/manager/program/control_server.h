#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_SERVER_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_SERVER_H_

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "reference/wire/client_acceptor.h"

namespace reference {

/// A part of the answer to a request.
struct AnswerPiece {
  enum class Next { kMore, kLater, kEnd };
  /// Whole lines; may be empty.
  std::string text;
  /// Whether more follows, at once or when something happens.
  Next next = Next::kEnd;
};

/// Makes the next piece of an answer, in a time that does not grow with the site.
using Answer = std::function<AnswerPiece()>;

/// The control socket of a running manager. A client sends one line and gets an answer of lines,
/// piece by piece: the manager's other work goes on in between, and the next piece is made when the
/// client has taken the one before. Only the manager's user may connect.
///
/// Clients are bounded: in number, in the length of a request, and in the time that they take to
/// send it and to read a piece. The server closes the connection of one that takes longer.
///
/// Owned by the program, on the thread that runs the `io_context`, as are all callbacks.
class ControlServer {
 public:
  /// Returns the answer to a request. Must not throw, and must not destroy the server.
  using Handler = std::function<Answer(const std::string& request)>;

  /// `patience` is how long a client may take for its request and for each piece. Throws
  /// `boost::system::system_error`, with a text for the operator, if it cannot listen on `path`.
  ControlServer(boost::asio::io_context* io, const std::string& path, Handler handler,
                std::chrono::milliseconds patience = std::chrono::seconds(10));
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;
  /// Removes the socket and ends all answers.
  ~ControlServer();

  static constexpr std::size_t kMaxClients = 16;
  static constexpr std::size_t kMaxRequest = 4096;

 private:
  class Session;
  struct Sessions;

  // Shared with the sessions.
  const std::shared_ptr<Sessions> sessions_;
  ClientAcceptor acceptor_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_SERVER_H_
