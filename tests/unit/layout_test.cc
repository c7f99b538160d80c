// The offsets of the members of the classes that the host program, the HAL client library and this
// library share in memory.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "dest_mng.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "tests/support/hai_test.h"
#include "zuskux/dest_app_messages.h"
#include "zuskux/dest_controllers.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace dest_mng {
namespace {

constexpr std::size_t kPointer = sizeof(void*);

// The value at `offset` bytes from the start of `object`.
template <typename T>
T ValueAt(const void* object, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(object) + offset, sizeof value);
  return value;
}

std::size_t OffsetOf(const void* member, const void* object) {
  return static_cast<std::size_t>(static_cast<const char*>(member) -
                                  static_cast<const char*>(object));
}

template <typename Derived, typename Base>
constexpr bool kAddsNothing = std::is_base_of_v<Base, Derived> && sizeof(Derived) == sizeof(Base);

static_assert(std::is_abstract_v<HaiL3MplsEncapsulation>);
static_assert(sizeof(HaiL3MplsEncapsulation) == kPointer);
static_assert(kAddsNothing<HaiL3MplsEncapsulationVlan, HaiL3MplsEncapsulation>);
static_assert(kAddsNothing<HaiL3MplsEncapsulationHost, HaiL3MplsEncapsulation>);
static_assert(kAddsNothing<HaiL3MplsEncapsulationMpls, HaiL3MplsEncapsulation>);
static_assert(std::is_empty_v<HaiL3MplsEncapsulationEcmp>);
static_assert(std::is_empty_v<HaiL3MplsEncapsulationVrf>);
static_assert(sizeof(HalL3MplsEncapsulationClient) == kPointer);
static_assert(sizeof(HalL3MplsEncapsulationReturnCode) == 4);
static_assert(sizeof(HalL3MplsEncapsulationClientCallbackItf) == kPointer);
static_assert(kAddsNothing<HaiDestClientCallback, HalL3MplsEncapsulationClientCallbackItf>);
static_assert(sizeof(Hai) == 3 * kPointer);
static_assert(sizeof(AppMessage) == 2 * kPointer);
static_assert(sizeof(HalL3MplsEncapsulationPrintable) == kPointer);
static_assert(sizeof(msg_ctrl::MessageController) == 3 * kPointer);
static_assert(kAddsNothing<AppDestVlanMessage, AppDestMessage>);
static_assert(kAddsNothing<AppDestHostMessage, AppDestMessage>);
static_assert(kAddsNothing<AppDestEcmpMessage, AppDestMessage>);
static_assert(kAddsNothing<AppDestMplsMessage, AppDestMessage>);
static_assert(kAddsNothing<AppVrfMessage, AppDestMessage>);
static_assert(kAddsNothing<MessageControllerVlan, msg_ctrl::MessageController>);
static_assert(kAddsNothing<MessageControllerHost, msg_ctrl::MessageController>);
static_assert(kAddsNothing<MessageControllerEcmp, msg_ctrl::MessageController>);
static_assert(kAddsNothing<MessageControllerMpls, msg_ctrl::MessageController>);
static_assert(kAddsNothing<VrfController, msg_ctrl::MessageController>);
static_assert(kAddsNothing<DbVlanObject, DbObject>);
static_assert(kAddsNothing<DbHostObject, DbObject>);
static_assert(kAddsNothing<DbMplsObject, DbObject>);

using LayoutTest = testing_support::HaiTest;

TEST_F(LayoutTest, HaiHoldsTheClientThenTheCallbackObject) {
  Hai hai;
  hai.set_client(&client_);

  EXPECT_EQ(ValueAt<void*>(&hai, kPointer), &client_);
  EXPECT_EQ(ValueAt<void*>(&hai, 2 * kPointer), hai.hal_encap_callback());
}

TEST_F(LayoutTest, AppDestMessageHoldsTheRecordThenANumberThenAText) {
  struct Members {
    void* virtual_table;
    google::protobuf::Message* record;
    std::int32_t number;
    std::string text;
  };
  static_assert(sizeof(AppDestMessage) == sizeof(Members));
  DestVlanMessage record;
  const AppDestMessage message(&record);
  const auto* const text = reinterpret_cast<const std::string*>(
      reinterpret_cast<const char*>(&message) + offsetof(Members, text));

  EXPECT_EQ(ValueAt<void*>(&message, offsetof(Members, record)), &record);
  EXPECT_EQ(ValueAt<std::int32_t>(&message, offsetof(Members, number)), 0);
  EXPECT_EQ(*text, "");
}

// Dirty memory reveals whether a member is initialised.
TEST_F(LayoutTest, AppDestMessageSetsItsNumberTo0) {
  alignas(AppDestMessage) unsigned char storage[sizeof(AppDestMessage)];
  std::memset(storage, 0xFF, sizeof storage);
  auto* const message = new (storage) AppDestMessage(nullptr);

  EXPECT_EQ(ValueAt<std::int32_t>(message, 2 * kPointer), 0);
  message->~AppDestMessage();
}

