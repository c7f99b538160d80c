#include "zuskux/hai_l3_mpls_encapsulation.h"

namespace dest_mng {

HaiL3MplsEncapsulation::~HaiL3MplsEncapsulation() = default;

}  // namespace dest_mng
