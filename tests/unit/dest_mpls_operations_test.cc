/// What the three operations on an MPLS destination log, send and destroy, and in which order.

#include <boost/variant/get.hpp>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_mpls.h"

namespace dest_mng {
namespace {

using namespace std::string_literals;

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing_support::Events;
using testing_support::InterfaceIds;
using testing_support::LiveAllocations;
using testing_support::LiveWithoutEvents;

using MplsObject = testing_support::TestObject<DbMplsObject, DestMplsMessage>;

static_assert(std::is_base_of_v<HaiL3MplsEncapsulation, HaiL3MplsEncapsulationMpls>);
static_assert(std::is_same_v<decltype(std::declval<HaiL3MplsEncapsulationMpls&>().TranslateMessage(
                                 std::declval<void*>())),
                             MplsEncapsulationMessage>);
static_assert(!std::is_copy_constructible_v<MplsEncapsulationMessage>);
static_assert(!std::is_move_constructible_v<MplsEncapsulationMessage>);
static_assert(!std::is_copy_assignable_v<MplsEncapsulationMessage>);
static_assert(!std::is_move_assignable_v<MplsEncapsulationMessage>);

constexpr char kMessage[] =
    R"( MplsEncapsulationMessage dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "\001\000\000\001" )"
    R"(dest_mac: "\002\000\000\000\001\013" labels: 1001 capabilities: MPLS_CAPABILITY_PUSH )"
    "capabilities: MPLS_CAPABILITY_PROTECTION pass_through_value: 77";
constexpr char kRenderedFields[] =
    "MplsMessage(mpls destination id(17), vlan/tunnel destination id(5), "
    "lim id(name=eth3, type=0x02, value=0x000107), "
    "destination mac address(02:00:00:00:01:0b), labels(size=1, label(1001)), "
    "MPLS Capabilities(Push, Protection), HAL Flag(None))";

/// The object of the texts above; it has an active neighbour.
void Fill(MplsObject* object) {
  object->record().set_mpls_dest_id(17);
  object->record().set_lim_id("\x01\x00\x00\x01"s);
  object->record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  object->record().set_label(1001);
  object->record().set_pass_through_value(77);
  object->record().add_capabilities(MplsCapabilities{3});
  object->record().add_capabilities(MplsCapabilities{1});
  object->object.attributes["vlan_dest_id"] = db::Attribute(5);
  object->object.attributes["host_dest_id"] = db::Attribute(9);
}

struct OperationCase {
  const char* name;
  int (HaiL3MplsEncapsulation::*operation)(void*);
  const char* trace;
  const char* hal_operation;
  const char* no_client;
};

class MplsOperationTest : public testing_support::HaiTest,
                          public testing::WithParamInterface<OperationCase> {
 protected:
  MplsOperationTest() {
    Fill(&object_);
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 2;
    InterfaceIds().ifindex = 0x01000107;
    client_.on_request = [this](AppMessage* wrapper) { address_ = wrapper; };
  }

  int Run() {
    HaiL3MplsEncapsulationMpls adapter;
    return (static_cast<HaiL3MplsEncapsulation&>(adapter).*GetParam().operation)(object_.pointer());
  }

  /// The trace of a wrapper at `address`.
  static std::string Trace(const std::string& address) {
    return GetParam().trace + "MplsEncapsulationMessage(this="s + address + "): " + kRenderedFields;
  }

  static std::string HalRequest() { return "hal "s + GetParam().hal_operation + kMessage; }

  MplsObject object_;
  // Where the client last saw the wrapper.
  const void* address_ = nullptr;
};

TEST_P(MplsOperationTest, TracesAndSendsTheWholeTranslation) {
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(Trace(testing_support::Address(address_)), HalRequest(),
                                    "message freed", "AppMessage destroyed"));
  EXPECT_THAT(
      InterfaceIds().calls,
      ElementsAre("limid_to_type(0x01000001)", "limid_to_ifindex(0x01000001)",
                  "limid_to_intfname(0x01000001, size 64, flags 0)", "MACAddr(02:00:00:00:01:0b)"));
}

TEST_P(MplsOperationTest, WithoutTraceSendsAllTheSameAndRendersNothing) {
  testing_support::SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(HalRequest(), "message freed", "AppMessage destroyed"));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
}

