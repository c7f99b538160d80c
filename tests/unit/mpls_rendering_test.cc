/// The one-line text of an MPLS message.

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/mpls_encapsulation_message.h"

namespace {

using namespace std::string_literals;

using encapsulation::MplsMessage;
using ::testing::ElementsAre;
using testing_support::Address;
using testing_support::InterfaceIds;
using testing_support::ObjectAt;

constexpr std::uintptr_t kExampleAddress = 0x55D0C8A41E20;
constexpr char kTaken[] = "the address is taken in this process; run again";

/// The bytes of a lim id.
std::string LimId(std::uint32_t lim_id) {
  std::string bytes(sizeof lim_id, '\0');
  std::memcpy(bytes.data(), &lim_id, sizeof lim_id);
  return bytes;
}

MplsMessage ExampleMessage() {
  MplsMessage message;
  message.set_dest_id(17);
  message.set_vlan_tunnel_dest_id(5);
  message.set_lim_id(LimId(0x01000001));
  message.add_labels(1001);
  message.add_capabilities(encapsulation::MplsCapabilities{4});
  message.add_capabilities(encapsulation::MplsCapabilities{1});
  message.set_flag(encapsulation::ActionFlags{1});
  return message;
}

class MplsRenderingTest : public testing_support::HaiTest {
 protected:
  MplsRenderingTest() {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 2;
    InterfaceIds().ifindex = 0x01000107;
  }

  /// The part of the rendering of `message` after the address.
  static std::string Fields(const MplsMessage& message) {
    const MplsEncapsulationMessage wrapper(std::make_unique<MplsMessage>(message));
    const std::string text = wrapper.ToString(true);
    const std::string start = "MplsEncapsulationMessage(this=" + Address(&wrapper) + "): ";
    EXPECT_EQ(text.substr(0, start.size()), start);
    return text.substr(start.size());
  }
};

TEST_F(MplsRenderingTest, ExampleAtItsAddress) {
  const ObjectAt<MplsEncapsulationMessage> wrapper(kExampleAddress,
                                                   std::make_unique<MplsMessage>(ExampleMessage()));
  ASSERT_NE(wrapper.get(), nullptr) << kTaken;
  EXPECT_EQ(
      wrapper.get()->ToString(true),
      "MplsEncapsulationMessage(this=0x000055D0C8A41E20): MplsMessage(mpls destination id(17), "
      "vlan/tunnel destination id(5), lim id(name=eth3, type=0x02, value=0x000107), "
      "destination mac address(Empty), labels(size=1, label(1001)), "
      "MPLS Capabilities(Push, Protection), HAL Flag(Drop Packet))");
}

TEST_F(MplsRenderingTest, EveryFieldInOrder) {
  MplsMessage message = ExampleMessage();
  message.set_dest_mac("\x02\x00\x00\x00\x01\x0a"s);
  message.set_pass_through_value(77);
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(17), vlan/tunnel destination id(5), "
            "lim id(name=eth3, type=0x02, value=0x000107), "
            "destination mac address(02:00:00:00:01:0a), labels(size=1, label(1001)), "
            "MPLS Capabilities(Push, Protection), HAL Flag(Drop Packet))");
  EXPECT_THAT(
      InterfaceIds().calls,
      ElementsAre("limid_to_type(0x01000001)", "limid_to_ifindex(0x01000001)",
                  "limid_to_intfname(0x01000001, size 64, flags 0)", "MACAddr(02:00:00:00:01:0a)"));
}

TEST_F(MplsRenderingTest, LargestNumbersAreUnsigned) {
  MplsMessage message;
  message.set_dest_id(std::numeric_limits<std::uint32_t>::max());
  message.set_vlan_tunnel_dest_id(std::numeric_limits<std::uint32_t>::max());
  message.add_labels(std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(4294967295), "
            "vlan/tunnel destination id(4294967295), lim id(Empty), "
            "destination mac address(Empty), labels(size=1, label(4294967295)), "
            "MPLS Capabilities(), HAL Flag(None))");
}

TEST_F(MplsRenderingTest, PresentZeroVlanOrTunnelIsShown) {
  MplsMessage message;
  message.set_vlan_tunnel_dest_id(0);
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(0), lim id(Empty), "
            "destination mac address(Empty), labels(size=0), MPLS Capabilities(), "
            "HAL Flag(None))");
}

struct LabelsCase {
  const char* name;
  std::vector<std::uint32_t> labels;
  const char* text;
};

class MplsLabelsTest : public MplsRenderingTest, public testing::WithParamInterface<LabelsCase> {};

