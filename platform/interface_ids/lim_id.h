#ifndef ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_
#define ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_

#include <cstddef>
#include <cstdint>

// The platform's logical interface ids (lim ids): 32-bit numbers in host byte order. Each function
// returns 0 for a known lim id and -1 for an unknown one. A rendering ignores the return value and
// shows what the output parameter holds. Callable from any thread.

/// Sets `type` to the interface type of `lim_id`; leaves it alone for an unknown lim id.
__attribute__((visibility("default"))) int limid_to_type(std::uint32_t lim_id, std::uint8_t* type);

/// Sets `ifindex` to the interface index of `lim_id`. Must always write it, even for an unknown lim
/// id: callers do not initialise it. The stand-in then writes 0.
__attribute__((visibility("default"))) int limid_to_ifindex(std::uint32_t lim_id,
                                                            std::uint32_t* ifindex);

/// Writes the interface name of `lim_id` into `name`, a buffer of `size` bytes, truncated to fit
/// and terminated; leaves it alone for an unknown lim id. `flags` is 0.
__attribute__((visibility("default"))) int limid_to_intfname(std::uint32_t lim_id, char* name,
                                                             std::size_t size, int flags);

#endif  // ZUSKUX_PLATFORM_INTERFACE_IDS_LIM_ID_H_
