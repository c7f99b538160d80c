#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace {

using testing_support::Address;
using testing_support::InterfaceIds;

using encapsulation::VlanMessage;

// A lim id's bytes in a message.
std::string LimId(std::uint32_t id) {
  std::string bytes(sizeof id, '\0');
  std::memcpy(bytes.data(), &id, sizeof id);
  return bytes;
}

std::string Mac(std::string_view bytes) { return std::string(bytes); }

constexpr std::string_view kMac("\x00\x11\x22\x33\x44\x55", 6);

class VlanRenderingTest : public testing_support::HaiTest {
 protected:
  VlanRenderingTest()
      : message_(new VlanMessage), wrapper_(std::unique_ptr<VlanMessage>(message_)) {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 0x02;
    InterfaceIds().ifindex = 0x01000103;
  }

  // The part of the full rendering after the name and the address.
  std::string Fields() const {
    const std::string prefix = "VlanEncapsulationMessage(this=" + Address(&wrapper_) + ")";
    const std::string text = wrapper_.ToString(true);
    EXPECT_EQ(text.substr(0, prefix.size()), prefix);
    return text.substr(prefix.size());
  }

  VlanMessage* message_;
  VlanEncapsulationMessage wrapper_;
};

void FillExample(VlanMessage* message) {
  message->set_vlan_destination_id(12);
  message->set_lim_id(LimId(0x01020304));
  message->set_vrf(5);
  message->set_mtu(1500);
  message->set_source_mac_address(Mac(kMac));
}

TEST_F(VlanRenderingTest, ShowsEveryField) {
  FillExample(message_);

  EXPECT_EQ(wrapper_.ToString(true),
            "VlanEncapsulationMessage(this=" + Address(&wrapper_) +
                "): VlanMessage(vlan destination id(12), lim id(name=eth3, type=0x02, "
                "value=0x000103), vrf=5, mtu=1500, source mac address(00:11:22:33:44:55))");
}

TEST_F(VlanRenderingTest, ShowsAbsentFieldsAsEmpty) {
  EXPECT_EQ(wrapper_.ToString(true),
            "VlanEncapsulationMessage(this=" + Address(&wrapper_) +
                "): VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=Empty, "
                "source source mac address(Empty))");
}

TEST_F(VlanRenderingTest, ShowsItsOwnAddress) {
  auto message = std::make_unique<VlanMessage>();
  FillExample(message.get());
  const testing_support::ObjectAt<VlanEncapsulationMessage> full(0x00007FFC1A2B3C40,
                                                                 std::move(message));
  ASSERT_NE(full.get(), nullptr) << "the address is taken in this process; run again";

  EXPECT_EQ(full.get()->ToString(true),
            "VlanEncapsulationMessage(this=0x00007FFC1A2B3C40): VlanMessage(vlan destination "
            "id(12), lim id(name=eth3, type=0x02, value=0x000103), vrf=5, mtu=1500, source mac "
            "address(00:11:22:33:44:55))");
  EXPECT_EQ(full.get()->ToString(false), "VlanEncapsulationMessage(this=0x00007FFC1A2B3C40)");
}

TEST_F(VlanRenderingTest, ShowsNoListAndNoCapability) {
  const std::string before = Fields();
  message_->add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  message_->add_list_values("a");

  EXPECT_EQ(Fields(), before);
}

struct FieldCase {
  const char* name;
  void (*set)(VlanMessage* message);
  const char* expected;
};

class VlanFieldTest : public VlanRenderingTest, public ::testing::WithParamInterface<FieldCase> {};

TEST_P(VlanFieldTest, IsShown) {
  GetParam().set(message_);

  EXPECT_EQ(Fields(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    , VlanFieldTest,
    ::testing::Values(
        FieldCase{"DestinationId0",
                  [](VlanMessage* message) { message->set_vlan_destination_id(0); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=Empty, "
                  "source source mac address(Empty))"},
        FieldCase{"DestinationIdLargest",
                  [](VlanMessage* message) { message->set_vlan_destination_id(0xFFFFFFFF); },
                  ": VlanMessage(vlan destination id(4294967295), lim id(Empty), vrf=Empty, "
                  "mtu=Empty, source source mac address(Empty))"},
        FieldCase{"LimId", [](VlanMessage* message) { message->set_lim_id(LimId(1)); },
                  ": VlanMessage(vlan destination id(0), lim id(name=eth3, type=0x02, "
                  "value=0x000103), vrf=Empty, mtu=Empty, source source mac address(Empty))"},
        FieldCase{"Vrf", [](VlanMessage* message) { message->set_vrf(5); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=5, mtu=Empty, "
                  "source source mac address(Empty))"},
        FieldCase{"Vrf0", [](VlanMessage* message) { message->set_vrf(0); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=0, mtu=Empty, "
                  "source source mac address(Empty))"},
        FieldCase{"VrfLargest", [](VlanMessage* message) { message->set_vrf(0xFFFFFFFF); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=4294967295, mtu=Empty, "
                  "source source mac address(Empty))"},
        FieldCase{"Mtu", [](VlanMessage* message) { message->set_mtu(1500); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=1500, "
                  "source source mac address(Empty))"},
        FieldCase{"Mtu0", [](VlanMessage* message) { message->set_mtu(0); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=Empty, "
                  "source source mac address(Empty))"},
        FieldCase{"MtuLargest", [](VlanMessage* message) { message->set_mtu(0xFFFFFFFF); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=4294967295, "
                  "source source mac address(Empty))"},
        FieldCase{"SourceMac",
                  [](VlanMessage* message) { message->set_source_mac_address(Mac(kMac)); },
                  ": VlanMessage(vlan destination id(0), lim id(Empty), vrf=Empty, mtu=Empty, "
                  "source mac address(00:11:22:33:44:55))"}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
