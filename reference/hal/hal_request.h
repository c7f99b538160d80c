#ifndef ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
#define ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "reference/hal/hal_code.h"

class AppMessage;

namespace reference {

/// The requests of the HAL, in the order of the client's operations. The values are used on the
/// wire and in recordings.
enum class HalOperation : std::uint8_t {
  kInstallVrf = 3,
  kDestroyVrf = 4,
  kInstallVlan = 5,
  kDestroyVlan = 6,
  kReplaceVlan = 7,
  kInstallHost = 8,
  kDestroyHost = 9,
  kReplaceHost = 10,
  kInstallEcmp = 11,
  kDestroyEcmp = 12,
  kInstallMpls = 13,
  kDestroyMpls = 14,
  kReplaceMpls = 15,
};

/// What the HAL keeps, a table for each kind.
enum class HalKind : std::uint8_t { kVrf, kVlan, kHost, kEcmp, kMpls };
inline constexpr std::size_t kHalKinds = 5;

/// What an operation does to an object.
enum class HalAction : std::uint8_t { kInstall, kDestroy, kReplace };

// Each of the functions below throws std::out_of_range for a value that is no `HalOperation`.

/// "install-vlan" and so on.
std::string_view OperationName(HalOperation operation);

HalKind KindOf(HalOperation operation);
HalAction ActionOf(HalOperation operation);

/// Whether the operation ends in a result; those of VRFs do not.
bool HasResult(HalOperation operation);

/// "vrf", "vlan", "host", "ecmp", "mpls".
std::string_view HalKindName(HalKind kind);

/// A request as it leaves the caller's thread: a copy that owns what it needs.
struct HalRequest {
  HalOperation operation = HalOperation::kInstallVrf;
  /// The database id that the message carries, 0 when it carries none; the VRF id for a VRF.
  std::uint32_t id = 0;
  /// The second id of the result: an MPLS message's `pass_through_value`, else 0.
  std::uint32_t secondary_id = 0;
  /// The serialised message.
  std::string payload;
  /// What the connection's or server's observer calls it; 0 where nobody observes.
  std::uint64_t number = 0;
};

/// The request without what was serialised: all that its result needs.
HalRequest WithoutPayload(const HalRequest& request);

/// Copies what `message`, the wrapper that fits `operation`, carries. A wrapper that carries no
/// message, or one of another kind, gives a request without a payload, which the HAL refuses.
HalRequest MakeRequest(HalOperation operation, const AppMessage& message);

/// Calls the result operation that belongs to the request, on the calling thread; VRF requests have
/// none and call nothing. `ReportedCode` tells the code meanwhile. Does not read the payload.
void ReportResult(HalL3MplsEncapsulationClientCallbackItf* results, const HalRequest& request,
                  HalReturnCode code);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_REQUEST_H_
