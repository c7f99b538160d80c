/// The one-line text of a host message.

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "dest_host/hai/action_flags.h"
#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/host_encapsulation_message.h"

namespace {

using namespace std::string_literals;

using encapsulation::HostMessage;
using ::testing::ElementsAre;
using testing_support::Address;
using testing_support::InterfaceIds;
using testing_support::ObjectAt;

static_assert(kActionNone == 0 && kActionDrop == 1 && kActionToCpu == 2);

constexpr std::uintptr_t kExampleAddress = 0x55D0C8A41E20;
constexpr char kTaken[] = "the address is taken in this process; run again";

/// The bytes of a lim id.
std::string LimId(std::uint32_t lim_id) {
  std::string bytes(sizeof lim_id, '\0');
  std::memcpy(bytes.data(), &lim_id, sizeof lim_id);
  return bytes;
}

HostMessage ExampleMessage() {
  HostMessage message;
  message.set_dest_id(12);
  message.set_vlan_dest_id(5);
  message.set_lim_id(LimId(0x01000001));
  message.add_flags(encapsulation::ActionFlags{1});
  message.add_flags(encapsulation::ActionFlags{2});
  return message;
}

class HostRenderingTest : public testing_support::HaiTest {
 protected:
  HostRenderingTest() {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 2;
    InterfaceIds().ifindex = 0x01000107;
  }

  /// The part of the rendering of `message` after the address.
  static std::string Fields(const HostMessage& message) {
    const HostEncapsulationMessage wrapper(std::make_unique<HostMessage>(message));
    const std::string text = wrapper.ToString(true);
    const std::string start = "HostEncapsulationMessage(this=" + Address(&wrapper) + "): ";
    EXPECT_EQ(text.substr(0, start.size()), start);
    return text.substr(start.size());
  }
};

TEST_F(HostRenderingTest, ExampleAtItsAddress) {
  const ObjectAt<HostEncapsulationMessage> wrapper(kExampleAddress,
                                                   std::make_unique<HostMessage>(ExampleMessage()));
  ASSERT_NE(wrapper.get(), nullptr) << kTaken;
  EXPECT_EQ(
      wrapper.get()->ToString(true),
      "HostEncapsulationMessage(this=0x000055D0C8A41E20): HostMessage(host destination id(12), "
      "vlan destination id(5), lim id(name=eth3, type=0x02, value=0x000107), "
      "HAL Flags(Drop Packet, To CPU), destination mac address(Empty))");
}

TEST_F(HostRenderingTest, EveryFieldInOrder) {
  HostMessage message = ExampleMessage();
  message.set_dest_mac("\x02\x00\x00\x00\x01\x0a"s);
  EXPECT_EQ(Fields(message),
            "HostMessage(host destination id(12), vlan destination id(5), "
            "lim id(name=eth3, type=0x02, value=0x000107), HAL Flags(Drop Packet, To CPU), "
            "destination mac address(02:00:00:00:01:0a))");
  EXPECT_THAT(
      InterfaceIds().calls,
      ElementsAre("limid_to_type(0x01000001)", "limid_to_ifindex(0x01000001)",
                  "limid_to_intfname(0x01000001, size 64, flags 0)", "MACAddr(02:00:00:00:01:0a)"));
}

TEST_F(HostRenderingTest, LargestIdsAreUnsigned) {
  HostMessage message;
  message.set_dest_id(std::numeric_limits<std::uint32_t>::max());
  message.set_vlan_dest_id(std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Fields(message),
            "HostMessage(host destination id(4294967295), vlan destination id(4294967295), "
            "lim id(Empty), HAL Flags(), destination mac address(Empty))");
}

TEST_F(HostRenderingTest, PresentZeroVlanDestIdIsShown) {
  HostMessage message;
  message.set_vlan_dest_id(0);
  EXPECT_EQ(Fields(message),
            "HostMessage(host destination id(0), vlan destination id(0), lim id(Empty), "
            "HAL Flags(), destination mac address(Empty))");
}

struct FlagsCase {
  const char* name;
  std::vector<int> flags;
  const char* text;
};

class HostFlagsTest : public HostRenderingTest, public testing::WithParamInterface<FlagsCase> {};

TEST_P(HostFlagsTest, AreListed) {
  HostMessage message;
  // Bypasses the setter, which accepts known values only.
  for (const int flag : GetParam().flags) message.mutable_flags()->Add(flag);
  EXPECT_EQ(Fields(message),
            "HostMessage(host destination id(0), vlan destination id(Empty), lim id(Empty), "s +
                GetParam().text + ", destination mac address(Empty))");
}

INSTANTIATE_TEST_SUITE_P(Lists, HostFlagsTest,
                         testing::Values(FlagsCase{"Empty", {}, "HAL Flags()"},
                                         FlagsCase{"None", {0}, "HAL Flags(None)"},
                                         FlagsCase{"Drop", {1}, "HAL Flags(Drop Packet)"},
                                         FlagsCase{"ToCpu", {2}, "HAL Flags(To CPU)"},
                                         FlagsCase{
                                             "NoneAndUnknown", {0, 3}, "HAL Flags(None, None)"},
                                         FlagsCase{"Negative", {-1}, "HAL Flags(None)"},
                                         FlagsCase{"OrderAndDuplicates",
                                                   {2, 1, 0, 2},
                                                   "HAL Flags(To CPU, Drop Packet, None, To CPU)"}),
                         [](const auto& test) { return test.param.name; });

// A rendering with flags allocates exactly once more, for the copy.
TEST_F(HostRenderingTest, FlagsAreCopiedAtOnce) {
  const auto allocations = [](int flags) {
    auto message = std::make_unique<HostMessage>();
    for (int i = 0; i < flags; ++i) message->add_flags(encapsulation::ActionFlags{1});
    const HostEncapsulationMessage wrapper(std::move(message));
    const std::size_t before = testing_support::AllocationCount();
    wrapper.ToString(true);
    return testing_support::AllocationCount() - before;
  };

  EXPECT_EQ(allocations(1), allocations(0) + 1);
  EXPECT_EQ(allocations(9), allocations(0) + 1);
}

TEST_F(HostRenderingTest, LongListOfFlagsIsShownInFull) {
  HostMessage message;
  std::string labels = "Drop Packet";
  message.add_flags(encapsulation::ActionFlags{1});
  for (int i = 1; i < 200; ++i) {
    message.add_flags(encapsulation::ActionFlags{1});
    labels += ", Drop Packet";
  }
  EXPECT_EQ(Fields(message),
            "HostMessage(host destination id(0), vlan destination id(Empty), lim id(Empty), "
            "HAL Flags(" +
                labels + "), destination mac address(Empty))");
}

}  // namespace
