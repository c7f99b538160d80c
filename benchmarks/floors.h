#ifndef ZUSKUX_BENCHMARKS_FLOORS_H_
#define ZUSKUX_BENCHMARKS_FLOORS_H_

#include <string>

#include "base_encap_message.pb.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"

namespace bench {

// The least that a request of each kind can cost: the message that must be sent, built by hand with
// the look-ups that must be made, one level check, one call of the registered client, which is
// `IdleClient()`, and nothing else.
void FloorVlan(dest_mng::DbVlanObject* vlan);
void FloorHost(dest_mng::DbHostObject* host);
void FloorMpls(dest_mng::DbMplsObject* mpls);
void FloorEcmp(const dest_mng::EcmpData& ecmp);
void FloorVrf(const dest_mng::VrfData& vrf);

// The least that the full rendering of each kind can cost: its text, put together in a buffer on
// the stack with the platform's functions and lists that it must use, and one string of it.
// `printable` writes the hexadecimal numbers, and its address is shown.
std::string FloorRender(const encapsulation::VlanMessage& vlan,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::HostMessage& host,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::MplsMessage& mpls,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::EcmpMessage& ecmp,
                        const HalL3MplsEncapsulationPrintable& printable);
std::string FloorRender(const encapsulation::VrfMessage& vrf);

// The least that a result of each kind can cost: the log call, the record, one heap object, the
// framework's controller, the look-ups through it that must be made, one virtual call.
void FloorVlanResult(unsigned int db_id);
void FloorHostResult(unsigned int db_id);
void FloorEcmpResult(unsigned int db_id);
void FloorMplsResult(unsigned int db_id, unsigned int secondary_id);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_FLOORS_H_
