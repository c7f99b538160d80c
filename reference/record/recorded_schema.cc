#include "reference/record/recorded_schema.h"

#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace reference {
namespace {

namespace pb = google::protobuf;

const pb::Message& Prototype(HalKind kind) {
  return *VisitKind(kind, [](auto row) -> const pb::Message* {
    return &decltype(row)::Message::default_instance();
  });
}

void AddFile(const pb::FileDescriptor& file, pb::FileDescriptorSet* files) {
  for (int index = 0; index < file.dependency_count(); ++index) {
    AddFile(*file.dependency(index), files);
  }
  file.CopyTo(files->add_file());
}

class FirstError : public pb::DescriptorPool::ErrorCollector {
 public:
  void AddError(const std::string& filename, const std::string& element_name,
                const pb::Message* /*descriptor*/, ErrorLocation /*location*/,
                const std::string& message) override {
    if (text_.empty()) text_.append(filename).append(": ").append(element_name + ": " + message);
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

bool SameField(const pb::FieldDescriptor& a, const pb::FieldDescriptor& b) {
  pb::FieldDescriptorProto a_proto;
  pb::FieldDescriptorProto b_proto;
  a.CopyTo(&a_proto);
  b.CopyTo(&b_proto);
  return a_proto.SerializeAsString() == b_proto.SerializeAsString();
}

}  // namespace

pb::FileDescriptorSet BuiltInSchema() {
  pb::FileDescriptorSet files;
  AddFile(*Prototype(kAllHalKinds.front()).GetDescriptor()->file(), &files);
  return files;
}

RecordedSchema::RecordedSchema(const pb::FileDescriptorSet& files)
    : built_in_(files.SerializeAsString() == BuiltInSchema().SerializeAsString()),
      factory_(&pool_) {
  for (const pb::FileDescriptorProto& file : files.file()) {
    FirstError error;
    if (pool_.BuildFileCollectingErrors(file, &error) == nullptr) {
      throw std::invalid_argument(error.text());
    }
  }
}

std::unique_ptr<pb::Message> RecordedSchema::Decode(HalKind kind,
                                                    const std::string& payload) const {
  const pb::Descriptor* const type =
      pool_.FindMessageTypeByName(Prototype(kind).GetDescriptor()->full_name());
  if (type == nullptr) return nullptr;
  std::unique_ptr<pb::Message> message(factory_.GetPrototype(type)->New());
  if (!message->ParsePartialFromString(payload)) return nullptr;
  return message;
}

bool RecordedSchema::IsUnderstood(HalKind kind, const std::string& payload) const {
  if (built_in_) return true;
  const auto recorded = Decode(kind, payload);
  const std::unique_ptr<pb::Message> built(Prototype(kind).New());
  if (recorded == nullptr || !built->ParsePartialFromString(payload)) return false;
  // An enumeration value that only the recording's schema has ends up among the unknown fields.
  if (!built->GetReflection()->GetUnknownFields(*built).empty()) return false;

  std::vector<const pb::FieldDescriptor*> fields;
  recorded->GetReflection()->ListFields(*recorded, &fields);
  return std::all_of(fields.begin(), fields.end(), [&](const pb::FieldDescriptor* field) {
    const auto* const known = built->GetDescriptor()->FindFieldByNumber(field->number());
    return known != nullptr && SameField(*known, *field);
  });
}

MessageFields RecordedSchema::Fields(HalKind kind, const std::string& payload,
                                     const InterfaceNames& interfaces) const {
  const auto message = Decode(kind, payload);
  return message == nullptr ? UndecodableFields(payload) : FieldsOf(*message, interfaces);
}

std::string RecordedSchema::Text(HalKind kind, const std::string& payload) const {
  const std::string name = Prototype(kind).GetDescriptor()->name();
  const auto message = Decode(kind, payload);
  if (message == nullptr) {
    return name + "{" + std::to_string(payload.size()) + " bytes that do not decode}";
  }
  return name + "{" + message->ShortDebugString() + "}";
}

}  // namespace reference
