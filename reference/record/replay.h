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

/// The HAL does not answer, or its server was lost.
class ReplayError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ReplayOptions {
  /// How long it may take until the HAL server is found.
  std::chrono::milliseconds server_patience{5'000};
  /// How long the HAL may take to make room and to answer. Longer than a connection's own deadline.
  std::chrono::milliseconds answer_patience{40'000};
};

struct ReplayReport {
  /// Requests sent again.
  std::size_t sent = 0;
  /// Of these, requests without a recorded answer of the server, so that there is nothing to
  /// compare: VRFs, and those that were lost or had no answer in time.
  std::size_t not_compared = 0;
  /// Requests that the recorded client itself had refused; they are not sent.
  std::size_t refused = 0;
  std::size_t differences = 0;
};

/// Sends the requests of `steps` through `hal`, one after the other, and prints a line to `out` for
/// each result that is not the recorded one. The marks of a reinstall are set where they were.
/// Where a server was found, the tables are emptied by a reinstall of nothing, since it held
/// nothing that could be relied on. `hal` has not been started. Throws `ReplayError`.
ReplayReport Replay(const std::vector<Step>& steps, std::unique_ptr<HalConnection> hal,
                    const ReplayOptions& options, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_REPLAY_H_
