/// What the three operations on a host destination log, send and destroy, and in which order.

#include <boost/variant/get.hpp>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_host.h"

namespace dest_mng {
namespace {

using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::LiveAllocations;
using testing_support::LiveWithoutEvents;

using HostObject = testing_support::TestObject<DbHostObject, DestHostMessage>;

static_assert(std::is_base_of_v<HaiL3MplsEncapsulation, HaiL3MplsEncapsulationHost>);
static_assert(std::is_same_v<decltype(std::declval<HaiL3MplsEncapsulationHost&>().TranslateMessage(
                                 std::declval<void*>())),
                             HostEncapsulationMessage>);
static_assert(!std::is_copy_constructible_v<HostEncapsulationMessage>);
static_assert(!std::is_move_constructible_v<HostEncapsulationMessage>);
static_assert(!std::is_copy_assignable_v<HostEncapsulationMessage>);
static_assert(!std::is_move_assignable_v<HostEncapsulationMessage>);

constexpr char kRecordTrace[] =
    "log 10 src/dest_host/hai/hai_dest_host TranslateHostObjectToEncapMessage:60 "
    R"(Host Object message: lim_id: "\001\000\000\001" dest_mac: "\002\000\000\000\001\013" )"
    "dest_id: 12 flags: ACTION_TO_CPU flags: ACTION_DROP";
constexpr char kMessage[] =
    R"( HostEncapsulationMessage dest_id: 12 vlan_dest_id: 5 lim_id: "\001\000\000\001" )"
    R"(flags: ACTION_TO_CPU flags: ACTION_DROP dest_mac: "\002\000\000\000\001\013")";

/// The object of the texts above.
void Fill(HostObject* object) {
  object->record().set_dest_id(12);
  object->record().set_lim_id("\x01\x00\x00\x01"s);
  object->record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  object->record().add_flags(ACTION_TO_CPU);
  object->record().add_flags(ACTION_DROP);
  object->object.attributes["vlan_dest_id"] = db::Attribute(5);
}

struct OperationCase {
  const char* name;
  int (HaiL3MplsEncapsulation::*operation)(void*);
  const char* trace;
  const char* hal_operation;
  const char* no_client;
};

class HostOperationTest : public testing_support::HaiTest,
                          public testing::WithParamInterface<OperationCase> {
 protected:
  HostOperationTest() { Fill(&object_); }

  int Run() {
    HaiL3MplsEncapsulationHost adapter;
    return (static_cast<HaiL3MplsEncapsulation&>(adapter).*GetParam().operation)(object_.pointer());
  }

  std::string hal_request() const { return "hal "s + GetParam().hal_operation + kMessage; }

  HostObject object_;
};

TEST_P(HostOperationTest, TracesAndSendsTheWholeTranslation) {
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace, GetParam().trace, hal_request(), "message freed",
                                    "AppMessage destroyed"));
}

TEST_P(HostOperationTest, WithoutTraceSendsAllTheSame) {
  testing_support::SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(hal_request(), "message freed", "AppMessage destroyed"));
}

TEST_P(HostOperationTest, WithoutClientLogsAnError) {
  WithoutClient();
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace, GetParam().trace, GetParam().no_client,
                                    "AppMessage destroyed"));
}

TEST_P(HostOperationTest, WithoutClientAndTraceLogsAnErrorOnly) {
  WithoutClient();
  testing_support::SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(GetParam().no_client, "AppMessage destroyed"));
}

TEST_P(HostOperationTest, NeverRenders) {
  testing_support::InterfaceIds().type = 2;
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(testing_support::InterfaceIds().calls, IsEmpty());
}

TEST_P(HostOperationTest, PassesTheWholeWrapper) {
  bool called = false;
  client_.on_request = [&](AppMessage* wrapper) {
    called = true;
    const auto* host = dynamic_cast<HostEncapsulationMessage*>(wrapper);
    EXPECT_EQ(static_cast<const void*>(host), static_cast<const void*>(wrapper));
  };
  Run();
  EXPECT_TRUE(called);
}

