/// Installing and destroying the ingress interface of a VRF: the request, its trace, the wrapper
/// and its text.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "dest_manager/vrf_data.h"
#include "tests/support/hai_test.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using ::testing::ThrowsMessage;
using testing_support::AllocationCount;
using testing_support::Events;
using testing_support::Frame;
using testing_support::LiveWithoutEvents;

struct OperationCase {
  const char* name;
  int (HaiL3MplsEncapsulationVrf::*operation)(const VrfData&);
};

class VrfOperationDeathTest : public testing_support::HaiTest,
                              public testing::WithParamInterface<OperationCase> {
 protected:
  VrfOperationDeathTest() { WithoutClient(); }

  static int Run() { return (HaiL3MplsEncapsulationVrf().*GetParam().operation)(VrfData{5, 42}); }
};

// The trace comes first; then the missing client is called regardless.
TEST_P(VrfOperationDeathTest, WithoutClientCallsThroughNull) {
  testing_support::SetLogHook([] { std::cerr << "traced\n"; });
  EXPECT_DEATH(Run(), "^traced\n");
}

TEST_P(VrfOperationDeathTest, WithoutClientAndTraceCallsThroughNull) {
  testing_support::SetTrace(false);
  EXPECT_DEATH(Run(), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, VrfOperationDeathTest,
    testing::Values(OperationCase{"Install", &HaiL3MplsEncapsulationVrf::InstallVrf},
                    OperationCase{"Destroy", &HaiL3MplsEncapsulationVrf::DestroyVrf}),
    [](const auto& test) { return test.param.name; });

class VrfTest : public testing_support::HaiTest {
 protected:
  HaiL3MplsEncapsulationVrf adapter_;
};

TEST_F(VrfTest, VrfIdZeroIsSentAsPresent) {
  testing_support::SetTrace(false);
  EXPECT_EQ(adapter_.InstallVrf(VrfData{}), 0);
  EXPECT_EQ(adapter_.DestroyVrf(VrfData{}), 0);
  EXPECT_THAT(Events(),
              ElementsAre("hal InstallVrfIngressInterface VrfEncapsulationMessage vrf_id: 0",
                          "AppMessage destroyed",
                          "hal DestroyVrfIngressInterface VrfEncapsulationMessage vrf_id: 0",
                          "AppMessage destroyed"));
}

TEST_F(VrfTest, LargestIdsAreUnsigned) {
  const VrfData largest{std::numeric_limits<std::uint32_t>::max(),
                        std::numeric_limits<std::uint32_t>::max() - 1};
  EXPECT_EQ(adapter_.InstallVrf(largest), 0);
  EXPECT_EQ(adapter_.DestroyVrf(largest), 0);
  EXPECT_THAT(
      Events(),
      ElementsAre("log 10 src/vrf/vrf_hai InstallVrf:23 [TX ===>] hai:vrf:"
                  "Install VRF=4294967295 db_id=4294967294 l3-ingress interface at HW",
                  "hal InstallVrfIngressInterface VrfEncapsulationMessage vrf_id: 4294967295",
                  "AppMessage destroyed",
                  "log 10 src/vrf/vrf_hai DestroyVrf:32 [TX ===>] hai:vrf:"
                  "Delete VRF=4294967295 db_id=4294967294 l3-ingress interface at HW",
                  "hal DestroyVrfIngressInterface VrfEncapsulationMessage vrf_id: 4294967295",
                  "AppMessage destroyed"));
}

TEST_F(VrfTest, InstallAndDestroySendEqualMessages) {
  std::vector<std::string> sent;
  client_.on_request = [&](AppMessage* wrapper) {
    sent.push_back(dynamic_cast<VrfEncapsulationMessage&>(*wrapper).encap()->SerializeAsString());
  };
  const VrfData vrf{5, 42};
  adapter_.InstallVrf(vrf);
  adapter_.DestroyVrf(vrf);
  encapsulation::VrfMessage expected;
  expected.set_vrf_id(5);
  EXPECT_THAT(sent, ElementsAre(expected.SerializeAsString(), expected.SerializeAsString()));
}

class VrfWrapperTest : public testing_support::HaiTest {
 protected:
  /// The held message as text.
  std::string Held() { return wrapper_.encap()->ShortDebugString(); }

  /// The rendering, which is the same whatever `full` says and through either base.
  std::string Rendering() {
    const HalL3MplsEncapsulationPrintable& printable = wrapper_;
    EXPECT_EQ(wrapper_.ToString(false), wrapper_.ToString(true));
    EXPECT_EQ(printable.ToString(false), wrapper_.ToString(true));
    EXPECT_EQ(printable.ToString(true), wrapper_.ToString(true));
    return wrapper_.ToString(true);
  }

  VrfEncapsulationMessage wrapper_;
};

TEST_F(VrfWrapperTest, RendersItsId) {
  wrapper_.encap()->set_vrf_id(5);
  EXPECT_EQ(Rendering(), "VrfEncapsulationMessage(VRF id(5))");
}

TEST_F(VrfWrapperTest, RendersAsEmptyWithoutAnId) {
  EXPECT_EQ(Rendering(), "VrfEncapsulationMessage(empty)");
}

TEST_F(VrfWrapperTest, RendersAPresentZero) {
  wrapper_.encap()->set_vrf_id(0);
  EXPECT_EQ(Rendering(), "VrfEncapsulationMessage(VRF id(0))");
}

TEST_F(VrfWrapperTest, RendersTheLargestIdUnsigned) {
  wrapper_.encap()->set_vrf_id(std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Rendering(), "VrfEncapsulationMessage(VRF id(4294967295))");
}

TEST_F(VrfWrapperTest, HoldsItsMessageByValue) {
  EXPECT_EQ(wrapper_.message(), wrapper_.encap());
  const void* held = wrapper_.encap();
  EXPECT_TRUE(std::less<>()(static_cast<const void*>(&wrapper_), held));
  EXPECT_TRUE(std::less<>()(held, static_cast<const void*>(&wrapper_ + 1)));
}

TEST_F(VrfWrapperTest, ConstructionAllocatesNothing) {
  const std::size_t before = AllocationCount();
  const VrfEncapsulationMessage wrapper;
  EXPECT_EQ(AllocationCount(), before);
}

TEST_F(VrfWrapperTest, UnserializeFillsTheHeldMessageAndAllocatesNothing) {
  encapsulation::VrfMessage sent;
  sent.set_vrf_id(5);
  std::string frame = Frame(sent.SerializeAsString());
  const google::protobuf::Message* message = wrapper_.message();
  const std::size_t before = AllocationCount();
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(AllocationCount(), before);
  EXPECT_EQ(Held(), "vrf_id: 5");
  EXPECT_EQ(wrapper_.message(), message);
}

TEST_F(VrfWrapperTest, UnserializeOfAnEmptyPayloadClears) {
  wrapper_.encap()->set_vrf_id(5);
  std::string frame = Frame("");
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "");
  EXPECT_FALSE(wrapper_.encap()->has_vrf_id());
}

TEST_F(VrfWrapperTest, UnserializeReadsNoFurtherThanTheLength) {
  encapsulation::VrfMessage sent;
  sent.set_vrf_id(5);
  const std::string payload = sent.SerializeAsString();
  std::string frame = Frame(payload + "\xff\xff", static_cast<std::uint32_t>(payload.size()));
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "vrf_id: 5");
}

TEST_F(VrfWrapperTest, UnserializeOfABadPayloadFails) {
  wrapper_.encap()->set_vrf_id(5);
  std::string frame = Frame("\x07");
  EXPECT_FALSE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "");
}

TEST_F(VrfWrapperTest, UnserializeOfAnOverlongLengthFailsAndClears) {
  for (const std::uint32_t length : {0x80000000U, 0xFFFFFFFFU}) {
    wrapper_.encap()->set_vrf_id(5);
    std::string frame = Frame("", length);
    EXPECT_FALSE(wrapper_.Unserialize(frame.data())) << length;
    EXPECT_EQ(Held(), "") << length;
  }
}

}  // namespace
}  // namespace dest_mng
