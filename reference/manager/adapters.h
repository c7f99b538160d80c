#ifndef ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_
#define ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_

#include <cstdint>
#include <vector>

#include "reference/manager/destination.h"
#include "reference/site/site.h"

namespace reference {

/// Gives the platform what it is to know of the interfaces, instead of what it knew. Before the
/// requests that name them.
void SetInterfaces(const std::vector<SiteInterface>& interfaces);

// One call of the library's adapter for the kind of `destination` each. A HAL client is registered.

/// Asks the HAL to install it.
void SendInstall(Destination* destination);

/// Asks the HAL to replace it; an ECMP group is installed again, which replaces it. Not for a VRF.
void SendReplace(Destination* destination);

/// Asks the HAL to remove it. Not for a VRF.
void SendDestroy(Destination* destination);

/// Asks the HAL to remove a VRF that it has under `vrf_id`.
void SendDestroyVrf(const dest_mng::VrfData& vrf, std::uint32_t vrf_id);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_
