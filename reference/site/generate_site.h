#ifndef ZUSKUX_REFERENCE_SITE_GENERATE_SITE_H_
#define ZUSKUX_REFERENCE_SITE_GENERATE_SITE_H_

#include <cstddef>
#include <cstdint>

#include "reference/site/site.h"

namespace reference {

/// The maximum number of objects in a generated site.
inline constexpr std::size_t kMaxGeneratedObjects = 10'000'000;

/// A valid pseudo-random site of `objects` objects (VRFs and destinations, not counting
/// interfaces), at most kMaxGeneratedObjects. The same arguments give the same site on every
/// machine.
///
/// Of 100 objects, about 1 is a VRF, 8 are VLANs, 60 hosts, 6 tunnels, 12 virtual circuits and 13
/// ECMP groups. A site that is not empty has a VRF.
Site GenerateSite(std::uint32_t seed, std::size_t objects);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_GENERATE_SITE_H_
