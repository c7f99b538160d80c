#ifndef ZUSKUX_HAI_DEST_ECMP_H_
#define ZUSKUX_HAI_DEST_ECMP_H_

#include "dest_manager/ecmp_data.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Programs ECMP groups into the HAL. It has no data; make one wherever it is needed. Operations
/// run on the caller's thread and keep nothing; exceptions of the HAL client pass. The outcome of a
/// request arrives later at the callback object.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationEcmp {
 public:
  /// Asks the HAL to install the group, or to replace the members of an installed one.
  void InstallEcmp(const EcmpData& data);

  /// Asks the HAL to remove the group. The request carries the group's id only.
  void DestroyEcmp(const EcmpData& data);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_ECMP_H_
