#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "reference/hal/hal_connection.h"

namespace reference {

struct SocketHalOptions {
  /// Path of the server's Unix socket.
  std::string path;
  /// Requests that the server has not answered, at most; further ones end with `kHalQueueFull`. A
  /// request that ran into its deadline keeps its place until the server answers it, or one sent
  /// after it. From 1 to 2^23.
  std::size_t queue_entries = 4096;
  /// Bytes that wait to be written, at most, and of VRF requests that are kept; further requests
  /// end with `kHalQueueFull`. A request that never fits ends with `kHalTooLarge`.
  std::size_t queue_bytes = std::size_t{4} * 1024 * 1024;
  /// A request without an answer for so long ends with `kHalDeadline`.
  std::chrono::milliseconds deadline{30'000};
  /// After how long a silence the server is asked for a sign of life, and for how many times that
  /// long it may stay silent then. Any byte is a sign of life. The same bounds its hello.
  std::chrono::milliseconds heartbeat{1'000};
  int heartbeats_missed = 5;
  /// Pause before the next attempt to connect: doubles from the first to the last, and starts over
  /// once a server has answered anything besides its hello. A socket that appears at the path ends
  /// the pause.
  std::chrono::milliseconds reconnect_first{10};
  std::chrono::milliseconds reconnect_last{1'000};
  /// The longest pause after an attempt that found nobody listening. For a socket that appears
  /// unseen, because its folder could not be watched.
  std::chrono::milliseconds reconnect_absent{100};
  /// What the client calls itself, for the server's log and for other clients: "zuskux-manager
  /// 0.1.0".
  std::string program = "HAL client";
  /// At the first server that is found, ends the conversation of a client that programs it already.
  /// Else the server refuses this one.
  bool take_over = false;
  /// Told that another client programs the server, or has taken over from this one, on the
  /// connection's thread. The connection goes on trying, and takes its turn when the other one has
  /// gone. May be empty.
  std::function<void()> other_writer = nullptr;
  /// Number of the first request; 24 bits, which wrap. For tests.
  std::uint32_t first_sequence = 0;
  /// Told every connection event, one line each, on the connection's thread ("in sync after 120 ms:
  /// vrf 2, ..."). The same failure again and again is told once. May be empty.
  std::function<void(const std::string& line)> log;
};

struct SocketHalStatistics {
  /// How often a request woke the connection's thread.
  std::uint64_t wake_ups = 0;
  /// Writes that carried requests; each carries all that waited.
  std::uint64_t writes = 0;
};

/// A HAL client over a Unix stream socket, with a thread of its own that connects, reads, writes
/// and reports. A request that nothing else is under way with is written by the thread that sends
/// it, as far as the socket takes it at once. Owned by the host program.
///
/// Promises: every VLAN, host, ECMP and MPLS request ends in exactly one result, on the
/// connection's thread, never inside the request call, also when the server dies
/// (`kHalServerLost`), stalls (`kHalDeadline`; the late result is dropped and counted), there is
/// none (`kHalNoServer`), or the request is refused (`kHalQueueFull`, `kHalTooLarge`). No report
/// after the destructor returned. Queues and frames are bounded; whatever a server sends that is no
/// valid conversation closes the connection, which then is made again.
///
/// The client is its server's writer: as long as it is connected, no other client changes the
/// tables.
///
/// Requests from before the outcome of the first attempt to connect wait for it. Each connection is
/// a server found, also one to a server that kept running: what became of the requests in between
/// is not known.
///
/// VRF requests, which have no result, are kept until the server has answered them, and go to the
/// next server, in their order and ahead of everything else, except where a newer one for the same
/// VRF came. They so come before the reinstall that answers the report of the server found, which
/// has the last word: it installs what is wanted, and its end removes what it did not name. A
/// server that has not answered one within `deadline`, but a later request, has lost it: the
/// connection is given up. One that the server refuses is logged and reported; in a reinstall, it
/// makes a difference to the server's summary.
///
/// When a reinstall ends, the server's summary is compared with what it acknowledged; after a
/// difference the server is reported as found once more, at most three times in a row. Then the
/// reinstall is reported as ended, and not in sync.
class SocketHal : public HalConnection {
 public:
  /// Throws `boost::system::system_error` when the path is too long for a socket.
  explicit SocketHal(SocketHalOptions options);
  /// Ends the thread. Requests that are not answered end without a result, those that were not
  /// written are not sent. Not inside a report.
  ~SocketHal() override;

  void Start(HalReports reports) override;
  /// After false, `room` is reported when half of the queue is free.
  bool HasRoom() override;
  /// `late_results` counts what came for no outstanding request: late, twice or never asked for.
  HalConnectionCounters counters() const override;
  /// Of all that the server answered, refused and late requests included.
  HalLatencies latencies() const override;

  /// Callable on any thread.
  SocketHalStatistics statistics() const;

 protected:
  HalReturnCode Submit(HalRequest request) override;
  void SubmitBeginReinstall() override;
  void SubmitEndReinstall() override;

 private:
  class Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_
