#ifndef ZUSKUX_PLATFORM_HAL_CLIENT_HAL_MPLS_CAPABILITIES_H_
#define ZUSKUX_PLATFORM_HAL_CLIENT_HAL_MPLS_CAPABILITIES_H_

#include <cstdint>

/// The HAL client library's MPLS capabilities. The fixed underlying type makes any value from the
/// wire a defined one.
enum en_HalMplsCapabilities : std::int32_t {
  HAL_MPLS_CAPABILITY_NONE = 0,
  HAL_MPLS_CAPABILITY_PROTECTION = 1,
  HAL_MPLS_CAPABILITY_SWAP = 2,
  HAL_MPLS_CAPABILITY_FORWARD = 3,
  HAL_MPLS_CAPABILITY_PUSH = 4,
  HAL_MPLS_CAPABILITY_VC_LABEL = 5,
};

#endif  // ZUSKUX_PLATFORM_HAL_CLIENT_HAL_MPLS_CAPABILITIES_H_