TEST_P(MplsOperationTest, WithoutClientLogsAnError) {
  WithoutClient();
  EXPECT_EQ(Run(), 0);
  // No client saw the wrapper's address.
  EXPECT_THAT(Events(),
              ElementsAre(AllOf(StartsWith(GetParam().trace + "MplsEncapsulationMessage(this=0x"s),
                                EndsWith("): "s + kRenderedFields)),
                          GetParam().no_client, "AppMessage destroyed"));
}

TEST_P(MplsOperationTest, WithoutClientAndTraceLogsAnErrorOnly) {
  WithoutClient();
  testing_support::SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAre(GetParam().no_client, "AppMessage destroyed"));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
}

TEST_P(MplsOperationTest, WithoutNeighborTracesAndSendsTheDropFlag) {
  MplsObject object;
  HaiL3MplsEncapsulationMpls adapter;
  EXPECT_EQ((adapter.*GetParam().operation)(object.pointer()), 0);
  EXPECT_THAT(
      Events(),
      ElementsAre("log 10 src/dest_mpls/hai/hai_dest_mpls TranslateMplsObjectToEncapMessage:70 "
                  "[TX ===>] hai:mpls:No neighbor active, turn on Drop Flag",
                  GetParam().trace + "MplsEncapsulationMessage(this="s +
                      testing_support::Address(address_) +
                      "): MplsMessage(mpls destination id(0), vlan/tunnel destination id(0), "
                      "lim id(Empty), destination mac address(Empty), labels(size=0), "
                      "MPLS Capabilities(), HAL Flag(Drop Packet))",
                  "hal "s + GetParam().hal_operation +
                      " MplsEncapsulationMessage vlan_tunnel_dest_id: 0 flag: ACTION_DROP",
                  "message freed", "AppMessage destroyed"));
}

TEST_P(MplsOperationTest, PassesTheWholeWrapper) {
  bool called = false;
  client_.on_request = [&](AppMessage* wrapper) {
    called = true;
    const auto* mpls = dynamic_cast<MplsEncapsulationMessage*>(wrapper);
    EXPECT_EQ(static_cast<const void*>(mpls), static_cast<const void*>(wrapper));
  };
  Run();
  EXPECT_TRUE(called);
}

TEST_P(MplsOperationTest, KeepsNothing) {
  testing_support::SetTrace(false);
  Run();
  for (const bool with_client : {true, false}) {
    if (!with_client) WithoutClient();
    const std::ptrdiff_t before = LiveWithoutEvents();
    Run();
    EXPECT_EQ(LiveWithoutEvents(), before) << (with_client ? "with" : "without") << " a client";
  }
}

