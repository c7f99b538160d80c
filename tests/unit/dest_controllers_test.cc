#include "zuskux/dest_controllers.h"

#include <memory>
#include <string>
#include <typeinfo>

#include "app_framework/strategy.h"
#include "dest_mng.pb.h"
#include "tests/support/hai_test.h"
#include "zuskux/dest_app_messages.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using testing_support::AddEvent;
using testing_support::Events;
using testing_support::WatchDeletion;

class RecordingStrategy : public app_strategy::Strategy {
 public:
  void Execute() override { AddEvent("strategy executed"); }
};

template <typename ControllerType, typename AppMessageType, typename RecordType>
struct Kind {
  using Controller = ControllerType;
  using Message = AppMessageType;
  using Record = RecordType;
};

using Kinds =
    ::testing::Types<Kind<MessageControllerVlan, AppDestVlanMessage, DestVlanMessage>,
                     Kind<MessageControllerHost, AppDestHostMessage, DestHostMessage>,
                     Kind<MessageControllerEcmp, AppDestEcmpMessage, DestEcmpRouteMessage>,
                     Kind<MessageControllerMpls, AppDestMplsMessage, DestMplsMessage>,
                     Kind<VrfController, AppVrfMessage, VrfMessage>>;

struct KindNames {
  template <typename K>
  static std::string GetName(int /*index*/) {
    return testing_support::ClassName<typename K::Controller>();
  }
};

template <typename K>
class DestControllerTest : public testing_support::HaiTest {};

TYPED_TEST_SUITE(DestControllerTest, Kinds, KindNames);

TYPED_TEST(DestControllerTest, ReturnsItsMessage) {
  typename TypeParam::Record record;
  auto* const message = new typename TypeParam::Message(&record);
  const typename TypeParam::Controller controller(message);

  EXPECT_EQ(controller.message(), message);
  EXPECT_EQ(controller.message()->message(), &record);
}

TYPED_TEST(DestControllerTest, HasItsOwnRunTimeType) {
  typename TypeParam::Record record;
  const std::unique_ptr<msg_ctrl::MessageController> controller =
      std::make_unique<typename TypeParam::Controller>(new typename TypeParam::Message(&record));

  const msg_ctrl::MessageController& tested = *controller;
  EXPECT_EQ(typeid(tested), typeid(typename TypeParam::Controller));
}

TYPED_TEST(DestControllerTest, DeletesItsMessageAndLeavesTheRecord) {
  typename TypeParam::Record record;
  record.set_db_id(7);
  auto* const message = new typename TypeParam::Message(&record);
  WatchDeletion(message);
  { const typename TypeParam::Controller controller(message); }

  EXPECT_THAT(Events(),
              ElementsAre("AppMessage destroyed", "message freed", "MessageController destroyed"));
  EXPECT_EQ(record.db_id(), 7U);
}

TYPED_TEST(DestControllerTest, StartsWithoutStrategy) {
  typename TypeParam::Record record;
  typename TypeParam::Controller controller(new typename TypeParam::Message(&record));

  EXPECT_EQ(controller.strategy(), nullptr);
  controller.DoStrategy();
  EXPECT_TRUE(Events().empty());
}

TYPED_TEST(DestControllerTest, InheritsTheStrategyOperations) {
  typename TypeParam::Record record;
  RecordingStrategy strategy;
  typename TypeParam::Controller controller(new typename TypeParam::Message(&record));

  controller.set_strategy(&strategy);
  EXPECT_EQ(controller.strategy(), &strategy);
  controller.DoStrategy();
  EXPECT_THAT(Events(), ElementsAre("strategy executed"));

  controller.set_strategy(nullptr);
  EXPECT_EQ(controller.strategy(), nullptr);
}

}  // namespace
}  // namespace dest_mng
