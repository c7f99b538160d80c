// The common behaviour of all printable messages, of the kinds that own a heap message, and of
// those that hold theirs by value.

#include "hal_client/hal_l3_mpls_encapsulation_printable.h"

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::Frame;
using testing_support::GuardedBytes;
using testing_support::LiveWithoutEvents;
using testing_support::WatchDeletion;

template <typename WrapperType, typename MessageType>
struct Kind {
  using Wrapper = WrapperType;
  using Message = MessageType;
};

using VlanKind = Kind<VlanEncapsulationMessage, encapsulation::VlanMessage>;
using HostKind = Kind<HostEncapsulationMessage, encapsulation::HostMessage>;
using MplsKind = Kind<MplsEncapsulationMessage, encapsulation::MplsMessage>;
using EcmpKind = Kind<EcmpEncapsulationMessage, encapsulation::EcmpMessage>;
using VrfKind = Kind<VrfEncapsulationMessage, encapsulation::VrfMessage>;

struct KindNames {
  template <typename K>
  static std::string GetName(int /*index*/) {
    return testing_support::ClassName<typename K::Wrapper>();
  }
};

void Fill(encapsulation::VlanMessage* message) { message->set_vlan_destination_id(12); }
void Fill(encapsulation::HostMessage* message) { message->set_dest_id(12); }
void Fill(encapsulation::MplsMessage* message) { message->set_dest_id(12); }
void Fill(encapsulation::EcmpMessage* message) { message->set_db_id(12); }
void Fill(encapsulation::VrfMessage* message) { message->set_vrf_id(12); }

template <typename Message>
std::unique_ptr<Message> Filled() {
  auto message = std::make_unique<Message>();
  Fill(message.get());
  return message;
}

// A payload that no kind can parse: field 1 claims to be longer than the payload.
constexpr char kCutShort[] =
    "\x0A\x05"
    "ab";

// Every kind.

template <typename K>
class PrintableTest : public testing_support::HaiTest {
 protected:
  static bool Unserialize(typename K::Wrapper* wrapper, const std::string& frame) {
    return wrapper->Unserialize(GuardedBytes(frame).data());
  }
};

using Kinds = ::testing::Types<VlanKind, HostKind, MplsKind, EcmpKind, VrfKind>;
TYPED_TEST_SUITE(PrintableTest, Kinds, KindNames);

TYPED_TEST(PrintableTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<typename TypeParam::Wrapper>);
  EXPECT_FALSE(std::is_copy_assignable_v<typename TypeParam::Wrapper>);
}

TYPED_TEST(PrintableTest, UnserializesAPayload) {
  typename TypeParam::Wrapper wrapper;
  const std::string payload = Filled<typename TypeParam::Message>()->SerializeAsString();

  EXPECT_TRUE(this->Unserialize(&wrapper, Frame(payload)));
  ASSERT_NE(dynamic_cast<typename TypeParam::Message*>(wrapper.message()), nullptr);
  EXPECT_EQ(wrapper.message()->SerializeAsString(), payload);
}

TYPED_TEST(PrintableTest, UnserializesAnEmptyPayload) {
  typename TypeParam::Wrapper wrapper;

  EXPECT_TRUE(this->Unserialize(&wrapper, Frame("")));
  ASSERT_NE(dynamic_cast<typename TypeParam::Message*>(wrapper.message()), nullptr);
  EXPECT_EQ(wrapper.message()->ByteSizeLong(), 0U);
}

TYPED_TEST(PrintableTest, IgnoresTheHeaderWord) {
  const std::string payload = Filled<typename TypeParam::Message>()->SerializeAsString();
  for (const char byte : {'\0', '\x7F', '\xFF'}) {
    typename TypeParam::Wrapper wrapper;
    const std::string frame = Frame(payload).replace(0, 4, std::string(4, byte));

    EXPECT_TRUE(this->Unserialize(&wrapper, frame));
    EXPECT_EQ(wrapper.message()->SerializeAsString(), payload);
  }
}

TYPED_TEST(PrintableTest, UnserializesThroughTheMessageBase) {
  const std::unique_ptr<AppMessage> wrapper = std::make_unique<typename TypeParam::Wrapper>();
  const std::string payload = Filled<typename TypeParam::Message>()->SerializeAsString();
  std::string frame = Frame(payload);

  EXPECT_TRUE(wrapper->Unserialize(frame.data()));
  EXPECT_EQ(wrapper->message()->SerializeAsString(), payload);
}

