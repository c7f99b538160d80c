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

/// What a server asks before it does its work, so that it can be made to misbehave. Called on the
/// server's thread.
class ServerFaults {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// What becomes of a new connection.
  struct ConnectionFate {
    enum class Entry { kServe, kRefuse, kClose };
    Entry entry = Entry::kServe;
    bool one_byte_writes = false;
    /// How fast the client is read from; 0 for as fast as it sends.
    std::size_t read_bytes_per_second = 0;
  };

  /// What becomes of a request and of its result.
  struct RequestFate {
    enum class End { kNone, kCloseBefore, kCloseAfter, kCrashBefore, kCrashAfter };
    /// Whether the connection or the server ends before or after the request is applied, without a
    /// result.
    End end = End::kNone;
    /// Answered instead of applying the request.
    std::optional<HalReturnCode> code;
    /// How often the result is sent.
    int copies = 1;
    /// Whether a result with a sequence that nobody used follows.
    bool stray = false;
    /// The result is sent at this time, at once if it is past. Those of one time go in the order of
    /// their ranks.
    Time due{};
    std::uint32_t rank = 0;
    /// So many bytes of the result are sent, then the connection is closed; 0 for all of it.
    std::size_t cut = 0;
  };

  virtual ~ServerFaults() = default;

  virtual ConnectionFate OnAccept() = 0;
  virtual RequestFate OnRequest(const HalRequest& request, const HalTables& tables) = 0;
  virtual void OnBeginReinstall() = 0;
  /// Gives the time at which the end of the reinstall is answered.
  virtual Time OnEndReinstall() = 0;
  /// Ends the process. Where it returns instead, the server does what a restart would do: it closes
  /// every connection and goes on with empty tables and another generation.
  virtual void Crash() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_SERVER_FAULTS_H_
