#include "hai/attributes.h"

#include <boost/variant/get.hpp>

namespace dest_mng {

int ReadInteger(DbObject* object, const char* name) {
  // Deliberately inserts a missing attribute, so that later readers find an empty one.
  const db::Attribute& attribute = object->attributes[name];
  return attribute.present ? boost::get<int>(attribute.value) : 0;
}

}  // namespace dest_mng
