#ifndef ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_
#define ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_

#include <cstddef>
#include <vector>

#include "reference/hal/hal_request.h"

namespace bench {

/// The maximum number of requests in flight. Once half of them have been answered, more are sent.
/// The socket client and all transports that it is compared with do this.
inline constexpr std::size_t kWindow = 4096;

/// The requests that the library sends for the objects of `MakeDestinations(objects)`, in the order
/// of `ForEach`.
std::vector<reference::HalRequest> CaptureRequests(std::size_t objects);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_
