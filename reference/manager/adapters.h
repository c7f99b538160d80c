#ifndef ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_
#define ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_

#include <cstdint>
#include <string>
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

/// Asks the HAL to remove it.
void SendDestroy(Destination* destination);

/// What the HAL is sent of an object.
struct HalMessage {
  /// The id under which the HAL keeps the object: the numeric one of a VRF.
  std::uint32_t id = 0;
  /// The serialised message.
  std::string payload;
};

/// The message of an install. Nothing is sent or traced, and there need be no HAL client.
HalMessage TranslateForHal(const Destination& destination);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ADAPTERS_H_