TEST_F(LayoutTest, ControllerHoldsItsMessageThenItsStrategy) {
  DestVlanMessage record;
  auto* const message = new AppDestVlanMessage(&record);
  alignas(MessageControllerVlan) unsigned char storage[sizeof(MessageControllerVlan)];
  std::memset(storage, 0xFF, sizeof storage);
  auto* const controller = new (storage) MessageControllerVlan(message);

  EXPECT_EQ(ValueAt<void*>(controller, kPointer), message);
  EXPECT_EQ(ValueAt<void*>(controller, 2 * kPointer), nullptr);
  controller->~MessageControllerVlan();
}

template <typename Wrapper>
class WrapperLayoutTest : public testing_support::HaiTest {};

using Wrappers =
    ::testing::Types<VlanEncapsulationMessage, HostEncapsulationMessage, MplsEncapsulationMessage,
                     EcmpEncapsulationMessage, VrfEncapsulationMessage>;
TYPED_TEST_SUITE(WrapperLayoutTest, Wrappers, testing_support::ClassNames);

TYPED_TEST(WrapperLayoutTest, HasTheMessageBaseFirstAndThePrintableBaseSecond) {
  TypeParam wrapper;

  EXPECT_EQ(OffsetOf(static_cast<AppMessage*>(&wrapper), &wrapper), 0U);
  EXPECT_EQ(OffsetOf(static_cast<HalL3MplsEncapsulationPrintable*>(&wrapper), &wrapper),
            sizeof(AppMessage));
  EXPECT_EQ(ValueAt<void*>(&wrapper, kPointer), wrapper.message());
}

TEST_F(LayoutTest, OwningWrappersAddNoMember) {
  constexpr std::size_t kBases = sizeof(AppMessage) + sizeof(HalL3MplsEncapsulationPrintable);

  EXPECT_EQ(sizeof(VlanEncapsulationMessage), kBases);
  EXPECT_EQ(sizeof(HostEncapsulationMessage), kBases);
  EXPECT_EQ(sizeof(MplsEncapsulationMessage), kBases);
}

TEST_F(LayoutTest, HoldingWrappersPointAtTheirMember) {
  constexpr std::size_t kBases = sizeof(AppMessage) + sizeof(HalL3MplsEncapsulationPrintable);
  EcmpEncapsulationMessage ecmp;
  VrfEncapsulationMessage vrf;

  EXPECT_EQ(sizeof ecmp, kBases + sizeof(encapsulation::EcmpMessage));
  EXPECT_EQ(OffsetOf(ecmp.message(), &ecmp), kBases);
  EXPECT_EQ(ecmp.encap(), ecmp.message());
  EXPECT_EQ(sizeof vrf, kBases + sizeof(encapsulation::VrfMessage));
  EXPECT_EQ(OffsetOf(vrf.message(), &vrf), kBases);
  EXPECT_EQ(vrf.encap(), vrf.message());
}

TEST_F(LayoutTest, DestinationObjectHoldsItsMembersInOrder) {
  using Lists = std::map<std::string, std::pair<db::AttributeType, std::vector<db::Attribute>>>;
  static_assert(std::is_same_v<decltype(DbObject::attribute_lists), Lists>);
  const DbVlanObject object;

  EXPECT_EQ(OffsetOf(&object.attribute_lists, &object), 0U);
  EXPECT_EQ(OffsetOf(&object.record, &object), sizeof(Lists));
  EXPECT_EQ(sizeof object.record, kPointer);
  EXPECT_EQ(OffsetOf(&object.list_attribute_name, &object), sizeof(Lists) + kPointer);
  EXPECT_EQ(OffsetOf(&object.attributes, &object), sizeof(Lists) + kPointer + sizeof(std::string));
}

TEST_F(LayoutTest, AttributeHoldsItsValueThenWhetherItIsPresent) {
  static_assert(std::has_virtual_destructor_v<db::Attribute>);
  const db::Attribute attribute;

  EXPECT_EQ(OffsetOf(&attribute.value, &attribute), kPointer);
  EXPECT_EQ(OffsetOf(&attribute.present, &attribute), kPointer + sizeof(db::Attribute::Value));
  static_assert(std::is_same_v<decltype(db::Attribute::present), bool>);
}

TEST_F(LayoutTest, EcmpDataBeginsWithTheDatabaseId) {
  EcmpData data;
  data.db_id = 7;

  EXPECT_EQ(ValueAt<std::uint32_t>(&data, 0), 7U);
}

TEST_F(LayoutTest, VrfDataHoldsTheVrfIdThenTheDatabaseId) {
  VrfData data;
  data.vrf_id = 5;
  data.db_id = 7;

  EXPECT_EQ(ValueAt<std::uint32_t>(&data, 0), 5U);
  EXPECT_EQ(ValueAt<std::uint32_t>(&data, 4), 7U);
  EXPECT_EQ(sizeof data, 8U);
}

}  // namespace
}  // namespace dest_mng
