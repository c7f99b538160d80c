// The order of virtual operations, on which separately built callers rely. Each operation is called
// through its slot of the virtual table, as such a caller does, and recognised by its effect.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "app_framework/strategy.h"
#include "dest_mng.pb.h"
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

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing_support::AddEvent;
using testing_support::Events;
using testing_support::Frame;
using testing_support::WatchDeletion;

constexpr std::size_t kCompleteDestructor = 0;
constexpr std::size_t kDeletingDestructor = 1;

// Calls the operation in `slot` of the virtual table that `object` points to. In the Itanium C++
// ABI, a member function is a function that takes the object first.
template <typename Result, typename... Arguments>
Result CallSlot(const void* object, std::size_t slot, Arguments... arguments) {
  using Function = Result (*)(const void*, Arguments...);
  const char* table = nullptr;
  std::memcpy(&table, object, sizeof table);
  Function function = nullptr;
  std::memcpy(&function, table + slot * sizeof function, sizeof function);
  return function(object, arguments...);
}

// A heap object and its address under test, which may be that of a base.
struct HeapObject {
  void* whole;
  const void* tested;
};

template <typename Base, typename Derived>
HeapObject On(Derived* object) {
  return {object, static_cast<const Base*>(object)};
}

std::vector<std::string> Joined(std::vector<std::string> events, const char* last) {
  events.emplace_back(last);
  return events;
}

// Expects the two destructors in slots 0 and 1: both have `effects`, but only the second one frees.
void ExpectDestructors(const std::function<HeapObject()>& make,
                       const std::vector<std::string>& effects) {
  const HeapObject kept = make();
  WatchDeletion(kept.whole, "freed");
  Events().clear();
  CallSlot<void>(kept.tested, kCompleteDestructor);
  EXPECT_EQ(Events(), effects);
  ::operator delete(kept.whole);
  EXPECT_EQ(Events(), Joined(effects, "freed"));

  const HeapObject freed = make();
  WatchDeletion(freed.whole, "freed");
  Events().clear();
  CallSlot<void>(freed.tested, kDeletingDestructor);
  EXPECT_EQ(Events(), Joined(effects, "freed"));
}

using VirtualTableTest = testing_support::HaiTest;

TEST_F(VirtualTableTest, Hai) {
  const auto make = [] {
    auto* const hai = new class Hai;
    WatchDeletion(hai->hal_encap_callback(), "callback freed");
    return On<class Hai>(hai);
  };
  ExpectDestructors(make, {"callback freed"});
}

// Adapters.

template <typename AdapterType, typename ObjectType, typename RecordType>
struct AdapterKind {
  using Adapter = AdapterType;
  using Object = testing_support::TestObject<ObjectType, RecordType>;
};

struct VlanAdapter : AdapterKind<HaiL3MplsEncapsulationVlan, DbVlanObject, DestVlanMessage> {
  static constexpr char kKind[] = "VlanOutgoing";
};
struct HostAdapter : AdapterKind<HaiL3MplsEncapsulationHost, DbHostObject, DestHostMessage> {
  static constexpr char kKind[] = "HostOutgoing";
};
struct MplsAdapter : AdapterKind<HaiL3MplsEncapsulationMpls, DbMplsObject, DestMplsMessage> {
  static constexpr char kKind[] = "MplsUnprotectedOutgoing";
};

template <typename Kind>
class AdapterTableTest : public testing_support::HaiTest {
 protected:
  // The HAL operation that the adapter's operation in `slot` calls, without the kind.
  std::string HalOperation(std::size_t slot) {
    const typename Kind::Adapter adapter;
    typename Kind::Object object;
    testing_support::SetTrace(false);
    Events().clear();
    EXPECT_EQ(CallSlot<int>(&adapter, slot, object.pointer()), 0);
    const std::string event = Events().empty() ? "no event" : Events().front();
    const std::size_t kind = event.find(std::string(Kind::kKind) + "Encapsulation ");
    return kind == std::string::npos ? event : event.substr(0, kind);
  }
};

using AdapterKinds = ::testing::Types<VlanAdapter, HostAdapter, MplsAdapter>;
TYPED_TEST_SUITE(AdapterTableTest, AdapterKinds, testing_support::ClassNames);

TYPED_TEST(AdapterTableTest, HasItsOperationsInOrder) {
  ExpectDestructors([] { return On<HaiL3MplsEncapsulation>(new typename TypeParam::Adapter); }, {});
  EXPECT_EQ(this->HalOperation(2), "hal Install");
  EXPECT_EQ(this->HalOperation(3), "hal Replace");
  EXPECT_EQ(this->HalOperation(4), "hal Destroy");
}

