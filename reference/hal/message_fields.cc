#include "reference/hal/message_fields.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/unknown_field_set.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/text/printable.h"

namespace reference {
namespace {

namespace pb = google::protobuf;
using pb::FieldDescriptor;

constexpr std::string_view kLimId = "lim_id";
constexpr std::array<std::string_view, 2> kMacFields = {"source_mac_address", "dest_mac"};
constexpr std::size_t kMacSize = 6;
constexpr const char* kUndecodable = "undecodable";

std::string MacText(const std::string& bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xfU];
  }
  return text;
}

MessageFields TextValue(const FieldDescriptor& field, const std::string& value) {
  const bool is_mac =
      std::find(kMacFields.begin(), kMacFields.end(), field.name()) != kMacFields.end();
  if (is_mac && value.size() == kMacSize) return MacText(value);
  return Printable(value);
}

// The value of a field; for a repeated one, its `index`-th value.
MessageFields Value(const pb::Message& message, const FieldDescriptor& field, int index) {
  const pb::Reflection& reflection = *message.GetReflection();
  const bool repeated = field.is_repeated();
  std::string scratch;
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_UINT32:
      return repeated ? reflection.GetRepeatedUInt32(message, &field, index)
                      : reflection.GetUInt32(message, &field);
    case FieldDescriptor::CPPTYPE_ENUM:
      return (repeated ? reflection.GetRepeatedEnum(message, &field, index)
                       : reflection.GetEnum(message, &field))
          ->name();
    case FieldDescriptor::CPPTYPE_STRING:
      return TextValue(
          field, repeated ? reflection.GetRepeatedStringReference(message, &field, index, &scratch)
                          : reflection.GetStringReference(message, &field, &scratch));
    default:
      // Only a recording of another version has such fields.
      pb::TextFormat::PrintFieldValueToString(message, &field, repeated ? index : -1, &scratch);
      return scratch;
  }
}

void AddLimId(const std::string& bytes, const InterfaceNames& interfaces, MessageFields* fields) {
  std::uint32_t lim_id = 0;
  std::memcpy(&lim_id, bytes.data(), sizeof lim_id);
  const auto name = interfaces.find(lim_id);
  if (name == interfaces.end()) {
    (*fields)[std::string(kLimId)] = lim_id;
  } else {
    (*fields)["interface"] = name->second;
  }
}

void AddField(const pb::Message& message, const FieldDescriptor& field,
              const InterfaceNames& interfaces, MessageFields* fields) {
  const pb::Reflection& reflection = *message.GetReflection();
  if (field.is_repeated()) {
    MessageFields& values = (*fields)[field.name()] = MessageFields::array();
    for (int i = 0; i < reflection.FieldSize(message, &field); ++i) {
      values.push_back(Value(message, field, i));
    }
    return;
  }
  if (field.name() == kLimId && field.cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
    std::string scratch;
    const std::string& bytes = reflection.GetStringReference(message, &field, &scratch);
    if (bytes.size() >= sizeof(std::uint32_t)) return AddLimId(bytes, interfaces, fields);
  }
  (*fields)[field.name()] = Value(message, field, 0);
}

void AddUnknownFields(const pb::UnknownFieldSet& unknown, MessageFields* fields) {
  for (int i = 0; i < unknown.field_count(); ++i) {
    const pb::UnknownField& field = unknown.field(i);
    MessageFields& values = (*fields)['#' + std::to_string(field.number())];
    switch (field.type()) {
      case pb::UnknownField::TYPE_VARINT:
        values.push_back(field.varint());
        break;
      case pb::UnknownField::TYPE_FIXED32:
        values.push_back(field.fixed32());
        break;
      case pb::UnknownField::TYPE_FIXED64:
        values.push_back(field.fixed64());
        break;
      case pb::UnknownField::TYPE_LENGTH_DELIMITED:
        values.push_back(Printable(field.length_delimited()));
        break;
      case pb::UnknownField::TYPE_GROUP:
        values.push_back("group");
        break;
    }
  }
}

// A word such as eth0 or 02:00:00:00:01:0a unchanged, other text in quotes.
std::string WordText(const std::string& text) {
  const bool is_word = !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return c < 0x80 &&
           (std::isalnum(c) != 0 || c == ':' || c == '.' || c == '_' || c == '-' || c == '/');
  });
  return is_word ? text : Quote(text);
}

std::string ValueText(const MessageFields& value) {
  if (value.is_string()) return WordText(value.get_ref<const std::string&>());
  if (!value.is_array()) return value.dump();
  if (value.size() == 1) return ValueText(value.front());
  std::string text = "[";
  for (const MessageFields& element : value) {
    if (text.size() > 1) text += ", ";
    text += ValueText(element);
  }
  return text + ']';
}

}  // namespace

MessageFields FieldsOf(const pb::Message& message, const InterfaceNames& interfaces) {
  MessageFields fields = MessageFields::object();
  std::vector<const FieldDescriptor*> present;
  message.GetReflection()->ListFields(message, &present);
  for (const FieldDescriptor* const field : present) {
    AddField(message, *field, interfaces, &fields);
  }
  AddUnknownFields(message.GetReflection()->GetUnknownFields(message), &fields);
  return fields;
}

MessageFields FieldsOf(HalKind kind, const std::string& payload, const InterfaceNames& interfaces) {
  return VisitKind(kind, [&](auto row) {
    typename decltype(row)::Message message;
    return message.ParseFromString(payload) ? FieldsOf(message, interfaces)
                                            : UndecodableFields(payload);
  });
}

MessageFields UndecodableFields(const std::string& payload) {
  MessageFields fields;
  fields[kUndecodable] = Printable(payload);
  return fields;
}

std::string FieldsText(const MessageFields& fields) {
  std::string text;
  for (const auto& [name, value] : fields.items()) {
    if (!text.empty()) text += ' ';
    text.append(name).append(": ").append(ValueText(value));
  }
  return text;
}

MessageFields ChangedFields(const MessageFields& from, const MessageFields& to) {
  MessageFields changes = MessageFields::object();
  const auto at = [](const MessageFields& fields, const std::string& name) {
    return fields.contains(name) ? fields[name] : MessageFields();
  };
  for (const auto& [name, value] : from.items()) {
    MessageFields other = at(to, name);
    if (value != other) changes[name] = {{"from", value}, {"to", std::move(other)}};
  }
  for (const auto& [name, value] : to.items()) {
    if (!from.contains(name)) changes[name] = {{"from", nullptr}, {"to", value}};
  }
  return changes;
}

std::string ChangesText(const MessageFields& changes) {
  // Two encodings of one message have no field that differs.
  if (changes.empty()) return "the same fields, encoded differently";
  const auto side = [](const MessageFields& value) {
    return value.is_null() ? "none" : ValueText(value);
  };
  std::string text;
  for (const auto& [name, change] : changes.items()) {
    if (!text.empty()) text += ", ";
    text.append(name).append(": ").append(side(change["from"]));
    text.append(" -> ").append(side(change["to"]));
  }
  return text;
}

void DumpEntries(const TableEntries& entries, std::ostream* out) {
  for (const auto& [key, payload] : entries) {
    *out << HalKindName(key.first) << ':' << key.second << ' '
         << FieldsText(FieldsOf(key.first, payload, {})) << '\n';
  }
}

}  // namespace reference
