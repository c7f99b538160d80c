#include "dest_manager/attribute.h"

namespace db {

Attribute::~Attribute() = default;

}  // namespace db
