#include "zuskux/dest_app_messages.h"

#include <memory>
#include <string>
#include <typeinfo>

#include "dest_mng.pb.h"
#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using testing_support::Events;
using testing_support::GuardedBytes;
using testing_support::LiveWithoutEvents;
using testing_support::WatchDeletion;

template <typename MessageType, typename RecordType>
struct Kind {
  using Message = MessageType;
  using Record = RecordType;
};

using Kinds = ::testing::Types<
    Kind<AppDestMessage, DestVlanMessage>, Kind<AppDestVlanMessage, DestVlanMessage>,
    Kind<AppDestHostMessage, DestHostMessage>, Kind<AppDestEcmpMessage, DestEcmpRouteMessage>,
    Kind<AppDestMplsMessage, DestMplsMessage>, Kind<AppVrfMessage, VrfMessage>>;

struct KindNames {
  template <typename K>
  static std::string GetName(int /*index*/) {
    return testing_support::ClassName<typename K::Message>();
  }
};

template <typename K>
class DestAppMessageTest : public testing_support::HaiTest {};

TYPED_TEST_SUITE(DestAppMessageTest, Kinds, KindNames);

TYPED_TEST(DestAppMessageTest, CarriesTheRecordItIsGiven) {
  typename TypeParam::Record record;
  const typename TypeParam::Message message(&record);

  EXPECT_EQ(message.message(), &record);
}

TYPED_TEST(DestAppMessageTest, HasItsOwnRunTimeType) {
  typename TypeParam::Record record;
  const std::unique_ptr<AppDestMessage> message =
      std::make_unique<typename TypeParam::Message>(&record);

  const AppDestMessage& tested = *message;
  EXPECT_EQ(typeid(tested), typeid(typename TypeParam::Message));
}

TYPED_TEST(DestAppMessageTest, LeavesItsRecordIntact) {
  auto record = std::make_unique<typename TypeParam::Record>();
  record->set_db_id(7);
  record->set_name(std::string(100, 'n'));
  WatchDeletion(record.get(), "record freed");
  WatchDeletion(record->name().data(), "name freed");
  { const typename TypeParam::Message message(record.get()); }

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(record->db_id(), 7U);
  EXPECT_EQ(record->name(), std::string(100, 'n'));
  record->set_db_id(8);
  EXPECT_EQ(record->db_id(), 8U);
}

TYPED_TEST(DestAppMessageTest, IsFreedCompletelyThroughTheBase) {
  typename TypeParam::Record record;
  const auto before = LiveWithoutEvents();
  AppMessage* message = new typename TypeParam::Message(&record);
  WatchDeletion(message, "message freed");
  delete message;

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed", "message freed"));
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TYPED_TEST(DestAppMessageTest, ReadsNoBuffer) {
  typename TypeParam::Record record;
  record.set_db_id(7);
  typename TypeParam::Message message(&record);
  const std::string before = record.SerializeAsString();
  const GuardedBytes nothing("");
  std::string valid = testing_support::Frame(before);

  EXPECT_FALSE(message.Unserialize(nullptr));
  EXPECT_FALSE(message.Unserialize(nothing.data()));
  EXPECT_FALSE(message.Unserialize(valid.data()));

  EXPECT_EQ(message.message(), &record);
  EXPECT_EQ(record.SerializeAsString(), before);
  EXPECT_EQ(valid, testing_support::Frame(before));
}

}  // namespace
}  // namespace dest_mng
