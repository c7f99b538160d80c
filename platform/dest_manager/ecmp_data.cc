#include "dest_manager/ecmp_data.h"

namespace dest_mng {

std::vector<unsigned int> EcmpData::NhopsDestId() const { return nhops; }

}  // namespace dest_mng