TEST_P(MplsLabelsTest, AreCountedAndListed) {
  MplsMessage message;
  for (const std::uint32_t label : GetParam().labels) message.add_labels(label);
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), "
            "lim id(Empty), destination mac address(Empty), "s +
                GetParam().text + ", MPLS Capabilities(), HAL Flag(None))");
}

INSTANTIATE_TEST_SUITE_P(
    Lists, MplsLabelsTest,
    testing::Values(LabelsCase{"Empty", {}, "labels(size=0)"},
                    LabelsCase{"Zero", {0}, "labels(size=1, label(0))"},
                    LabelsCase{"OrderAndDuplicates",
                               {1001, 16, 1001},
                               "labels(size=3, label(1001), label(16), label(1001))"}),
    [](const auto& test) { return test.param.name; });

struct CapabilitiesCase {
  const char* name;
  std::vector<int> capabilities;
  const char* text;
};

class MplsCapabilitiesTest : public MplsRenderingTest,
                             public testing::WithParamInterface<CapabilitiesCase> {};

TEST_P(MplsCapabilitiesTest, AreListed) {
  MplsMessage message;
  // Bypasses the setter, which accepts known values only.
  for (const int capability : GetParam().capabilities) {
    message.mutable_capabilities()->Add(capability);
  }
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), "
            "lim id(Empty), destination mac address(Empty), labels(size=0), "s +
                GetParam().text + ", HAL Flag(None))");
}

INSTANTIATE_TEST_SUITE_P(
    Lists, MplsCapabilitiesTest,
    testing::Values(CapabilitiesCase{"Empty", {}, "MPLS Capabilities()"},
                    CapabilitiesCase{"None", {0}, "MPLS Capabilities(None)"},
                    CapabilitiesCase{"Protection", {1}, "MPLS Capabilities(Protection)"},
                    CapabilitiesCase{"Swap", {2}, "MPLS Capabilities(Swap)"},
                    CapabilitiesCase{"Forward", {3}, "MPLS Capabilities(Forward)"},
                    CapabilitiesCase{"Push", {4}, "MPLS Capabilities(Push)"},
                    CapabilitiesCase{"VcLabel", {5}, "MPLS Capabilities(VCLabel)"},
                    CapabilitiesCase{"FirstUnknown", {6}, "MPLS Capabilities(Unknown)"},
                    CapabilitiesCase{"Seven", {7}, "MPLS Capabilities(Unknown)"},
                    CapabilitiesCase{"Negative", {-1}, "MPLS Capabilities(Unknown)"},
                    CapabilitiesCase{"OrderAndDuplicates",
                                     {4, 3, 3, 0},
                                     "MPLS Capabilities(Push, Forward, Forward, None)"}),
    [](const auto& test) { return test.param.name; });

struct FlagCase {
  const char* name;
  int flag;
  const char* text;
};

class MplsFlagTest : public MplsRenderingTest, public testing::WithParamInterface<FlagCase> {};

TEST_P(MplsFlagTest, IsNamed) {
  MplsMessage message;
  message.set_flag(encapsulation::ActionFlags{GetParam().flag});
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), "
            "lim id(Empty), destination mac address(Empty), labels(size=0), "
            "MPLS Capabilities(), "s +
                GetParam().text + ")");
}

INSTANTIATE_TEST_SUITE_P(Values, MplsFlagTest,
                         testing::Values(FlagCase{"None", 0, "HAL Flag(None)"},
                                         FlagCase{"Drop", 1, "HAL Flag(Drop Packet)"},
                                         FlagCase{"ToCpu", 2, "HAL Flag(To CPU)"}),
                         [](const auto& test) { return test.param.name; });

TEST_F(MplsRenderingTest, CapabilitiesAreCopiedAtOnce) {
  const auto allocations = [](int capabilities) {
    auto message = std::make_unique<MplsMessage>();
    for (int i = 0; i < capabilities; ++i) {
      message->add_capabilities(encapsulation::MplsCapabilities{1});
    }
    const MplsEncapsulationMessage wrapper(std::move(message));
    const std::size_t before = testing_support::AllocationCount();
    wrapper.ToString(true);
    return testing_support::AllocationCount() - before;
  };

  EXPECT_EQ(allocations(1), allocations(0) + 1);
  EXPECT_EQ(allocations(9), allocations(0) + 1);
}

TEST_F(MplsRenderingTest, LongListOfLabelsIsShownInFull) {
  MplsMessage message;
  std::string labels;
  for (std::uint32_t label = 1000; label < 1300; ++label) {
    message.add_labels(label);
    labels += ", label(" + std::to_string(label) + ")";
  }
  EXPECT_EQ(Fields(message),
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), "
            "lim id(Empty), destination mac address(Empty), labels(size=300" +
                labels + "), MPLS Capabilities(), HAL Flag(None))");
}

}  // namespace
