// The functions of destination objects, called on the thread that calls the adapter, and the log
// category.

#include "dest_manager/attribute.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"

// The host program must set it once, before the first request, and must leave it as it is while
// requests or results are under way.
zlog_category_t* g_trace = nullptr;

namespace db {

// Must not throw. Reading an attribute that an object lacks makes and destroys one.
Attribute::~Attribute() = default;

}  // namespace db

namespace dest_mng {

// Must say whether it is a virtual circuit, and must not change the object. The library then takes
// the tunnel's id from the record and does not read "vlan_dest_id". May throw; the exception
// reaches the adapter's caller, and the message under construction leaks.
bool DbMplsObject::HasVcLabel() const {
  return static_cast<const DestMplsMessage&>(*record).has_vc_label();
}

// Must return the group's members in its order, repetitions included. Not called for a removal. May
// throw; the exception reaches the adapter's caller.
std::vector<unsigned int> EcmpData::NhopsDestId() const { return nhops; }

}  // namespace dest_mng
