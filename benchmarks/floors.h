#ifndef ZUSKUX_BENCHMARKS_FLOORS_H_
#define ZUSKUX_BENCHMARKS_FLOORS_H_

#include <string>

#include "base_encap_message.pb.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"

namespace bench {

// A lower bound for a request of each kind: builds the required message by hand with the required
// look-ups, checks the level once, calls the registered client, which is `IdleClient()`, once, and
// does nothing else.
void FloorVlan(dest_mng::DbVlanObject* vlan);
void FloorHost(dest_mng::DbHostObject* host);
void FloorMpls(dest_mng::DbMplsObject* mpls);
void FloorEcmp(const dest_mng::EcmpData& ecmp);
void FloorVrf(const dest_mng::VrfData& vrf);

// A lower bound for the full rendering of each kind: builds the text in a stack buffer with the
// platform functions and lists that it must use, and makes one string of it. `printable` formats
// the hexadecimal numbers, and its address appears in the text.
std::string FloorRender(const encapsulation::VlanMessage& vlan,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::HostMessage& host,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::MplsMessage& mpls,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::EcmpMessage& ecmp,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::VrfMessage& vrf);

// A lower bound for a result of each kind: the log call, the record, one heap object, the
// framework's controller, the required look-ups through it, one virtual call.
void FloorVlanResult(unsigned int db_id);
void FloorHostResult(unsigned int db_id);
void FloorEcmpResult(unsigned int db_id);
void FloorMplsResult(unsigned int db_id, unsigned int secondary_id);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_FLOORS_H_
