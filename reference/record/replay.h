#ifndef ZUSKUX_REFERENCE_RECORD_REPLAY_H_
#define ZUSKUX_REFERENCE_RECORD_REPLAY_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/record/steps.h"

namespace reference {

/// The HAL does not answer, or the server was lost.
class ReplayError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ReplayOptions {
  /// How long to wait for the HAL server to be found.
  std::chrono::milliseconds server_patience{5'000};
  /// How long to wait for the HAL to make room and to answer; longer than a connection's own
  /// deadline.
  std::chrono::milliseconds answer_patience{40'000};
};

struct ReplayReport {
  /// Number of requests sent again.
  std::size_t sent = 0;
  /// Of these, the requests without a recorded server answer to compare with: VRF requests, and
  /// those that were lost or not answered in time.
  std::size_t not_compared = 0;
  /// Requests that the recorded client itself had refused. They are not sent again.
  std::size_t refused = 0;
  std::size_t differences = 0;
};

/// Sends the requests of `steps` through `hal`, one after the other, and prints a line to `out` for
/// each result that differs from the recorded one. Reinstall marks keep their place. At each
/// server-found step, an empty reinstall clears the tables, since the recorded server held nothing
/// that could be relied on. `hal` must not have been started. Throws `ReplayError`.
ReplayReport Replay(const std::vector<Step>& steps, std::unique_ptr<HalConnection> hal,
                    const ReplayOptions& options, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_REPLAY_H_
