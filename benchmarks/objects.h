#ifndef ZUSKUX_BENCHMARKS_OBJECTS_H_
#define ZUSKUX_BENCHMARKS_OBJECTS_H_

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"

namespace bench {

// One typical destination of each kind, with every field set.
dest_mng::DbVlanObject MakeVlan();
dest_mng::DbHostObject MakeHost();
dest_mng::DbMplsObject MakeMpls();
dest_mng::EcmpData MakeEcmp();

/// A HAL client that accepts every request and does nothing.
HalL3MplsEncapsulationClient& IdleClient();

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_OBJECTS_H_
