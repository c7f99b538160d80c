#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_VRF_DATA_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_VRF_DATA_H_

#include <cstdint>

namespace dest_mng {

/// The part of a VRF that its layer-3 ingress interface needs. Owned by the destination manager.
///
/// The order of the members is part of the binary interface.
struct VrfData {
  /// The VRF's number, by which the HAL knows it.
  std::uint32_t vrf_id = 0;
  /// Database id of the VRF object; appears only in traces.
  std::uint32_t db_id = 0;
};

}  // namespace dest_mng

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_VRF_DATA_H_
