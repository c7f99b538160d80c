#include <boost/variant/get.hpp>
#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/hai_test.h"
#include "zuskux/hai.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Address;
using testing_support::Events;
using testing_support::FailAllocation;
using testing_support::InterfaceIds;
using testing_support::LevelQueries;
using testing_support::LiveWithoutEvents;
using testing_support::SetLogHook;
using testing_support::SetTrace;

struct Operation {
  const char* name;
  int (HaiL3MplsEncapsulation::*call)(void* object);
  const char* hal_operation;
  const char* trace;
  const char* no_client;
};

const Operation kOperations[] = {
    {"Create", &HaiL3MplsEncapsulation::CreateDestination, "InstallVlanOutgoingEncapsulation",
     "log 10 src/dest_vlan/hai/hai_dest_vlan CreateDestination:81 "
     "[TX ===>] hai:vlan:Installing VLAN destination at HW: msg=",
     "log 12 src/dest_vlan/hai/hai_dest_vlan CreateDestination:85 "
     "There is no HAL client available"},
    {"Delete", &HaiL3MplsEncapsulation::DeleteDestination, "DestroyVlanOutgoingEncapsulation",
     "log 10 src/dest_vlan/hai/hai_dest_vlan DeleteDestination:102 "
     "[TX ===>] hai:vlan:Delete VLAN destination at HW: msg=",
     "log 12 src/dest_vlan/hai/hai_dest_vlan DeleteDestination:106 "
     "There is no HAL client available"},
    {"Update", &HaiL3MplsEncapsulation::UpdateDestination, "ReplaceVlanOutgoingEncapsulation",
     "log 10 src/dest_vlan/hai/hai_dest_vlan UpdateDestination:123 "
     "[TX ===>] hai:vlan:Replace VLAN destination at HW: msg=",
     "log 12 src/dest_vlan/hai/hai_dest_vlan UpdateDestination:127 "
     "There is no HAL client available"},
};

constexpr char kRecordTrace[] =
    "log 10 src/dest_vlan/hai/hai_dest_vlan TranslateVlanObjectToEncapMessage:52 "
    "Vlan Object message: "
    R"(lim_id: "\004\003\002\001" source_mac: "\000\021\"3DU" vlan_dest_id: 12 vrf: 5 mtu: 1500 )"
    "capabilities: VLAN_CAPABILITY_ROUTED";

constexpr char kRequest[] =
    " VlanEncapsulationMessage "
    R"(lim_id: "\004\003\002\001" source_mac_address: "\000\021\"3DU" vlan_destination_id: 12 )"
    R"(vrf: 5 mtu: 1500 capabilities: VLAN_CAPABILITY_ROUTED list_values: "a")";

constexpr char kFields[] =
    ": VlanMessage(vlan destination id(12), lim id(name=eth3, type=0x02, value=0x000103), vrf=5, "
    "mtu=1500, source mac address(00:11:22:33:44:55))";

class VlanOperationTest : public testing_support::HaiTest,
                          public ::testing::WithParamInterface<Operation> {
 protected:
  VlanOperationTest() {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 0x02;
    InterfaceIds().ifindex = 0x01000103;
    DestVlanMessage& record = object_.record();
    record.set_lim_id("\x04\x03\x02\x01");
    record.set_source_mac(std::string("\x00\x11\x22\x33\x44\x55", 6));
    record.set_vlan_dest_id(12);
    record.set_vrf(5);
    record.set_mtu(1500);
    record.add_capabilities(VLAN_CAPABILITY_ROUTED);
    object_.object.list_attribute_name = "interfaces";
    list() = {db::Attribute(std::string("a"))};
    client_.on_request = [this](AppMessage* wrapper) { wrapper_ = Address(wrapper); };
  }

  std::vector<db::Attribute>& list() { return object_.object.attribute_lists["interfaces"].second; }

  int Call() {
    HaiL3MplsEncapsulationVlan adapter;
    return (adapter.*GetParam().call)(object_.pointer());
  }

  // The trace with the wrapper that the client received.
  std::string Trace() const {
    return GetParam().trace + ("VlanEncapsulationMessage(this=" + wrapper_ + ")") + kFields;
  }

  static std::string Request() { return std::string("hal ") + GetParam().hal_operation + kRequest; }

  // The number of live allocations, without what the fakes keep.
  static std::ptrdiff_t LiveWithoutCalls() {
    std::vector<std::string>().swap(InterfaceIds().calls);
    return LiveWithoutEvents();
  }

  testing_support::TestObject<DbVlanObject, DestVlanMessage> object_;
  std::string wrapper_;
};

TEST_P(VlanOperationTest, TracesAndSends) {
  EXPECT_EQ(Call(), 0);
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace, Trace(), Request(), "message freed",
                                    "AppMessage destroyed"));
  EXPECT_EQ(LevelQueries(), 2);
}

TEST_P(VlanOperationTest, OnlySendsWithoutTrace) {
  SetTrace(false);

  EXPECT_EQ(Call(), 0);
  EXPECT_THAT(Events(), ElementsAre(Request(), "message freed", "AppMessage destroyed"));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
  EXPECT_EQ(LevelQueries(), 2);
}

TEST_P(VlanOperationTest, SendsTheWholeWrapper) {
  client_.on_request = [](AppMessage* message) {
    auto* const wrapper = dynamic_cast<VlanEncapsulationMessage*>(message);
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(static_cast<void*>(wrapper), static_cast<void*>(message));
    EXPECT_EQ(wrapper->ToString(true),
              "VlanEncapsulationMessage(this=" + Address(message) + ")" + kFields);
  };
  EXPECT_EQ(Call(), 0);
  EXPECT_EQ(Events().size(), 5U);
}

