#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_WATCH_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_WATCH_H_

#include <sys/inotify.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cstddef>
#include <functional>
#include <string>

namespace reference {

/// Notices when a socket appears at a path, by watching its folder with inotify, so that a client
/// need not poll for its server. Best effort: a folder that does not exist yet is not watched, nor
/// any on a system that has no inotify instance left. Combine it with a slow poll.
///
/// Owned by the connection and used on its thread, which runs the `io_context`.
class SocketWatch {
 public:
  /// Calls `appeared` on the thread that runs `io` whenever a file of that path is created, linked
  /// or renamed to while watching, possibly more than once per file. The file need not be a
  /// listening socket yet.
  SocketWatch(boost::asio::io_context* io, const std::string& path, std::function<void()> appeared);

  /// Watches the path's parent folder. Call again to follow a folder that was created or replaced
  /// since.
  void Watch();
  /// Stops watching: events in the folder cost nothing from now on.
  void Stop();

 private:
  void Open();
  void Read();
  bool Appeared(std::size_t size) const;

  const std::string folder_;
  const std::string file_name_;
  const std::function<void()> appeared_;
  boost::asio::posix::stream_descriptor inotify_;
  // -1 if nothing is watched.
  int watch_ = -1;
  alignas(inotify_event) std::array<char, 4096> events_{};
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_WATCH_H_
