#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_ADAPTERS_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_ADAPTERS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "reference/manager/engine/hai_object.h"
#include "reference/site/site.h"

namespace reference {

/// Replaces what the platform knows about the interfaces. Call before the requests that name them.
void SetInterfaces(const std::vector<SiteInterface>& interfaces);

// Each of these calls the library's adapter for the kind of `object`. A HAL client must be
// registered.

/// Asks the HAL to install it.
void SendInstall(HaiObject* object);

/// Asks the HAL to replace it. An ECMP group is installed again, which replaces it. Not for VRFs.
void SendReplace(HaiObject* object);

/// Asks the HAL to remove it.
void SendDestroy(HaiObject* object);

/// The message that the HAL gets for an object.
struct HalMessage {
  /// The id under which the HAL keeps the object; for a VRF, its number.
  std::uint32_t id = 0;
  /// The serialised message.
  std::string payload;
};

/// The message that an install would send. Sends and traces nothing, and needs no HAL client.
HalMessage TranslateForHal(const HaiObject& object);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_ADAPTERS_H_
