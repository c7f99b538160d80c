#ifndef ZUSKUX_BENCHMARKS_TYPICAL_REQUESTS_H_
#define ZUSKUX_BENCHMARKS_TYPICAL_REQUESTS_H_

#include <cstddef>
#include <vector>

#include "reference/hal/hal_request.h"

namespace bench {

/// Number of requests that `TypicalRequests` makes for each block.
inline constexpr std::size_t kBlock = 100;

/// Installs, in blocks of the same make-up: 1 VRF, 8 VLANs, 60 hosts, 18 MPLS destinations and 13
/// ECMP groups, as in a generated site. No request refers to a later one, and all can be installed.
std::vector<reference::HalRequest> TypicalRequests(std::size_t blocks);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_TYPICAL_REQUESTS_H_
