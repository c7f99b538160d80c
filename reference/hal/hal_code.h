#ifndef ZUSKUX_REFERENCE_HAL_HAL_CODE_H_
#define ZUSKUX_REFERENCE_HAL_HAL_CODE_H_

#include <boost/system/error_code.hpp>
#include <string>
#include <string_view>

#include "hal_client/hal_l3_mpls_encapsulation_return_code.h"

namespace reference {

using HalReturnCode = HalL3MplsEncapsulationReturnCode;

// The return codes of the reference HAL. The HAL returns those below 100. The others come from the
// client; no server sends them.
inline constexpr HalReturnCode kHalSuccess{0};
/// The request refers to a destination that does not exist.
inline constexpr HalReturnCode kHalMissingReference{1};
/// A label above 2^20 - 1.
inline constexpr HalReturnCode kHalLabelOutOfRange{2};
/// An install of an existing id with different content.
inline constexpr HalReturnCode kHalExists{3};
/// A destroy or replace of something that does not exist.
inline constexpr HalReturnCode kHalNotFound{4};
inline constexpr HalReturnCode kHalTableFull{5};
/// A request without an object id, or one that does not decode.
inline constexpr HalReturnCode kHalBadRequest{6};
/// The destination's logical interface is unknown or has no device. Only with a data plane.
inline constexpr HalReturnCode kHalNoInterface{7};
/// The data plane cannot represent the content.
inline constexpr HalReturnCode kHalNotSupported{8};
/// The kernel behind the HAL has refused the change.
inline constexpr HalReturnCode kHalKernelRefused{9};

/// The HAL server went away before answering.
inline constexpr HalReturnCode kHalServerLost{100};
/// The client's queue was full; the request was not sent.
inline constexpr HalReturnCode kHalQueueFull{101};
/// The HAL server did not answer in time.
inline constexpr HalReturnCode kHalDeadline{102};
/// The request exceeds the HAL server's limit; it was not sent.
inline constexpr HalReturnCode kHalTooLarge{103};
/// There is no HAL server; the request was not sent.
inline constexpr HalReturnCode kHalNoServer{104};

/// Whether a server may answer with this code.
inline constexpr bool IsHalCode(HalReturnCode code) { return code < kHalServerLost; }

/// The category that provides the codes' texts.
const boost::system::error_category& HalCategory();

/// The code as an error of `HalCategory`; success converts to false.
boost::system::error_code MakeErrorCode(HalReturnCode code);

/// The code's text and, unless it is empty, the HAL's reason: "refused by the kernel: Invalid
/// nexthop id".
std::string OutcomeText(HalReturnCode code, std::string_view reason);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_CODE_H_
