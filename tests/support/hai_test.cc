#include "tests/support/hai_test.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdio>
#include <initializer_list>
#include <memory>
#include <stdexcept>

#include "base_encap_message.pb.h"
#include "dest_mng.pb.h"
#include "zuskux/hai.h"

namespace testing_support {

std::string Address(const void* object) {
  char text[19];
  std::snprintf(text, sizeof text, "0x%016lX", reinterpret_cast<unsigned long>(object));
  return text;
}

std::string Frame(std::string_view payload) {
  return Frame(payload, static_cast<std::uint32_t>(payload.size()));
}

std::string Frame(std::string_view payload, std::uint32_t length) {
  std::string frame = "HEAD";
  for (const int shift : {24, 16, 8, 0}) frame += static_cast<char>(length >> shift);
  return frame.append(payload);
}

std::ptrdiff_t LiveWithoutEvents() {
  std::vector<std::string>().swap(Events());
  std::vector<std::string>().swap(RawRecords());
  return LiveAllocations();
}

namespace {

void SetEveryField(google::protobuf::Message* message) {
  using google::protobuf::FieldDescriptor;
  const google::protobuf::Reflection& reflection = *message->GetReflection();
  const google::protobuf::Descriptor& descriptor = *message->GetDescriptor();
  for (int index = 0; index < descriptor.field_count(); ++index) {
    const FieldDescriptor* const field = descriptor.field(index);
    const bool repeated = field->is_repeated();
    switch (field->cpp_type()) {
      case FieldDescriptor::CPPTYPE_STRING:
        repeated ? reflection.AddString(message, field, "text")
                 : reflection.SetString(message, field, "text");
        break;
      case FieldDescriptor::CPPTYPE_ENUM:
        repeated ? reflection.AddEnumValue(message, field, 1)
                 : reflection.SetEnumValue(message, field, 1);
        break;
      default:
        repeated ? reflection.AddUInt32(message, field, 1)
                 : reflection.SetUInt32(message, field, 1);
    }
  }
}

// The first use of a schema or an exception allocates memory that the libraries keep. Tests that
// count allocations start after that, even when they run alone.
void WarmUp() {
  static const bool done = [] {
    for (const google::protobuf::Message* const message :
         std::initializer_list<const google::protobuf::Message*>{
             &encapsulation::VlanMessage::default_instance(),
             &dest_mng::DestVlanMessage::default_instance()}) {
      const google::protobuf::FileDescriptor* const file = message->GetDescriptor()->file();
      for (int index = 0; index < file->message_type_count(); ++index) {
        const std::unique_ptr<google::protobuf::Message> full(
            google::protobuf::MessageFactory::generated_factory()
                ->GetPrototype(file->message_type(index))
                ->New());
        SetEveryField(full.get());
        EXPECT_NE(full->ShortDebugString(), "");
      }
    }
    EXPECT_THROW(throw std::runtime_error("warm-up"), std::runtime_error);
    return true;
  }();
  EXPECT_TRUE(done);
}

}  // namespace

HaiTest::HaiTest() {
  WarmUp();
  dest_mng::Hai::GetInstance()->set_client(&client_);
  SetTrace(true);
  SetLogHook(nullptr);
  SetLevelAnswer(nullptr);
  SetHandlerHook(nullptr);
  SetMessageHook(nullptr);
  SetConstructionHook(nullptr);
  WatchDeletion(nullptr);
  InterfaceIds() = FakeInterfaceIds{};
  Events().clear();
  RawRecords().clear();
}

HaiTest::~HaiTest() { WithoutClient(); }

void HaiTest::WithoutClient() { dest_mng::Hai::GetInstance()->set_client(nullptr); }

}  // namespace testing_support
