#include "hai/attributes.h"

#include <boost/variant/get.hpp>

namespace dest_mng {

int ReadInteger(DbObject* object, const char* name) {
  // Insert-on-miss is required: later readers find the empty attribute.
  const db::Attribute& attribute = object->attributes[name];
  return attribute.present ? boost::get<int>(attribute.value) : 0;
}

}  // namespace dest_mng
