// The functions of destination objects, which run on the thread that calls the adapter, and the log
// category.

#include "dest_manager/attribute.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"

// The host program must set this once, before the first request, and must not change it while
// requests or results are in flight.
zlog_category_t* g_trace = nullptr;

namespace db {

// Must not throw. Reading a missing attribute creates and destroys one.
Attribute::~Attribute() = default;

}  // namespace db

namespace dest_mng {

// Must return whether this is a virtual circuit and must not change the object. For a circuit, the
// library takes the tunnel's id from the record and does not read "vlan_dest_id". May throw; the
// exception propagates to the adapter's caller, and the message under construction leaks.
bool DbMplsObject::HasVcLabel() const {
  return static_cast<const DestMplsMessage&>(*record).has_vc_label();
}

// Must return the group's members in order, repetitions included. Not called for a removal. May
// throw; the exception propagates to the adapter's caller.
std::vector<unsigned int> EcmpData::NhopsDestId() const { return nhops; }

}  // namespace dest_mng