TYPED_TEST(PrintableTest, RefusesAPayloadThatDoesNotParse) {
  typename TypeParam::Wrapper wrapper;

  EXPECT_FALSE(this->Unserialize(&wrapper, Frame(kCutShort)));
  EXPECT_NE(dynamic_cast<typename TypeParam::Message*>(wrapper.message()), nullptr);
}

TYPED_TEST(PrintableTest, RefusesLengthsOfMoreThan31BitsWithoutReading) {
  for (const std::uint32_t length : {0x80000000U, 0xFFFFFFFFU}) {
    typename TypeParam::Wrapper wrapper;

    EXPECT_FALSE(this->Unserialize(&wrapper, Frame("", length)));
    ASSERT_NE(dynamic_cast<typename TypeParam::Message*>(wrapper.message()), nullptr);
    EXPECT_EQ(wrapper.message()->ByteSizeLong(), 0U);
  }
}

TYPED_TEST(PrintableTest, RendersTheSameThroughBothBases) {
  typename TypeParam::Wrapper wrapper;
  const HalL3MplsEncapsulationPrintable& printable = wrapper;

  EXPECT_EQ(printable.ToString(true), wrapper.ToString(true));
  EXPECT_EQ(printable.ToString(false), wrapper.ToString(false));
}

TYPED_TEST(PrintableTest, IsFullyDestroyedThroughTheMessageBase) {
  const auto before = LiveWithoutEvents();
  auto* const wrapper = new typename TypeParam::Wrapper;
  std::string frame = Frame(Filled<typename TypeParam::Message>()->SerializeAsString());
  wrapper->Unserialize(frame.data());
  WatchDeletion(wrapper, "wrapper freed");
  delete static_cast<AppMessage*>(wrapper);

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed", "wrapper freed"));
  frame = std::string();
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TYPED_TEST(PrintableTest, IsFullyDestroyedThroughThePrintableBase) {
  const auto before = LiveWithoutEvents();
  auto* const wrapper = new typename TypeParam::Wrapper;
  std::string frame = Frame(Filled<typename TypeParam::Message>()->SerializeAsString());
  wrapper->Unserialize(frame.data());
  WatchDeletion(wrapper, "wrapper freed");
  delete static_cast<HalL3MplsEncapsulationPrintable*>(wrapper);

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed", "wrapper freed"));
  frame = std::string();
  EXPECT_EQ(LiveWithoutEvents(), before);
}

// The kinds that own a heap message.

template <typename K>
class OwningPrintableTest : public PrintableTest<K> {};

using OwningKinds = ::testing::Types<VlanKind, HostKind, MplsKind>;
TYPED_TEST_SUITE(OwningPrintableTest, OwningKinds, KindNames);

TYPED_TEST(OwningPrintableTest, TakesOwnershipOfItsMessage) {
  auto message = Filled<typename TypeParam::Message>();
  auto* const address = message.get();
  WatchDeletion(address);
  {
    const typename TypeParam::Wrapper wrapper(std::move(message));
    EXPECT_EQ(wrapper.message(), address);
    EXPECT_THAT(Events(), IsEmpty());
  }

  EXPECT_THAT(Events(), ElementsAre("message freed", "AppMessage destroyed"));
}

TYPED_TEST(OwningPrintableTest, IsDestroyedWithoutAMessage) {
  {
    const typename TypeParam::Wrapper wrapper;
    EXPECT_EQ(wrapper.message(), nullptr);
  }

  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
}

TYPED_TEST(OwningPrintableTest, RendersWithoutAMessageLikeAnEmptyOne) {
  const typename TypeParam::Wrapper without;
  const typename TypeParam::Wrapper with(std::make_unique<typename TypeParam::Message>());
  const std::string prefix = without.ToString(false);

  EXPECT_EQ(without.ToString(true).substr(prefix.size()),
            with.ToString(true).substr(prefix.size()));
}

TYPED_TEST(OwningPrintableTest, OwnsTheMessageItUnserialized) {
  typename TypeParam::Wrapper* const wrapper = new typename TypeParam::Wrapper;
  EXPECT_TRUE(this->Unserialize(wrapper, Frame("")));
  WatchDeletion(wrapper->message());
  delete wrapper;

  EXPECT_THAT(Events(), ElementsAre("message freed", "AppMessage destroyed"));
}

TYPED_TEST(OwningPrintableTest, OwnsTheMessageOfAPayloadThatDidNotParse) {
  typename TypeParam::Wrapper* const wrapper = new typename TypeParam::Wrapper;
  EXPECT_FALSE(this->Unserialize(wrapper, Frame(kCutShort)));
  WatchDeletion(wrapper->message());
  delete wrapper;

  EXPECT_THAT(Events(), ElementsAre("message freed", "AppMessage destroyed"));
}

TYPED_TEST(OwningPrintableTest, LeavesAnEarlierMessageAlone) {
  for (const char* payload : {"", kCutShort}) {
    Events().clear();
    // Owned here as well: the wrapper drops it without deleting it.
    const std::unique_ptr<typename TypeParam::Message> first(
        Filled<typename TypeParam::Message>().release());
    const std::string content = first->SerializeAsString();
    typename TypeParam::Wrapper wrapper{std::unique_ptr<typename TypeParam::Message>(first.get())};
    WatchDeletion(first.get());

    EXPECT_EQ(this->Unserialize(&wrapper, Frame(payload)), *payload == '\0');
    EXPECT_NE(wrapper.message(), first.get());
    EXPECT_THAT(Events(), IsEmpty());
    EXPECT_EQ(first->SerializeAsString(), content);
    WatchDeletion(nullptr);
  }
}

TYPED_TEST(OwningPrintableTest, DoesNotDeleteThePreviousMessage) {
  typename TypeParam::Wrapper wrapper;
  ASSERT_TRUE(this->Unserialize(&wrapper,
                                Frame(Filled<typename TypeParam::Message>()->SerializeAsString())));
  const std::unique_ptr<google::protobuf::Message> first(wrapper.message());
  WatchDeletion(first.get());
  ASSERT_TRUE(this->Unserialize(&wrapper, Frame("")));

  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_NE(wrapper.message(), first.get());
  EXPECT_EQ(first->SerializeAsString(), Filled<typename TypeParam::Message>()->SerializeAsString());
}

template <typename K>
class OwningPrintableDeathTest : public PrintableTest<K> {};

TYPED_TEST_SUITE(OwningPrintableDeathTest, OwningKinds, KindNames);

// Neither the length can be read nor memory be allocated: allocating first would throw.
TYPED_TEST(OwningPrintableDeathTest, ReadsTheLengthBeforeItAllocates) {
  typename TypeParam::Wrapper wrapper;
  const GuardedBytes header_word("HEAD");

  EXPECT_DEATH(
      {
        testing_support::FailAllocation(1);
        wrapper.Unserialize(header_word.data());
      },
      "");
}

// Fields that are shorter than their values.

std::string* MacOf(encapsulation::VlanMessage* message) {
  return message->mutable_source_mac_address();
}
template <typename Message>
std::string* MacOf(Message* message) {
  return message->mutable_dest_mac();
}

template <typename K>
class ShortFieldTest : public PrintableTest<K> {};

TYPED_TEST_SUITE(ShortFieldTest, OwningKinds, KindNames);

TYPED_TEST(ShortFieldTest, IsPaddedWithZeros) {
  auto message = std::make_unique<typename TypeParam::Message>();
  message->set_lim_id(std::string(1, '\x61'));
  *MacOf(message.get()) = std::string(2, '\x62');
  const typename TypeParam::Wrapper wrapper(std::move(message));
  wrapper.ToString(true);

  EXPECT_THAT(
      testing_support::InterfaceIds().calls,
      ElementsAre("limid_to_type(0x00000061)", "limid_to_ifindex(0x00000061)",
                  "limid_to_intfname(0x00000061, size 64, flags 0)", "MACAddr(62:62:00:00:00:00)"));
}

// A field that becomes shorter keeps its buffer, including the bytes of its old content.
TYPED_TEST(ShortFieldTest, ShowsNothingOfItsOldContent) {
  auto message = std::make_unique<typename TypeParam::Message>();
  message->set_lim_id("\x71\x71\x71\x71");
  *MacOf(message.get()) = "\x72\x72\x72\x72\x72\x72";
  message->mutable_lim_id()->assign(1, '\x61');
  MacOf(message.get())->assign(2, '\x62');
  ASSERT_EQ(message->lim_id().data()[2], '\x71') << "the old content is gone anyway";
  const typename TypeParam::Wrapper wrapper(std::move(message));
  wrapper.ToString(true);

  EXPECT_THAT(
      testing_support::InterfaceIds().calls,
      ElementsAre("limid_to_type(0x00000061)", "limid_to_ifindex(0x00000061)",
                  "limid_to_intfname(0x00000061, size 64, flags 0)", "MACAddr(62:62:00:00:00:00)"));
}

// The kinds that hold their message by value.

template <typename K>
class HoldingPrintableTest : public PrintableTest<K> {};

using HoldingKinds = ::testing::Types<EcmpKind, VrfKind>;
TYPED_TEST_SUITE(HoldingPrintableTest, HoldingKinds, KindNames);

TYPED_TEST(HoldingPrintableTest, KeepsItsMessage) {
  typename TypeParam::Wrapper wrapper;
  auto* const message = wrapper.encap();
  Fill(message);

  EXPECT_EQ(wrapper.message(), message);
  EXPECT_TRUE(this->Unserialize(&wrapper, Frame("")));
  EXPECT_EQ(wrapper.message(), message);
  EXPECT_EQ(message->ByteSizeLong(), 0U) << "the previous content is still there";
}

// ToHexString.

class HexTest : public ::testing::Test {
 protected:
  template <typename T>
  static std::string Hex(T value, std::size_t width) {
    return EcmpEncapsulationMessage().ToHexString(value, width);
  }
};

TEST_F(HexTest, WritesTheWidthsOfTheRenderings) {
  EXPECT_EQ(Hex<unsigned int>(0x12345678, 6), "0x345678");
  EXPECT_EQ(Hex<unsigned char>(0x0A, 2), "0x0A");
  EXPECT_EQ(Hex<unsigned long>(0, 16), "0x0000000000000000");
  EXPECT_EQ(Hex<unsigned long>(0x00007FFC1A2B3C40, 16), "0x00007FFC1A2B3C40");
}

TEST_F(HexTest, WritesEveryDigit) {
  EXPECT_EQ(Hex<unsigned long>(0x0123456789ABCDEF, 16), "0x0123456789ABCDEF");
  EXPECT_EQ(Hex<unsigned long>(0xFEDCBA9876543210, 16), "0xFEDCBA9876543210");
  EXPECT_EQ(Hex<unsigned char>(0xFF, 2), "0xFF");
}

TEST_F(HexTest, PadsWithZeros) {
  EXPECT_EQ(Hex<unsigned int>(0xA, 6), "0x00000A");
  EXPECT_EQ(Hex<unsigned char>(0, 2), "0x00");
}

TEST_F(HexTest, PadsBeyondTheType) {
  EXPECT_EQ(Hex<unsigned char>(0xFF, 4), "0x00FF");
  EXPECT_EQ(Hex<unsigned int>(0xFFFFFFFF, 16), "0x00000000FFFFFFFF");
  EXPECT_EQ(Hex<unsigned long>(0xFFFFFFFFFFFFFFFF, 20), "0x0000FFFFFFFFFFFFFFFF");
}

TEST_F(HexTest, DropsHigherNibbles) {
  EXPECT_EQ(Hex<unsigned char>(0xAB, 1), "0xB");
  EXPECT_EQ(Hex<unsigned long>(0xFFFFFFFF00000001, 8), "0x00000001");
}

TEST_F(HexTest, AllocatesForTheAddressOnly) {
  const EcmpEncapsulationMessage printable;
  const std::size_t before = testing_support::AllocationCount();
  EXPECT_EQ(printable.ToHexString<unsigned char>(0xAB, 2).size(), 4U);
  EXPECT_EQ(printable.ToHexString<unsigned int>(0xABCDEF, 6).size(), 8U);
  EXPECT_EQ(testing_support::AllocationCount(), before);

  EXPECT_EQ(printable.ToHexString<unsigned long>(0xABCDEF, 16).size(), 18U);
  EXPECT_EQ(testing_support::AllocationCount(), before + 1);
}

TEST_F(HexTest, WritesThePrefixOnlyForWidth0) { EXPECT_EQ(Hex<unsigned int>(0xFF, 0), "0x"); }

}  // namespace
