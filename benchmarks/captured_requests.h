#ifndef ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_
#define ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_

#include <cstddef>
#include <vector>

#include "reference/hal/hal_request.h"

namespace bench {

/// How many requests may be without an answer; when half of them are answered, more are sent. What
/// the socket client does, and all that it is compared with.
inline constexpr std::size_t kWindow = 4096;

/// What the library sends for the objects of `MakeDestinations(objects)`, in the order of
/// `ForEach`.
std::vector<reference::HalRequest> CaptureRequests(std::size_t objects);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CAPTURED_REQUESTS_H_
