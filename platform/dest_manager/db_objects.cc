#include "dest_manager/db_objects.h"

#include "dest_mng.pb.h"

namespace dest_mng {

bool DbMplsObject::HasVcLabel() const {
  return static_cast<const DestMplsMessage&>(*record).has_vc_label();
}

}  // namespace dest_mng
