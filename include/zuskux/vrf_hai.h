#ifndef ZUSKUX_VRF_HAI_H_
#define ZUSKUX_VRF_HAI_H_

#include "dest_manager/vrf_data.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Programs the layer-3 ingress interfaces of VRFs into the HAL. Has no data; make one wherever you
/// need it. Operations run on the caller's thread and keep nothing. Exceptions from the HAL client
/// propagate. VRF requests have no outcome.
///
/// Register a HAL client before programming any VRF: unlike the other adapters, this one
/// deliberately does not check for a missing client.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationVrf {
 public:
  /// Asks the HAL to install the VRF. Returns 0.
  int InstallVrf(const VrfData& data);

  /// Asks the HAL to remove the VRF. Returns 0.
  int DestroyVrf(const VrfData& data);
};

}  // namespace dest_mng

#endif  // ZUSKUX_VRF_HAI_H_
