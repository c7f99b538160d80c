#ifndef ZUSKUX_REFERENCE_WIRE_UNIX_LISTENER_H_
#define ZUSKUX_REFERENCE_WIRE_UNIX_LISTENER_H_

#include <sys/types.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "reference/wire/file_lock.h"

namespace reference {

/// Listens on a Unix socket that only this user may connect to. Used on one thread.
class UnixListener {
 public:
  using Acceptor = boost::asio::local::stream_protocol::acceptor;

  /// Makes the socket's folder (0700) when it is missing, and the socket (0600); replaces a socket
  /// that nobody listens on. Holds the lock file `path`.lock, so that of several that start at once
  /// exactly one listens. Throws `boost::system::system_error`, with a text for the operator; also
  /// for a folder in which another user could replace the socket.
  UnixListener(boost::asio::io_context* io, std::string path);
  UnixListener(const UnixListener&) = delete;
  UnixListener& operator=(const UnixListener&) = delete;
  /// Removes the socket, unless another one has taken its place.
  ~UnixListener();

  Acceptor& acceptor() { return acceptor_; }

 private:
  void Lock();
  void RemoveStaleSocket();
  void Listen();

  const std::string path_;
  // Held until the socket is closed.
  std::optional<FileLock> lock_;
  Acceptor acceptor_;
  // Which file the socket is.
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// Where a program's socket is when nobody says otherwise: `name` in the folder "zuskux" of the
/// user's runtime folder ($XDG_RUNTIME_DIR, if it is an absolute path), else in
/// "/tmp/zuskux-<uid>".
std::string DefaultSocketPath(std::string_view name);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_UNIX_LISTENER_H_
