#ifndef ZUSKUX_REFERENCE_HAL_MESSAGE_FIELDS_H_
#define ZUSKUX_REFERENCE_HAL_MESSAGE_FIELDS_H_

#include <google/protobuf/message.h>

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>

#include "reference/hal/hal_tables.h"

namespace reference {

// The HAL's messages as people and scripts read them. All programs show messages this way, except
// in traces.

/// The names of logical interfaces, by lim id.
using InterfaceNames = std::map<std::uint32_t, std::string>;

/// The fields of a message by name, as a JSON object. MAC addresses look like "02:00:00:00:01:0a".
/// "lim_id" is a number or, for an interface in the names, "interface" is its name. Repeated fields
/// are arrays. Unknown fields have their numbers as names: "#9".
using MessageFields = nlohmann::ordered_json;

MessageFields FieldsOf(const google::protobuf::Message& message, const InterfaceNames& interfaces);

/// The same for a serialised message of the kind. If it does not decode, "undecodable" holds its
/// bytes.
MessageFields FieldsOf(HalKind kind, const std::string& payload, const InterfaceNames& interfaces);

/// The same for a payload that does not decode.
MessageFields UndecodableFields(const std::string& payload);

/// One line: "interface: eth0 mtu: 1500 labels: [16, 17]". Safe to print.
std::string FieldsText(const MessageFields& fields);

/// The fields that differ, each an object with "from" and "to"; null where the field is missing. An
/// empty object if none differs.
MessageFields ChangedFields(const MessageFields& from, const MessageFields& to);

/// One line for a result of `ChangedFields`: "mtu: 1500 -> 9000, vrf: none -> 5". Safe to print.
std::string ChangesText(const MessageFields& changes);

/// Writes one line per entry, with its kind, id and fields, by kind and id.
void DumpEntries(const TableEntries& entries, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_MESSAGE_FIELDS_H_
