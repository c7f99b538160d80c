#ifndef ZUSKUX_REFERENCE_WIRE_CLIENT_ACCEPTOR_H_
#define ZUSKUX_REFERENCE_WIRE_CLIENT_ACCEPTOR_H_

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/error_code.hpp>
#include <functional>
#include <memory>
#include <string>

namespace reference {

/// Accepts every client that connects to a Unix socket. If accepting fails, for example for lack of
/// file descriptors, it pauses and tries again.
///
/// Owned by a server and used on the thread that runs the `io_context`, as are its callbacks.
class ClientAcceptor {
 public:
  using Socket = boost::asio::local::stream_protocol::socket;
  using Accepted = std::function<void(Socket socket)>;
  using Failed = std::function<void(const boost::system::error_code& error)>;

  /// Listens on `path`. Throws as `UnixListener` does.
  ClientAcceptor(boost::asio::io_context* io, const std::string& path, Accepted accepted,
                 Failed failed);
  ClientAcceptor(const ClientAcceptor&) = delete;
  ClientAcceptor& operator=(const ClientAcceptor&) = delete;
  /// Removes the socket. No callback follows. Do not call inside a callback.
  ~ClientAcceptor();

 private:
  class Impl;
  // Shared with the operations in flight.
  const std::shared_ptr<Impl> impl_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_CLIENT_ACCEPTOR_H_
