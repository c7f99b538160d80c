#ifndef ZUSKUX_REFERENCE_SERVER_SERVER_FAULTS_H_
#define ZUSKUX_REFERENCE_SERVER_SERVER_FAULTS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"

namespace reference {

/// The server consults this before it acts, so that faults can make it misbehave. Called on the
/// server's thread.
class ServerFaults {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// What happens to a new connection.
  struct ConnectionFate {
    enum class Entry { kServe, kRefuse, kClose };
    Entry entry = Entry::kServe;
    bool one_byte_writes = false;
    /// How fast the server reads from the client; 0 for no limit.
    std::size_t read_bytes_per_second = 0;
  };

  /// What happens to a request and its result.
  struct RequestFate {
    enum class End { kNone, kCloseBefore, kCloseAfter, kCrashBefore, kCrashAfter };
    /// Whether the connection or the server ends, without a result, before or after the request is
    /// applied.
    End end = End::kNone;
    /// Sent as the result instead of applying the request.
    std::optional<HalReturnCode> code;
    /// If the request succeeds, its object then has this code for `broken_for`.
    std::optional<HalReturnCode> broken;
    std::chrono::milliseconds broken_for{0};
    /// How often the result is sent.
    int copies = 1;
    /// Whether another result follows, with a sequence that nobody used.
    bool stray = false;
    /// When to send the result; immediately if in the past. Results due at the same time go in the
    /// order of their ranks.
    Time due{};
    std::uint32_t rank = 0;
    /// After how many bytes of the result the server closes the connection; 0 to send all of it.
    std::size_t cut = 0;
  };

  virtual ~ServerFaults() = default;

  virtual ConnectionFate OnAccept() = 0;
  virtual RequestFate OnRequest(const HalRequest& request, const HalTables& tables) = 0;
  virtual void OnBeginReinstall() = 0;
  /// Returns when to answer the end of the reinstall.
  virtual Time OnEndReinstall() = 0;
  /// Ends the process. If it returns instead, the server does what a restart would do: it closes
  /// every connection and continues with empty tables and a new generation.
  virtual void Crash() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_SERVER_FAULTS_H_
