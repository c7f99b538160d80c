/// What the texts of VLAN, host and MPLS messages share: the address, the interface of the lim id
/// and the MAC address. Each kind's own tests check the other fields.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace {

using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Address;
using testing_support::InterfaceIds;
using testing_support::ObjectAt;

constexpr char kNoLimId[] = "lim id(Empty)";

// Each kind: its message, and the text of one that has a lim id or a MAC address only.

struct Vlan {
  using Message = encapsulation::VlanMessage;
  using Wrapper = VlanEncapsulationMessage;
  static constexpr char kNoMac[] = "source source mac address(Empty)";
  static void SetMac(Message* message, const std::string& mac) {
    message->set_source_mac_address(mac);
  }
  static std::string Mac(const std::string& text) { return "source mac address(" + text + ")"; }
  static std::string Text(const std::string& lim_id, const std::string& mac) {
    return "VlanMessage(vlan destination id(0), " + lim_id + ", vrf=Empty, mtu=Empty, " + mac + ")";
  }
};

struct Host {
  using Message = encapsulation::HostMessage;
  using Wrapper = HostEncapsulationMessage;
  static constexpr char kNoMac[] = "destination mac address(Empty)";
  static void SetMac(Message* message, const std::string& mac) { message->set_dest_mac(mac); }
  static std::string Mac(const std::string& text) {
    return "destination mac address(" + text + ")";
  }
  static std::string Text(const std::string& lim_id, const std::string& mac) {
    return "HostMessage(host destination id(0), vlan destination id(Empty), " + lim_id +
           ", HAL Flags(), " + mac + ")";
  }
};

struct Mpls {
  using Message = encapsulation::MplsMessage;
  using Wrapper = MplsEncapsulationMessage;
  static constexpr char kNoMac[] = "destination mac address(Empty)";
  static void SetMac(Message* message, const std::string& mac) { message->set_dest_mac(mac); }
  static std::string Mac(const std::string& text) {
    return "destination mac address(" + text + ")";
  }
  static std::string Text(const std::string& lim_id, const std::string& mac) {
    return "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), " + lim_id +
           ", " + mac + ", labels(size=0), MPLS Capabilities(), HAL Flag(None))";
  }
};

template <typename Kind>
class RenderingTest : public testing_support::HaiTest {
 protected:
  using Message = typename Kind::Message;
  using Wrapper = typename Kind::Wrapper;

  RenderingTest() : message_(new Message), wrapper_(std::unique_ptr<Message>(message_)) {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 0x02;
    InterfaceIds().ifindex = 0x01000103;
  }

  static std::string Head(const std::string& address) {
    return testing_support::ClassName<Wrapper>() + "(this=" + address + ")";
  }

  /// The whole text of the wrapper, whose message has these two fields.
  std::string Expected(const std::string& lim_id, const std::string& mac) const {
    return Head(Address(&wrapper_)) + ": " + Kind::Text(lim_id, mac);
  }

  /// Owned by the wrapper.
  Message* message_;
  Wrapper wrapper_;
};

using Kinds = ::testing::Types<Vlan, Host, Mpls>;
TYPED_TEST_SUITE(RenderingTest, Kinds, testing_support::ClassNames);

TYPED_TEST(RenderingTest, ShowsItsOwnAddressWithNothingToShow) {
  // Every digit either is a leading zero or differs between upper and lower case.
  const ObjectAt<typename TypeParam::Wrapper> wrapper(
      0x00007FFC1A2B3C40, std::make_unique<typename TypeParam::Message>());
  ASSERT_NE(wrapper.get(), nullptr) << "the address is taken in this process; run again";
  const std::string head = this->Head("0x00007FFC1A2B3C40");
  EXPECT_EQ(wrapper.get()->ToString(false), head);
  EXPECT_EQ(wrapper.get()->ToString(true),
            head + ": " + TypeParam::Text(kNoLimId, TypeParam::kNoMac));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
}

TYPED_TEST(RenderingTest, ShowsNameAndAddressOnlyWhenShort) {
  this->message_->set_lim_id("1234");
  TypeParam::SetMac(this->message_, "123456");
  EXPECT_EQ(this->wrapper_.ToString(false), this->Head(Address(&this->wrapper_)));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
}

TYPED_TEST(RenderingTest, ReadsWithoutAMessageLikeAnEmptyOne) {
  const typename TypeParam::Wrapper without;
  const std::string head = this->Head(Address(&without));
  EXPECT_EQ(without.ToString(false), head);
  EXPECT_EQ(without.ToString(true), head + ": " + TypeParam::Text(kNoLimId, TypeParam::kNoMac));
}

