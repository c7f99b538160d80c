// The functions of destination objects, and the log category.

#include "dest_manager/attribute.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"

zlog_category_t* g_trace = nullptr;

namespace db {

Attribute::~Attribute() = default;

}  // namespace db

namespace dest_mng {

bool DbMplsObject::HasVcLabel() const {
  return static_cast<const DestMplsMessage&>(*record).has_vc_label();
}

std::vector<unsigned int> EcmpData::NhopsDestId() const { return nhops; }

}  // namespace dest_mng
