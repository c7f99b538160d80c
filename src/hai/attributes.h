#ifndef ZUSKUX_HAI_ATTRIBUTES_H_
#define ZUSKUX_HAI_ATTRIBUTES_H_

#include "dest_manager/db_objects.h"

namespace dest_mng {

/// The attribute `name` of `object` as an integer; 0 if it is missing or not present. Adds a
/// missing one, empty. Throws `boost::bad_get` if a present one is not an integer.
int ReadInteger(DbObject* object, const char* name);

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_ATTRIBUTES_H_
