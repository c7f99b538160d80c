#ifndef ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_
#define ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "reference/hal/hal_tables.h"
#include "reference/wire/frame.h"

namespace reference {

class RequestObserver;
class ServerFaults;

struct HalServerOptions {
  /// Path of the Unix socket; made with permissions 0600, in a folder that is made when it is
  /// missing. A socket that no server listens on is
  /// replaced.
  std::string path;
  std::size_t table_capacity = std::size_t{1} << 21;
  std::size_t max_payload = kDefaultMaxPayload;
  /// Clients at a time; further ones are refused.
  std::size_t max_clients = 64;
  /// While more bytes of answers than this wait for a client that does not read, it is not read
  /// from.
  std::size_t max_unsent = std::size_t{1024} * 1024;
  /// Readings of the tables at a time, at most; a client that asks for one more is refused.
  std::size_t max_table_readings = 32;
  /// A client that has not said hello after so long is closed.
  std::chrono::milliseconds hello_timeout{5'000};
  /// Told every request, result, reinstall mark and line of the log. Not owned, outlives the
  /// server; null for none.
  RequestObserver* observer = nullptr;
  /// Makes the server misbehave. Not owned, outlives the server; null for a server that works.
  ServerFaults* faults = nullptr;
  /// Told every connection event, one line each. May be empty.
  std::function<void(const std::string& line)> log;
};

/// A HAL server on a Unix stream socket: holds the tables, carries out requests in the order in
/// which they arrive, answers each. Everything runs on the thread that runs the `io_context`, the
/// destructor too.
///
/// One client at a time, the writer, may send requests and reinstall marks. It is the first one
/// that says in its hello that it writes, or does so; it stops being the writer when its connection
/// ends. Others are refused, unless they take over. Who only reads is always welcome.
///
/// An end of a reinstall without a begin removes nothing and is answered like any. A writer that
/// goes away in its reinstall leaves it open: nothing is removed, and installs replace, until the
/// next writer begins and ends another one.
class HalServer {
 public:
  /// Listens from now on. Throws `boost::system::system_error` when it cannot.
  HalServer(boost::asio::io_context* io, HalServerOptions options);
  HalServer(const HalServer&) = delete;
  HalServer& operator=(const HalServer&) = delete;
  /// Closes every connection and removes the socket.
  ~HalServer();

  const HalTables& tables() const;
  std::uint64_t generation() const;

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_