TEST_P(MplsOperationTest, ExceptionOfTheClientDestroysTheMessageOnce) {
  client_.on_request = [this](AppMessage* wrapper) {
    address_ = wrapper;
    throw std::runtime_error("HAL");
  };
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("HAL"));
  EXPECT_THAT(Events(), ElementsAre(Trace(testing_support::Address(address_)), HalRequest(),
                                    "message freed", "AppMessage destroyed"));
  testing_support::SetTrace(false);
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THROW(Run(), std::runtime_error);
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(MplsOperationTest, ExceptionOfTheTraceDestroysTheMessageOnce) {
  testing_support::SetLogHook([] { throw std::runtime_error("log"); });
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("log"));
  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  // The rendering called the fake interface ids, which record that.
  std::vector<std::string>().swap(InterfaceIds().calls);
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(MplsOperationTest, ExceptionOfTheErrorLineDestroysTheMessageOnce) {
  WithoutClient();
  testing_support::SetTrace(false);
  testing_support::SetLogHook([] { throw std::runtime_error("log"); });
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THAT([this] { Run(); }, testing::ThrowsMessage<std::runtime_error>("log"));
  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(MplsOperationTest, FailedTranslationSendsNothingAndLosesTheMessage) {
  MplsObject object;
  object.record().set_mpls_dest_id(17);
  object.object.attributes["vlan_dest_id"] = db::Attribute("5"s);
  HaiL3MplsEncapsulationMpls adapter;
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THROW((adapter.*GetParam().operation)(object.pointer()), boost::bad_get);
  EXPECT_EQ(LiveAllocations(), before + 1);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(MplsOperationTest, BadHostDestIdSendsNothingAndLosesTheMessage) {
  MplsObject object;
  object.object.attributes["vlan_dest_id"] = db::Attribute(5);
  object.object.attributes["host_dest_id"] = db::Attribute("9"s);
  HaiL3MplsEncapsulationMpls adapter;
  const std::ptrdiff_t before = LiveWithoutEvents();
  EXPECT_THROW((adapter.*GetParam().operation)(object.pointer()), boost::bad_get);
  EXPECT_EQ(LiveAllocations(), before + 1);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(MplsOperationTest, FailedAllocationOfTheMessagePropagates) {
  const std::ptrdiff_t before = LiveWithoutEvents();
  testing_support::FailAllocation(1);
  EXPECT_THROW(Run(), std::bad_alloc);
  EXPECT_EQ(LiveAllocations(), before);
  EXPECT_THAT(Events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, MplsOperationTest,
    testing::Values(OperationCase{"Create", &HaiL3MplsEncapsulation::CreateDestination,
                                  "log 10 src/dest_mpls/hai/hai_dest_mpls CreateDestination:80 "
                                  "[TX ===>] hai:mpls:msg:",
                                  "InstallMplsUnprotectedOutgoingEncapsulation",
                                  "log 12 src/dest_mpls/hai/hai_dest_mpls CreateDestination:84 "
                                  "There is no HAL client available"},
                    OperationCase{"Delete", &HaiL3MplsEncapsulation::DeleteDestination,
                                  "log 10 src/dest_mpls/hai/hai_dest_mpls DeleteDestination:95 "
                                  "[TX ===>] hai:mpls:msg:",
                                  "DestroyMplsUnprotectedOutgoingEncapsulation",
                                  "log 12 src/dest_mpls/hai/hai_dest_mpls DeleteDestination:99 "
                                  "There is no HAL client available"},
                    OperationCase{"Update", &HaiL3MplsEncapsulation::UpdateDestination,
                                  "log 10 src/dest_mpls/hai/hai_dest_mpls UpdateDestination:110 "
                                  "[TX ===>] hai:mpls:msg:",
                                  "ReplaceMplsUnprotectedOutgoingEncapsulation",
                                  "log 12 src/dest_mpls/hai/hai_dest_mpls UpdateDestination:114 "
                                  "There is no HAL client available"}),
    [](const auto& test) { return test.param.name; });

using MplsTranslateMessageTest = testing_support::HaiTest;

TEST_F(MplsTranslateMessageTest, ReturnsAWrapperThatOwnsTheTranslation) {
  MplsObject object;
  Fill(&object);
  HaiL3MplsEncapsulationMpls adapter;
  {
    const MplsEncapsulationMessage wrapper = adapter.TranslateMessage(object.pointer());
    EXPECT_EQ(" MplsEncapsulationMessage " + wrapper.message()->ShortDebugString(), kMessage);
    EXPECT_THAT(Events(), IsEmpty());
    testing_support::WatchDeletion(wrapper.message());
  }
  EXPECT_THAT(Events(), ElementsAre("message freed", "AppMessage destroyed"));
}

}  // namespace
}  // namespace dest_mng