TEST_P(VlanOperationTest, LogsAMissingClient) {
  WithoutClient();

  EXPECT_EQ(Call(), 0);
  ASSERT_EQ(Events().size(), 4U);
  EXPECT_EQ(Events()[0], kRecordTrace);
  EXPECT_THAT(Events()[1], ::testing::StartsWith(GetParam().trace));
  EXPECT_THAT(Events()[1], ::testing::EndsWith(kFields));
  EXPECT_EQ(Events()[2], GetParam().no_client);
  EXPECT_EQ(Events()[3], "AppMessage destroyed");
}

TEST_P(VlanOperationTest, LogsOnlyAMissingClientWithoutTrace) {
  WithoutClient();
  SetTrace(false);

  EXPECT_EQ(Call(), 0);
  EXPECT_THAT(Events(), ElementsAre(GetParam().no_client, "AppMessage destroyed"));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
  EXPECT_EQ(LevelQueries(), 2);
}

TEST_P(VlanOperationTest, LeavesNothingBehind) {
  Call();
  const auto before = LiveWithoutCalls();
  Call();
  WithoutClient();
  Call();
  SetTrace(false);
  Call();

  EXPECT_EQ(LiveWithoutCalls(), before);
}

TEST_P(VlanOperationTest, SendsToTheClientOfTheMoment) {
  testing_support::FakeHalClient second;
  int requests = 0;
  second.on_request = [&requests](AppMessage*) { ++requests; };
  Call();
  EXPECT_EQ(requests, 0);
  Hai::GetInstance()->set_client(&second);
  Call();
  EXPECT_EQ(requests, 1);
  Hai::GetInstance()->set_client(nullptr);
  Call();
  EXPECT_EQ(requests, 1);
}

TEST_P(VlanOperationTest, SendsAnEmptyObject) {
  SetTrace(false);
  testing_support::TestObject<DbVlanObject, DestVlanMessage> empty;
  HaiL3MplsEncapsulationVlan adapter;

  EXPECT_EQ((adapter.*GetParam().call)(empty.pointer()), 0);
  EXPECT_THAT(Events(), ElementsAre(std::string("hal ") + GetParam().hal_operation +
                                        R"( VlanEncapsulationMessage lim_id: "")",
                                    "message freed", "AppMessage destroyed"));
}

// Exceptions. Each test warms up with an operation before it counts allocations.

TEST_P(VlanOperationTest, PassesTheClientsException) {
  client_.on_request = [this](AppMessage* wrapper) {
    wrapper_ = Address(wrapper);
    throw std::runtime_error("client");
  };
  EXPECT_THROW(Call(), std::runtime_error);
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace, Trace(), Request(), "message freed",
                                    "AppMessage destroyed"));
  const auto before = LiveWithoutCalls();
  EXPECT_THROW(Call(), std::runtime_error);

  EXPECT_EQ(LiveWithoutCalls(), before);
}

// Makes the log sink throw at the `record`-th record from now on.
void ThrowAtRecord(int record) {
  SetLogHook([record, seen = 0]() mutable {
    if (++seen == record) throw std::runtime_error("log");
  });
}

TEST_P(VlanOperationTest, PassesTheSinksExceptionAtTheTrace) {
  Call();
  const auto before = LiveWithoutCalls();
  ThrowAtRecord(2);
  EXPECT_THROW(Call(), std::runtime_error);
  SetLogHook(nullptr);

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutCalls(), before);
}

TEST_P(VlanOperationTest, PassesTheSinksExceptionAtTheMissingClient) {
  WithoutClient();
  Call();
  const auto before = LiveWithoutCalls();
  ThrowAtRecord(3);
  EXPECT_THROW(Call(), std::runtime_error);
  SetLogHook(nullptr);

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutCalls(), before);
}

TEST_P(VlanOperationTest, PassesTheRenderingsException) {
  list().clear();
  object_.record().clear_capabilities();
  Call();
  const auto before = LiveWithoutCalls();
  // Between the record's trace and the rendering nothing else allocates.
  SetLogHook([] { FailAllocation(1); });
  EXPECT_THROW(Call(), std::bad_alloc);
  FailAllocation(0);
  SetLogHook(nullptr);

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutCalls(), before);
}

TEST_P(VlanOperationTest, PassesAFailureToAllocateTheMessage) {
  Call();
  const auto before = LiveWithoutCalls();
  FailAllocation(1);
  EXPECT_THROW(Call(), std::bad_alloc);
  FailAllocation(0);

  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(LiveWithoutCalls(), before);
}

TEST_P(VlanOperationTest, LosesTheMessageOfAFailedTranslation) {
  list().emplace_back(7);
  const auto before = LiveWithoutCalls();
  // The parts of one message at the point where the translation fails.
  auto message = std::make_unique<encapsulation::VlanMessage>();
  EXPECT_THROW(HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(object_.pointer(),
                                                                              message.get()),
               boost::bad_get);
  const auto one_message = LiveWithoutCalls() - before;
  EXPECT_GT(one_message, 0);
  message.reset();
  EXPECT_EQ(LiveWithoutCalls(), before);

  EXPECT_THROW(Call(), boost::bad_get);
  EXPECT_THAT(Events(), ElementsAre(kRecordTrace));
  EXPECT_EQ(LiveWithoutCalls(), before + one_message);
}

INSTANTIATE_TEST_SUITE_P(, VlanOperationTest, ::testing::ValuesIn(kOperations),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace dest_mng
