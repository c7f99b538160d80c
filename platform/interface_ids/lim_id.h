#ifndef ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_
#define ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_

#include <cstddef>
#include <cstdint>

// The platform's logical interface ids (lim ids): 32-bit numbers in host byte order. Each function
// returns 0 when it knows the lim id and -1 when it does not. A rendering ignores that and shows
// what it finds in the result. Callable from any thread.

/// Gives the interface type of `lim_id`; leaves `type` as it is when it does not know the lim id.
__attribute__((visibility("default"))) int limid_to_type(std::uint32_t lim_id, std::uint8_t* type);

/// Gives the interface index of `lim_id`. Must always write `ifindex`, also for a lim id that it
/// does not know: callers do not preset it. The stand-in then writes 0.
__attribute__((visibility("default"))) int limid_to_ifindex(std::uint32_t lim_id,
                                                            std::uint32_t* ifindex);

/// Writes the interface name of `lim_id` into `name`, a buffer of `size` bytes, cut to fit and
/// terminated; leaves it as it is when it does not know the lim id. `flags` is 0.
__attribute__((visibility("default"))) int limid_to_intfname(std::uint32_t lim_id, char* name,
                                                             std::size_t size, int flags);

#endif  // ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_
