#ifndef ZUSKUX_REFERENCE_HAL_HAL_CODE_H_
#define ZUSKUX_REFERENCE_HAL_HAL_CODE_H_

#include <boost/system/error_code.hpp>

#include "hal_client/hal_l3_mpls_encapsulation_return_code.h"

namespace reference {

using HalReturnCode = HalL3MplsEncapsulationReturnCode;

// The return codes of the reference HAL. The codes below 100 are the HAL's, the others the client's
// own, which no server sends.
inline constexpr HalReturnCode kHalSuccess{0};
/// A destination that the request refers to does not exist.
inline constexpr HalReturnCode kHalMissingReference{1};
/// A label above 2^20 - 1.
inline constexpr HalReturnCode kHalLabelOutOfRange{2};
/// An install of an id that exists with another content.
inline constexpr HalReturnCode kHalExists{3};
/// A destroy or replace of what is not there.
inline constexpr HalReturnCode kHalNotFound{4};
inline constexpr HalReturnCode kHalTableFull{5};
/// A request without the id of its object, or one that does not decode.
inline constexpr HalReturnCode kHalBadRequest{6};

/// The HAL server went away before it answered.
inline constexpr HalReturnCode kHalServerLost{100};
/// The client's queue had no room; the request was not sent.
inline constexpr HalReturnCode kHalQueueFull{101};
/// The HAL server did not answer in time.
inline constexpr HalReturnCode kHalDeadline{102};
/// The request is larger than the HAL server takes; it was not sent.
inline constexpr HalReturnCode kHalTooLarge{103};
/// There is no HAL server; the request was not sent.
inline constexpr HalReturnCode kHalNoServer{104};

/// Whether a server may answer with the code.
inline constexpr bool IsHalCode(HalReturnCode code) { return code < kHalServerLost; }

/// Gives the codes their texts.
const boost::system::error_category& HalCategory();

/// The code as an error of `HalCategory`; success converts to false.
boost::system::error_code MakeErrorCode(HalReturnCode code);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_CODE_H_
