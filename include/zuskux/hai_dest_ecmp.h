#ifndef ZUSKUX_HAI_DEST_ECMP_H_
#define ZUSKUX_HAI_DEST_ECMP_H_

#include "dest_manager/ecmp_data.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Programs ECMP groups into the HAL. Has no data; make one wherever you need it. Operations run on
/// the caller's thread and keep nothing. Exceptions from the HAL client propagate. The outcome of a
/// request arrives later at the callback object.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationEcmp {
 public:
  /// Asks the HAL to install the group or to replace the members of an installed one.
  void InstallEcmp(const EcmpData& data);

  /// Asks the HAL to remove the group. The request carries only the group's id.
  void DestroyEcmp(const EcmpData& data);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_ECMP_H_
