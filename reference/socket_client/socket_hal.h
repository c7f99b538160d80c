#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "reference/hal/hal_connection.h"
#include "reference/log/log_function.h"

namespace reference {

struct SocketHalOptions {
  /// Path of the server's Unix socket.
  std::string path;
  /// Maximum number of requests in flight, from 1 to 2^23; further ones end with `kHalQueueFull`. A
  /// request whose deadline passed does not count.
  std::size_t queue_entries = 4096;
  /// Maximum number of bytes waiting to be written, and of kept VRF requests; further requests end
  /// with `kHalQueueFull`. A request that can never fit ends with `kHalTooLarge`.
  std::size_t queue_bytes = std::size_t{4} * 1024 * 1024;
  /// A request that is not answered within this time ends with `kHalDeadline`.
  std::chrono::milliseconds deadline{30'000};
  /// After a silence of this length, the client asks the server for a sign of life; any byte is
  /// one. If the silence continues for the given multiple of this length, the connection is closed.
  /// The same limit applies to the server's hello.
  std::chrono::milliseconds heartbeat{1'000};
  int heartbeats_missed = 5;
  /// Pause before the next attempt to connect. It doubles from the first value to the last, and
  /// starts over once a server has sent anything besides its hello. A socket that appears at the
  /// path ends the pause.
  std::chrono::milliseconds reconnect_first{10};
  std::chrono::milliseconds reconnect_last{1'000};
  /// The longest pause after an attempt that found nobody listening. Needed when the folder cannot
  /// be watched and a new socket goes unnoticed.
  std::chrono::milliseconds reconnect_absent{100};
  /// The client's name in the server's log and in messages to other clients: "zuskux-manager
  /// 0.1.0".
  std::string program = "HAL client";
  /// Takes over from a client that already programs the first server found. Otherwise the server
  /// refuses this client.
  bool take_over = false;
  /// Called on the connection's thread when another client programs the server or has taken over
  /// from this one. The connection keeps trying and becomes the writer once the other client is
  /// gone. May be empty.
  std::function<void()> other_writer = nullptr;
  /// Number of the first request; 24 bits, which wrap. For tests.
  std::uint32_t first_sequence = 0;
  /// Called on the connection's thread with every connection event, one line each ("in sync after
  /// 120 ms: vrf 2, ..."). A repeated failure is logged once. May be empty.
  LogFunction log;
};

struct SocketHalStatistics {
  /// How often a request woke the connection's thread.
  std::uint64_t wake_ups = 0;
  /// Writes that carried requests; each carries everything that waited.
  std::uint64_t writes = 0;
};

/// A HAL client over a Unix stream socket. Its own thread connects, reads, writes and reports. When
/// no other request is in flight, and whenever 8 KiB of requests wait, the caller's thread writes
/// them directly, as far as the socket accepts them without blocking. Owned by the host program.
///
/// Every VLAN, host, ECMP and MPLS request ends in exactly one result, on the connection's thread,
/// never inside the request call. This holds even if the server dies (`kHalServerLost`), stalls
/// (`kHalDeadline`; the late result is dropped and counted) or does not exist (`kHalNoServer`), or
/// the request is refused (`kHalQueueFull`, `kHalTooLarge`). There are no reports after the
/// destructor has returned. Queues and frames are bounded. Anything invalid from the server closes
/// the connection, and the client then reconnects.
///
/// The client is its server's writer: while it is connected, no other client changes the tables.
///
/// Requests made before the first attempt to connect ends wait for its outcome. Each connection
/// counts as a server found, even one to a server that kept running: the fate of the requests in
/// between is unknown.
///
/// VRF requests, which have no result, survive the loss of the server: they go to the next server
/// in order and ahead of everything else, unless a newer request for the same VRF replaced them.
/// They therefore precede the reinstall that answers the server-found report. That reinstall has
/// the last word: it installs what is wanted, and its end removes whatever it did not name. A VRF
/// request that the server refuses, or does not answer within `deadline`, is logged and reported. A
/// refused one makes the server's summary differ in a reinstall.
///
/// When a reinstall ends, the client compares the server's summary with what the server
/// acknowledged. If they differ, or the server does not answer the end within `deadline`, it
/// reports the server as found again, at most three times in a row. After that, it reports the
/// reinstall as ended and not in sync.
class SocketHal : public HalConnection {
 public:
  /// Throws `boost::system::system_error` if the path is too long for a socket.
  explicit SocketHal(SocketHalOptions options);
  /// Ends the thread. Unanswered requests end without a result; unwritten ones are not sent. Do not
  /// call inside a report.
  ~SocketHal() override;

  void Start(HalReports reports) override;
  /// After returning false, reports `room` once half of the queue is free.
  bool HasRoom() override;
  void AskForDigests() override;
  /// `late_results` counts results for no outstanding request: late, duplicate or never asked for.
  HalConnectionCounters counters() const override;
  /// Covers everything that the server answered, including refused and late requests.
  HalLatencies latencies() const override;
  FoundServer server() const override;

  /// Callable on any thread.
  SocketHalStatistics statistics() const;

 protected:
  HalReturnCode Submit(HalRequest* request) override;
  void SubmitBeginReinstall() override;
  void SubmitEndReinstall() override;

 private:
  class Client;
  std::unique_ptr<Client> client_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_SOCKET_HAL_H_