// The translators are ordinary members: not static and, as the number of slots shows, not virtual.
static_assert(
    std::is_same_v<decltype(&HaiL3MplsEncapsulationVlan::TranslateVlanObjectToEncapMessage),
                   void (HaiL3MplsEncapsulationVlan::*)(void*, encapsulation::VlanMessage*)>);
static_assert(std::is_same_v<
              decltype(&HaiL3MplsEncapsulationVlan::TranslateVlanCapabilityToEncapCapability),
              encapsulation::VlanCapabilities (HaiL3MplsEncapsulationVlan::*)(VlanCapabilities)>);
static_assert(
    std::is_same_v<decltype(&HaiL3MplsEncapsulationHost::TranslateHostObjectToEncapMessage),
                   void (HaiL3MplsEncapsulationHost::*)(void*, encapsulation::HostMessage*)>);
static_assert(std::is_same_v<decltype(&HaiL3MplsEncapsulationHost::TranslateMessage),
                             HostEncapsulationMessage (HaiL3MplsEncapsulationHost::*)(void*)>);
static_assert(
    std::is_same_v<decltype(&HaiL3MplsEncapsulationHost::TranslateActionFlagsToEncapFlags),
                   encapsulation::ActionFlags (HaiL3MplsEncapsulationHost::*)(ActionFlags)>);
static_assert(
    std::is_same_v<decltype(&HaiL3MplsEncapsulationMpls::TranslateMplsObjectToEncapMessage),
                   void (HaiL3MplsEncapsulationMpls::*)(void*, encapsulation::MplsMessage*)>);
static_assert(std::is_same_v<decltype(&HaiL3MplsEncapsulationMpls::TranslateMessage),
                             MplsEncapsulationMessage (HaiL3MplsEncapsulationMpls::*)(void*)>);
static_assert(std::is_same_v<
              decltype(&HaiL3MplsEncapsulationMpls::TranslateMplsCapabilityToEncapCapability),
              encapsulation::MplsCapabilities (HaiL3MplsEncapsulationMpls::*)(MplsCapabilities)>);
static_assert(!std::is_polymorphic_v<HaiL3MplsEncapsulationEcmp>);
static_assert(!std::is_polymorphic_v<HaiL3MplsEncapsulationVrf>);

template <typename Base>
struct Probe : Base {
  virtual void Next() {}
};

// The slots of a class: the slot that a virtual operation of a derived class gets. In the Itanium
// C++ ABI, a pointer to a virtual member is 1 plus its offset in the virtual table; on arm64 the 1
// is elsewhere.
template <typename Class>
std::size_t Slots() {
  const auto next = &Probe<Class>::Next;
  std::size_t bits = 0;
  std::memcpy(&bits, &next, sizeof bits);
  return bits / sizeof(void*);
}

TEST(SlotsTest, CountTheListedOperations) {
  EXPECT_EQ(Slots<class Hai>(), 2U);
  EXPECT_EQ(Slots<HaiL3MplsEncapsulation>(), 5U);
  EXPECT_EQ(Slots<HaiL3MplsEncapsulationVlan>(), 5U);
  EXPECT_EQ(Slots<HaiL3MplsEncapsulationHost>(), 5U);
  EXPECT_EQ(Slots<HaiL3MplsEncapsulationMpls>(), 5U);
  EXPECT_EQ(Slots<HalL3MplsEncapsulationClientCallbackItf>(), 14U);
  EXPECT_EQ(Slots<HaiDestClientCallback>(), 14U);
}

// Wrappers.

template <typename WrapperType>
class WrapperTableTest : public testing_support::HaiTest {};

using Wrappers =
    ::testing::Types<VlanEncapsulationMessage, HostEncapsulationMessage, MplsEncapsulationMessage,
                     EcmpEncapsulationMessage, VrfEncapsulationMessage>;
TYPED_TEST_SUITE(WrapperTableTest, Wrappers, testing_support::ClassNames);

TYPED_TEST(WrapperTableTest, HasTheDestructorsFirstInBothTables) {
  ExpectDestructors([] { return On<AppMessage>(new TypeParam); }, {"AppMessage destroyed"});
  ExpectDestructors([] { return On<HalL3MplsEncapsulationPrintable>(new TypeParam); },
                    {"AppMessage destroyed"});
}

