#ifndef ZUSKUX_REFERENCE_RECORD_STEPS_H_
#define ZUSKUX_REFERENCE_RECORD_STEPS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "reference/hal/hal_request.h"
#include "reference/hal/message_fields.h"
#include "reference/record/recording_reader.h"

namespace reference {

/// One step in the life of a recorded HAL server.
struct Step {
  enum class Kind { kServerFound, kBeginReinstall, kEndReinstall, kRequest };
  Kind kind = Kind::kRequest;

  // For a request:
  std::uint64_t number = 0;
  HalRequest request;
  /// Unset if the recording has no result for it: a VRF request, or the recording ends before the
  /// result.
  std::optional<HalReturnCode> code;
  /// The payload was too long to be recorded and is missing.
  bool payload_omitted = false;
};

/// Reads the rest of a recording in the order in which the server took the requests. That is the
/// order of the entries, with one exception: a request that was in flight when a server was found,
/// and had its result after that, went to that server. Throws `RecordingError`.
///
/// Adds the interfaces that the recording names to `interfaces` unless that is null; the last name
/// of an interface counts.
std::vector<Step> ReadSteps(RecordingReader* recording, InterfaceNames* interfaces = nullptr);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_STEPS_H_
