#ifndef ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_
#define ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "reference/hal/hal_tables.h"
#include "reference/log/log_function.h"
#include "reference/wire/frame.h"

namespace boost::asio {
class io_context;
}  // namespace boost::asio

namespace wire {
class ServerStatus;
}  // namespace wire

namespace reference {

class DataPlane;
class RequestObserver;
class ServerFaults;

struct HalServerOptions {
  /// Path of the Unix socket. It is created with permissions 0600, and its folder if missing. A
  /// socket on which no server listens is replaced.
  std::string path;
  std::size_t table_capacity = std::size_t{1} << 21;
  std::size_t max_payload = kDefaultMaxPayload;
  /// Maximum number of clients at a time; further ones are refused.
  std::size_t max_clients = 64;
  /// While more answer bytes than this wait for a client that does not read, the server does not
  /// read from that client.
  std::size_t max_unsent = std::size_t{1024} * 1024;
  /// Maximum number of table readings at a time; the server refuses a client that asks for one
  /// more.
  std::size_t max_table_readings = 32;
  /// The server closes a client that has not said hello after this time.
  std::chrono::milliseconds hello_timeout{5'000};
  /// The server closes a client if no byte goes either way for this time, so that forgotten
  /// connections do not keep others out. A client that waits sends heartbeats.
  std::chrono::milliseconds idle_timeout{30'000};
  /// Sees every request, result, reinstall mark and log line. Not owned, must outlive the server;
  /// may be null.
  RequestObserver* observer = nullptr;
  /// Makes the server misbehave. Not owned, must outlive the server; null for no faults.
  ServerFaults* faults = nullptr;
  /// Forwards packets as the tables say; all requests of a read are committed together, before they
  /// are answered. Not owned, must outlive the server; null for tables alone, or with faults.
  DataPlane* data_plane = nullptr;
  /// How long the tables stay without a writer; forever if empty.
  std::optional<std::chrono::seconds> keep;
  /// The interval between two comparisons of the data plane with the tables; 0 for none.
  std::chrono::seconds audit{60};
  /// Called with every connection event, one line each. May be empty.
  LogFunction log;
};

/// A HAL server on a Unix stream socket: holds the tables, carries out requests in the order of
/// arrival, and answers each. Everything, including the destructor, runs on the thread that runs
/// the `io_context`.
///
/// One client at a time, the writer, may send requests and reinstall marks. The first client that
/// announces writing in its hello, or sends one of these, becomes the writer and stays it until its
/// connection ends. Other writers are refused unless they take over. Clients that only read are
/// always admitted.
///
/// The end of a reinstall without a begin removes nothing and is answered as usual. If the writer
/// goes away within its reinstall, the reinstall stays open: nothing more is removed, and installs
/// replace, until the next writer begins and ends another one.
class HalServer {
 public:
  /// Listens from now on. Throws `boost::system::system_error` if that fails.
  HalServer(boost::asio::io_context* io, HalServerOptions options);
  HalServer(const HalServer&) = delete;
  HalServer& operator=(const HalServer&) = delete;
  /// Closes every connection and removes the socket.
  ~HalServer();

  const HalTables& tables() const;
  std::uint64_t generation() const;
  wire::ServerStatus Status() const;
  /// Whether a client may change the tables.
  bool HasWriter() const;
  /// The results so far, by code.
  const std::map<HalReturnCode, std::uint64_t>& results() const;

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_HAL_SERVER_H_