TYPED_TEST(WrapperTableTest, UnserializesInItsFirstTable) {
  TypeParam wrapper;
  const bool owns_its_message = wrapper.message() == nullptr;
  std::string valid = Frame("");
  std::string invalid = Frame(
      "\x0A\x05"
      "ab");
  AppMessage* const base = &wrapper;

  EXPECT_TRUE(CallSlot<bool>(base, 2, static_cast<void*>(valid.data())));
  const std::unique_ptr<google::protobuf::Message> replaced(owns_its_message ? wrapper.message()
                                                                             : nullptr);
  EXPECT_FALSE(CallSlot<bool>(base, 2, static_cast<void*>(invalid.data())));
  EXPECT_THAT(Events(), IsEmpty());
}

TYPED_TEST(WrapperTableTest, RendersInBothTables) {
  const TypeParam wrapper;
  const AppMessage* const first = &wrapper;
  const HalL3MplsEncapsulationPrintable* const second = &wrapper;
  for (const bool full : {false, true}) {
    EXPECT_EQ(CallSlot<std::string>(first, 3, full), wrapper.ToString(full));
    EXPECT_EQ(CallSlot<std::string>(second, 2, full), wrapper.ToString(full));
  }
}

// Application messages.

template <typename MessageType>
class AppMessageTableTest : public testing_support::HaiTest {};

using AppMessages = ::testing::Types<AppDestMessage, AppDestVlanMessage, AppDestHostMessage,
                                     AppDestEcmpMessage, AppDestMplsMessage, AppVrfMessage>;
TYPED_TEST_SUITE(AppMessageTableTest, AppMessages, testing_support::ClassNames);

TYPED_TEST(AppMessageTableTest, HasItsOperationsInOrder) {
  DestVlanMessage record;
  ExpectDestructors([&record] { return On<AppMessage>(new TypeParam(&record)); },
                    {"AppMessage destroyed"});

  Events().clear();
  const TypeParam message(&record);
  std::string frame = Frame("\x28\x07");  // db_id: 7
  CallSlot<bool>(&message, 2, static_cast<void*>(frame.data()));
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(message.message(), &record);
  EXPECT_EQ(record.ByteSizeLong(), 0U);
}

// Controllers.

class RecordingStrategy : public app_strategy::Strategy {
 public:
  void Execute() override { AddEvent("strategy executed"); }
};

template <typename ControllerType>
class ControllerTableTest : public testing_support::HaiTest {};

using Controllers =
    ::testing::Types<msg_ctrl::MessageController, MessageControllerVlan, MessageControllerHost,
                     MessageControllerEcmp, MessageControllerMpls, VrfController>;
TYPED_TEST_SUITE(ControllerTableTest, Controllers, testing_support::ClassNames);

TYPED_TEST(ControllerTableTest, HasItsOperationsInOrder) {
  DestVlanMessage record;
  ExpectDestructors(
      [&record] {
        return On<msg_ctrl::MessageController>(new TypeParam(new AppDestVlanMessage(&record)));
      },
      {"AppMessage destroyed", "MessageController destroyed"});

  RecordingStrategy strategy;
  const TypeParam controller(new AppDestVlanMessage(&record));
  Events().clear();
  CallSlot<void>(&controller, 2, static_cast<app_strategy::Strategy*>(&strategy));
  EXPECT_EQ(controller.strategy(), &strategy);
  EXPECT_EQ(CallSlot<app_strategy::Strategy*>(&controller, 3), &strategy);
  EXPECT_THAT(Events(), IsEmpty());
  CallSlot<void>(&controller, 4);
  EXPECT_THAT(Events(), ElementsAre("strategy executed"));
}

// The callback object.

struct ResultSlot {
  std::size_t slot;
  const char* name;
};

constexpr ResultSlot kResultSlots[] = {
    {3, "InstallVlanOutgoingEncapsulationResCallback"},
    {4, "DestroyVlanOutgoingEncapsulationResCallback"},
    {5, "ReplaceVlanOutgoingEncapsulationResCallback"},
    {6, "InstallHostOutgoingEncapsulationResCallback"},
    {7, "DestroyHostOutgoingEncapsulationResCallback"},
    {8, "ReplaceHostOutgoingEncapsulationResCallback"},
    {9, "InstallEcmpEncapResCallback"},
    {10, "DestroyEcmpEncapResCallback"},
    {11, "InstallMplsUnprotectedOutgoingEncapsulationResCallback"},
    {12, "DestroyMplsUnprotectedOutgoingEncapsulationResCallback"},
    {13, "ReplaceMplsUnprotectedOutgoingEncapsulationResCallback"},
};

