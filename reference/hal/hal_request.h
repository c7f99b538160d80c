#ifndef ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
#define ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_

#include <cstdint>
#include <string>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// A request as it leaves the caller's thread: a copy that owns what it needs.
struct HalRequest {
  HalOperation operation = HalOperation::kInstallVrf;
  /// The id of the object, as its kind's row reads it from the message; 0 when it carries none.
  std::uint32_t id = 0;
  /// The second id of the result, as the kind's row reads it from the message.
  std::uint32_t secondary_id = 0;
  /// The serialised message.
  std::string payload;
  /// What the connection's or server's observer calls it; 0 where nobody observes.
  std::uint64_t number = 0;
};

/// The request without what was serialised: all that its result needs.
HalRequest WithoutPayload(const HalRequest& request);

/// Copies what `wrapper`, which fits `operation`, carries. A wrapper that carries no
/// message, or one of another kind, gives a request without a payload, which the HAL refuses.
HalRequest MakeRequest(HalOperation operation, const AppMessage& wrapper);

/// Calls the result operation that belongs to the request, if there is one, on the calling thread.
/// `ReportedCode` tells the code meanwhile. Does not read the payload.
void ReportResult(HalCallback* callback, const HalRequest& request, HalReturnCode code);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
