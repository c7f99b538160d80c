#ifndef ZUSKUX_REFERENCE_RECORD_RECORDED_SCHEMA_H_
#define ZUSKUX_REFERENCE_RECORD_RECORDED_SCHEMA_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

#include <memory>
#include <string>

#include "reference/hal/hal_request.h"
#include "reference/hal/message_fields.h"

namespace reference {

/// The schema of the HAL's messages that this program was built with: its files, each after those
/// that it imports.
google::protobuf::FileDescriptorSet BuiltInSchema();

/// The schema of the HAL's messages in a recording, which may be older or newer than this
/// program's. Used by one thread at a time.
class RecordedSchema {
 public:
  /// Throws `std::invalid_argument`, with the reason, if the files are not a valid schema.
  explicit RecordedSchema(const google::protobuf::FileDescriptorSet& files);

  /// Whether it is the schema of this program.
  bool built_in() const { return built_in_; }

  /// Whether this program's schema agrees with this one about everything that `payload` carries.
  bool IsUnderstood(HalKind kind, const std::string& payload) const;

  /// The fields of a message that is in this schema.
  MessageFields Fields(HalKind kind, const std::string& payload,
                       const InterfaceNames& interfaces) const;

  /// The message in protobuf's text form, in this schema: "VlanMessage{vlan_destination_id: 12}".
  std::string Text(HalKind kind, const std::string& payload) const;

 private:
  // Null if the payload does not decode.
  std::unique_ptr<google::protobuf::Message> Decode(HalKind kind, const std::string& payload) const;

  bool built_in_;
  google::protobuf::DescriptorPool pool_;
  // Creates the requested prototypes.
  mutable google::protobuf::DynamicMessageFactory factory_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_RECORDED_SCHEMA_H_