TEST_P(HostOperationTest, KeepsNothing) {
  Run();
  for (const bool with_client : {true, false}) {
    if (!with_client) WithoutClient();
    const std::ptrdiff_t before = LiveWithoutEvents();
    Run();
    EXPECT_EQ(LiveWithoutEvents(), before) << (with_client ? "with" : "without") << " a client";
  }
}

TEST_P(HostOperationTest, ExceptionOfTheClientDestroysTheMessageOnce) {
  client_.on_request = [](AppMessage*) { throw std::runtime_error("HAL"); };
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("HAL"));
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace, GetParam().trace, hal_request(), "message freed",
                                    "AppMessage destroyed"));
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THROW(Run(), std::runtime_error);
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(HostOperationTest, ExceptionOfTheTraceDestroysTheMessageOnce) {
  // The first record is the translation's.
  int records = 0;
  testing_support::SetLogHook([&] {
    if (++records == 2) throw std::runtime_error("log");
  });
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("log"));
  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(HostOperationTest, ExceptionOfTheErrorLineDestroysTheMessageOnce) {
  WithoutClient();
  testing_support::SetTrace(false);
  testing_support::SetLogHook([] { throw std::runtime_error("log"); });
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("log"));
  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(HostOperationTest, FailedTranslationSendsNothingAndLosesTheMessage) {
  HostObject object;
  object.record().set_dest_id(12);
  object.object.attributes["vlan_dest_id"] = db::Attribute("5"s);
  HaiL3MplsEncapsulationHost adapter;
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THROW((adapter.*GetParam().operation)(object.pointer()), boost::bad_get);
  EXPECT_EQ(LiveAllocations(), before + 1);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(HostOperationTest, FailedAllocationOfTheMessagePropagates) {
  const std::ptrdiff_t before = LiveWithoutEvents();
  testing_support::FailAllocation(1);
  EXPECT_THROW(Run(), std::bad_alloc);
  EXPECT_EQ(LiveAllocations(), before);
  EXPECT_THAT(Events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, HostOperationTest,
    testing::Values(OperationCase{"Create", &HaiL3MplsEncapsulation::CreateDestination,
                                  "log 10 src/dest_host/hai/hai_dest_host CreateDestination:68 "
                                  "[TX ===>] hai:host:Install host destination at HW",
                                  "InstallHostOutgoingEncapsulation",
                                  "log 12 src/dest_host/hai/hai_dest_host CreateDestination:74 "
                                  "There is no HAL client available"},
                    OperationCase{"Delete", &HaiL3MplsEncapsulation::DeleteDestination,
                                  "log 10 src/dest_host/hai/hai_dest_host DeleteDestination:85 "
                                  "[TX ===>] hai:host:Delete host destination at HW",
                                  "DestroyHostOutgoingEncapsulation",
                                  "log 12 src/dest_host/hai/hai_dest_host DeleteDestination:90 "
                                  "There is no HAL client available"},
                    OperationCase{"Update", &HaiL3MplsEncapsulation::UpdateDestination,
                                  "log 10 src/dest_host/hai/hai_dest_host UpdateDestination:101 "
                                  "[TX ===>] hai:host:Replace host destination at HW",
                                  "ReplaceHostOutgoingEncapsulation",
                                  "log 12 src/dest_host/hai/hai_dest_host UpdateDestination:106 "
                                  "There is no HAL client available"}),
    [](const auto& test) { return test.param.name; });

using HostTranslateMessageTest = testing_support::HaiTest;

TEST_F(HostTranslateMessageTest, ReturnsAWrapperThatOwnsTheTranslation) {
  HostObject object;
  Fill(&object);
  HaiL3MplsEncapsulationHost adapter;
  {
    const HostEncapsulationMessage wrapper = adapter.TranslateMessage(object.pointer());
    EXPECT_EQ(" HostEncapsulationMessage " + wrapper.message()->ShortDebugString(), kMessage);
    EXPECT_THAT(Events(), ElementsAre(kRecordTrace));
    Events().clear();
    testing_support::WatchDeletion(wrapper.message());
  }
  EXPECT_THAT(Events(), ElementsAre("message freed", "AppMessage destroyed"));
}

}  // namespace
}  // namespace dest_mng
