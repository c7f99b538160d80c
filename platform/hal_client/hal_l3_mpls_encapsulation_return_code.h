#ifndef ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_RETURN_CODE_H_
#define ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_RETURN_CODE_H_

#include <cstdint>

/// Outcome of a HAL request: 0 is success, every other value is an error. The fixed underlying type
/// makes any 32-bit code a defined value. The HAL client library names the codes.
enum class HalL3MplsEncapsulationReturnCode : std::uint32_t {};

#endif  // ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_RETURN_CODE_H_