class ResultTableTest : public testing_support::HaiTest,
                        public ::testing::WithParamInterface<ResultSlot> {};

TEST_P(ResultTableTest, HasTheOperationInItsSlot) {
  const HaiDestClientCallback callback;
  const HalL3MplsEncapsulationClientCallbackItf* const results = &callback;
  if (GetParam().slot < 11) {
    CallSlot<void>(results, GetParam().slot, HalL3MplsEncapsulationReturnCode{0}, 5U);
  } else {
    CallSlot<void>(results, GetParam().slot, HalL3MplsEncapsulationReturnCode{0}, 5U, 9U);
  }

  ASSERT_FALSE(Events().empty());
  EXPECT_THAT(Events().front(),
              StartsWith(std::string("log 10 src/hai/hai_callback ") + GetParam().name + ":"));
}

INSTANTIATE_TEST_SUITE_P(, ResultTableTest, ::testing::ValuesIn(kResultSlots),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(VirtualTableTest, CallbackObjectBeginsWithDestructorsAndTheInitialisation) {
  ExpectDestructors(
      [] { return On<HalL3MplsEncapsulationClientCallbackItf>(new HaiDestClientCallback); }, {});

  Events().clear();
  const HaiDestClientCallback callback;
  CallSlot<void>(&callback, 2, HalL3MplsEncapsulationReturnCode{1});
  EXPECT_THAT(Events(), IsEmpty());
}

// The HAL client.

struct ClientSlot {
  std::size_t slot;
  const char* name;
  AppMessage* (*make)();
};

template <typename Wrapper, typename Message>
AppMessage* MakeOwning() {
  return new Wrapper(std::make_unique<Message>());
}

AppMessage* MakeVlan() {
  return MakeOwning<VlanEncapsulationMessage, encapsulation::VlanMessage>();
}
AppMessage* MakeHost() {
  return MakeOwning<HostEncapsulationMessage, encapsulation::HostMessage>();
}
AppMessage* MakeMpls() {
  return MakeOwning<MplsEncapsulationMessage, encapsulation::MplsMessage>();
}
AppMessage* MakeEcmp() { return new EcmpEncapsulationMessage; }
AppMessage* MakeVrf() { return new VrfEncapsulationMessage; }

constexpr ClientSlot kClientSlots[] = {
    {3, "InstallVrfIngressInterface", MakeVrf},
    {4, "DestroyVrfIngressInterface", MakeVrf},
    {5, "InstallVlanOutgoingEncapsulation", MakeVlan},
    {6, "DestroyVlanOutgoingEncapsulation", MakeVlan},
    {7, "ReplaceVlanOutgoingEncapsulation", MakeVlan},
    {8, "InstallHostOutgoingEncapsulation", MakeHost},
    {9, "DestroyHostOutgoingEncapsulation", MakeHost},
    {10, "ReplaceHostOutgoingEncapsulation", MakeHost},
    {11, "InstallEcmpEncap", MakeEcmp},
    {12, "DestroyEcmpEncap", MakeEcmp},
    {13, "InstallMplsUnprotectedOutgoingEncapsulation", MakeMpls},
    {14, "DestroyMplsUnprotectedOutgoingEncapsulation", MakeMpls},
    {15, "ReplaceMplsUnprotectedOutgoingEncapsulation", MakeMpls},
};

class ClientTableTest : public testing_support::HaiTest,
                        public ::testing::WithParamInterface<ClientSlot> {};

TEST_P(ClientTableTest, HasTheOperationInItsSlot) {
  const std::unique_ptr<AppMessage> wrapper(GetParam().make());
  const HalL3MplsEncapsulationClient* const client = &client_;
  AppMessage* given = nullptr;
  client_.on_request = [&given](AppMessage* message) { given = message; };
  CallSlot<HalL3MplsEncapsulationReturnCode>(client, GetParam().slot, wrapper.get());

  ASSERT_EQ(Events().size(), 1U);
  EXPECT_THAT(Events().front(), StartsWith(std::string("hal ") + GetParam().name + " "));
  EXPECT_EQ(given, wrapper.get());
}

INSTANTIATE_TEST_SUITE_P(, ClientTableTest, ::testing::ValuesIn(kClientSlots),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace dest_mng
