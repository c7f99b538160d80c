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

/// Listens on a Unix socket to which only this user may connect. Used on one thread.
class UnixListener {
 public:
  using Acceptor = boost::asio::local::stream_protocol::acceptor;

  /// Creates the socket (0600); replaces a socket on which nobody listens. Creates the folder
  /// (0700) only for the default path. Holds the lock file `path`.lock, so that exactly one of
  /// several servers that start at once listens. Throws `boost::system::system_error`, with a text
  /// for the operator; also for a folder in which another user could replace the socket.
  UnixListener(boost::asio::io_context* io, std::string path);
  UnixListener(const UnixListener&) = delete;
  UnixListener& operator=(const UnixListener&) = delete;
  /// Removes the socket unless another one has replaced it.
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
  // Identifies the socket's file.
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// The default path of a program's socket: `name` in the folder "zuskux" of the user's runtime
/// folder ($XDG_RUNTIME_DIR, if it is an absolute path), else in "/tmp/zuskux-<uid>".
std::string DefaultSocketPath(std::string_view name);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_UNIX_LISTENER_H_