TYPED_TEST(RenderingTest, ShowsTheWholeObjectThroughThePrintableBase) {
  const HalL3MplsEncapsulationPrintable& printable = this->wrapper_;
  ASSERT_NE(static_cast<const void*>(&printable), static_cast<const void*>(&this->wrapper_));
  this->message_->set_lim_id("1234");
  EXPECT_EQ(printable.ToString(false), this->Head(Address(&this->wrapper_)));
  EXPECT_EQ(printable.ToString(true), this->wrapper_.ToString(true));
}

TYPED_TEST(RenderingTest, PassesTheFirstFourBytesOfTheLimIdInHostByteOrder) {
  const std::string bytes = "\x81\x92\xA3\xB4\xC5"s;
  for (std::size_t size = 0; size <= bytes.size(); ++size) {
    SCOPED_TRACE(size);
    InterfaceIds().calls.clear();
    this->message_->set_lim_id(bytes.substr(0, size));
    // Missing bytes read as 0.
    std::uint32_t lim_id = 0;
    std::memcpy(&lim_id, bytes.data(), std::min(size, sizeof lim_id));
    char id[11];
    ASSERT_EQ(std::snprintf(id, sizeof id, "0x%08x", lim_id), 10);
    EXPECT_EQ(this->wrapper_.ToString(true),
              this->Expected("lim id(name=eth3, type=0x02, value=0x000103)", TypeParam::kNoMac));
    EXPECT_THAT(InterfaceIds().calls,
                ElementsAre("limid_to_type("s + id + ")", "limid_to_ifindex("s + id + ")",
                            "limid_to_intfname("s + id + ", size 64, flags 0)"));
  }
}

TYPED_TEST(RenderingTest, ShowsTheInterfaceOfTheLimId) {
  struct Case {
    const char* what;
    std::optional<std::string> name;
    std::optional<std::uint8_t> type;
    std::uint32_t ifindex;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"unknown", {}, {}, 0, "lim id(name=, type=0x00, value=0x000000)"},
      {"without a type", "eth3", {}, 7, "lim id(name=eth3, type=0x00, value=0x000007)"},
      {"without a name", {}, 2, 7, "lim id(name=, type=0x02, value=0x000007)"},
      {"largest type", "e", 0xFF, 0, "lim id(name=e, type=0xFF, value=0x000000)"},
      {"index of 24 bits", "e", 1, 0xFFFFFF, "lim id(name=e, type=0x01, value=0xFFFFFF)"},
      {"index of 25 bits", "e", 1, 0x1000000, "lim id(name=e, type=0x01, value=0x000000)"},
      {"index of 32 bits", "e", 1, 0xFEDCBA98, "lim id(name=e, type=0x01, value=0xDCBA98)"},
      {"name with a zero byte", "ab\0cd"s, 1, 1, "lim id(name=ab, type=0x01, value=0x000001)"},
      {"name of 63 characters", std::string(63, 'n'), 1, 1,
       "lim id(name=" + std::string(63, 'n') + ", type=0x01, value=0x000001)"},
      {"name of 64 characters", std::string(64, 'n'), 1, 1,
       "lim id(name=" + std::string(64, 'n') + ", type=0x01, value=0x000001)"}};
  this->message_->set_lim_id("1234");
  for (const Case& one : cases) {
    InterfaceIds().name = one.name;
    InterfaceIds().type = one.type;
    InterfaceIds().ifindex = one.ifindex;
    EXPECT_EQ(this->wrapper_.ToString(true), this->Expected(one.expected, TypeParam::kNoMac))
        << one.what;
  }
}

TYPED_TEST(RenderingTest, ShowsTheFirstSixBytesOfTheMacAddress) {
  struct Case {
    std::string bytes;
    const char* text;
  };
  // Missing bytes read as 0.
  for (const Case& one : {Case{"\x02\xff\x00\x00\x01\x0a"s, "02:ff:00:00:01:0a"},
                          Case{"\x02\xff\x00\x00\x01\x0a\x77"s, "02:ff:00:00:01:0a"},
                          Case{"\x02\xff"s, "02:ff:00:00:00:00"}, Case{"", "00:00:00:00:00:00"}}) {
    InterfaceIds().calls.clear();
    TypeParam::SetMac(this->message_, one.bytes);
    EXPECT_EQ(this->wrapper_.ToString(true), this->Expected(kNoLimId, TypeParam::Mac(one.text)))
        << one.bytes.size() << " bytes";
    EXPECT_THAT(InterfaceIds().calls, ElementsAre("MACAddr("s + one.text + ")"));
  }
}

}  // namespace
