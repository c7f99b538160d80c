#ifndef ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
#define ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// A request as it leaves the caller's thread: a copy that owns all its data.
struct HalRequest {
  HalOperation operation = HalOperation::kInstallVrf;
  /// The id of the object, as its kind's row reads it from the message; 0 if it carries none.
  std::uint32_t id = 0;
  /// The second id of the result, as the kind's row reads it from the message.
  std::uint32_t secondary_id = 0;
  /// The serialised message.
  std::string payload;
  /// The number that the connection's or server's observer gave it; 0 without an observer.
  std::uint64_t number = 0;
};

/// A copy without the payload: all that the result needs.
HalRequest WithoutPayload(const HalRequest& request);

/// Replaces `request` with a copy of what `wrapper`, which fits `operation`, carries. If the
/// wrapper carries no message or one of another kind, the request has no payload, and the HAL
/// refuses it. Reuses the memory of the payload.
void MakeRequest(HalOperation operation, const AppMessage& wrapper, HalRequest* request);

/// Calls the request's result operation, if it has one, on the calling thread; `ReportedCode` and
/// `ReportedReason` return `code` and `reason` meanwhile. Does not read the payload.
void ReportResult(HalCallback* callback, const HalRequest& request, HalReturnCode code,
                  std::string_view reason = {});

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
