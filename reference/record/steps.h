#ifndef ZUSKUX_REFERENCE_RECORD_STEPS_H_
#define ZUSKUX_REFERENCE_RECORD_STEPS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "reference/hal/hal_request.h"
#include "reference/record/recording_reader.h"

namespace reference {

/// One thing that a recorded HAL server went through.
struct Step {
  enum class Kind { kServerFound, kBeginReinstall, kEndReinstall, kRequest };
  Kind kind = Kind::kRequest;

  // Of a request:
  std::uint64_t number = 0;
  HalRequest request;
  /// Unset when the recording has no result of it: for a VRF, or because it ends before.
  std::optional<HalReturnCode> code;
  /// The payload was too long to be recorded and is missing.
  bool payload_omitted = false;
};

/// The rest of a recording in the order in which the server took it. This is the order of the
/// entries, except that a request that was on its way when a server was found and had its result
/// afterwards went to that server. Throws `RecordingError`.
std::vector<Step> ReadSteps(RecordingReader* recording);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_STEPS_H_
