#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_DB_OBJECTS_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_DB_OBJECTS_H_

#include <google/protobuf/message.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dest_manager/attribute.h"

namespace dest_mng {

/// What every destination in the object database has. The adapters get its address as an untyped
/// pointer, made from exactly the kind's class (`DbVlanObject*` and so on).
///
/// Owned by the destination manager. Used by one thread at a time: reading an attribute that does
/// not exist adds it.
///
/// The order of the members is part of the binary interface.
struct DbObject {
  /// Attributes that are lists of values, by name.
  std::map<std::string, std::pair<db::AttributeType, std::vector<db::Attribute>>> attribute_lists;
  /// The settings of the destination: the kind's `Dest...Message`. Never null in a finished object.
  std::unique_ptr<google::protobuf::Message> record;
  /// The key in `attribute_lists` of the destination's list of values.
  std::string list_attribute_name;
  /// Attributes that are single values, by name.
  std::map<std::string, db::Attribute> attributes;
};

/// A VLAN destination; its record is a `DestVlanMessage`.
class DbVlanObject : public DbObject {};

/// A host (next hop) destination; its record is a `DestHostMessage`.
class DbHostObject : public DbObject {};

/// An MPLS destination; its record is a `DestMplsMessage`.
class __attribute__((visibility("default"))) DbMplsObject : public DbObject {
 public:
  /// Whether this is a virtual circuit: one that carries a VC label and rides on a tunnel
  /// destination instead of a VLAN destination.
  bool HasVcLabel() const;
};

}  // namespace dest_mng

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_DB_OBJECTS_H_
