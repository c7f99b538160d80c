/// The common behaviour of the operations of all kinds: what each logs, sends and destroys, in
/// which order, even if the host throws. Each kind's own tests check the contents of its messages.

#include <boost/variant/get.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "tests/support/hai_test.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace dest_mng {
namespace {

using namespace std::string_literals;

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using testing_support::Address;
using testing_support::Events;
using testing_support::FailAllocation;
using testing_support::InterfaceIds;
using testing_support::LevelQueries;
using testing_support::LiveWithoutEvents;
using testing_support::SetLogHook;
using testing_support::SetTrace;

using VlanObject = testing_support::TestObject<DbVlanObject, DestVlanMessage>;
using HostObject = testing_support::TestObject<DbHostObject, DestHostMessage>;
using MplsObject = testing_support::TestObject<DbMplsObject, DestMplsMessage>;

template <typename Wrapper>
constexpr bool kStaysInPlace =
    !std::is_copy_constructible_v<Wrapper> && !std::is_move_constructible_v<Wrapper> &&
    !std::is_copy_assignable_v<Wrapper> && !std::is_move_assignable_v<Wrapper>;
static_assert(kStaysInPlace<VlanEncapsulationMessage>);
static_assert(kStaysInPlace<HostEncapsulationMessage>);
static_assert(kStaysInPlace<MplsEncapsulationMessage>);
static_assert(kStaysInPlace<EcmpEncapsulationMessage>);
static_assert(kStaysInPlace<VrfEncapsulationMessage>);
static_assert(std::is_base_of_v<HaiL3MplsEncapsulation, HaiL3MplsEncapsulationVlan>);
static_assert(std::is_base_of_v<HaiL3MplsEncapsulation, HaiL3MplsEncapsulationHost>);
static_assert(std::is_base_of_v<HaiL3MplsEncapsulation, HaiL3MplsEncapsulationMpls>);

using Call = std::function<int()>;

/// An operation on an example object, and its effects.
struct Operation {
  std::string name;
  /// Makes the object and returns the call, which allocates nothing besides what the operation
  /// does.
  std::function<Call()> prepare;
  /// Casts the message to the kind's wrapper; null if it is another type.
  const void* (*as_wrapper)(const AppMessage* message);
  /// The translation's trace; empty if it has none.
  std::string record_trace;
  /// The operation's trace, without the rendering of the wrapper.
  std::string trace;
  /// The rendering in the trace after the wrapper's name and address; empty if it has none.
  std::string rendered_name;
  std::string rendered_fields;
  std::string request;
  /// The error without a client; empty if the client is called regardless.
  std::string no_client;
  /// Whether the wrapper owns its message on the heap.
  bool on_heap;
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

template <typename Wrapper>
const void* AsWrapper(const AppMessage* message) {
  return dynamic_cast<const Wrapper*>(message);
}

/// The object of an operation of the three kinds that have database objects.
struct Example {
  std::string name;
  std::string record_trace;
  std::string fields;
  std::string request;
};

struct Step {
  const char* name;
  int (HaiL3MplsEncapsulation::*call)(void* object);
  const char* trace;
  const char* hal_operation;
  const char* no_client;
};

template <typename Adapter, typename Wrapper, typename Object>
void AddOperations(const Example& example, const Step (&steps)[3], const std::string& wrapper_name,
                   void (*fill)(Object*), std::vector<Operation>* operations) {
  for (const Step& step : steps) {
    operations->push_back(
        {step.name + example.name,
         [fill, call = step.call]() -> Call {
           const auto object = std::make_shared<Object>();
           fill(object.get());
           return [object, call] {
             Adapter adapter;
             HaiL3MplsEncapsulation& base = adapter;
             return (base.*call)(object->pointer());
           };
         },
         AsWrapper<Wrapper>, example.record_trace, step.trace,
         example.fields.empty() ? "" : wrapper_name, example.fields,
         "hal "s + step.hal_operation + ' ' + wrapper_name + ' ' + example.request, step.no_client,
         true});
  }
}

void FillVlan(VlanObject* vlan) {
  DestVlanMessage& record = vlan->record();
  record.set_lim_id("\x04\x03\x02\x01");
  record.set_source_mac("\x00\x11\x22\x33\x44\x55"s);
  record.set_vlan_dest_id(12);
  record.set_vrf(5);
  record.set_mtu(1500);
  record.add_capabilities(VLAN_CAPABILITY_ROUTED);
  vlan->object.list_attribute_name = "interfaces";
  vlan->object.attribute_lists["interfaces"].second = {db::Attribute("a"s)};
}

void FillHost(HostObject* host) {
  host->record().set_dest_id(12);
  host->record().set_lim_id("\x01\x00\x00\x01"s);
  host->record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  host->record().add_flags(ACTION_TO_CPU);
  host->record().add_flags(ACTION_DROP);
  host->object.attributes["vlan_dest_id"] = db::Attribute(5);
}

/// With an active neighbour.
void FillMpls(MplsObject* mpls) {
  mpls->record().set_mpls_dest_id(17);
  mpls->record().set_lim_id("\x01\x00\x00\x01"s);
  mpls->record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  mpls->record().set_label(1001);
  mpls->record().set_pass_through_value(77);
  mpls->record().add_capabilities(MplsCapabilities{3});
  mpls->record().add_capabilities(MplsCapabilities{1});
  mpls->object.attributes["vlan_dest_id"] = db::Attribute(5);
  mpls->object.attributes["host_dest_id"] = db::Attribute(9);
}

constexpr char kHostRecordTrace[] =
    "log 10 src/dest_host/hai/hai_dest_host TranslateHostObjectToEncapMessage:60 "
    R"(Host Object message: lim_id: "\001\000\000\001" dest_mac: "\002\000\000\000\001\013" )"
    "dest_id: 12 flags: ACTION_TO_CPU flags: ACTION_DROP";
constexpr char kHostMessage[] =
    R"(dest_id: 12 vlan_dest_id: 5 lim_id: "\001\000\000\001" )"
    R"(flags: ACTION_TO_CPU flags: ACTION_DROP dest_mac: "\002\000\000\000\001\013")";
constexpr char kMplsMessage[] =
    R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "\001\000\000\001" )"
    R"(dest_mac: "\002\000\000\000\001\013" labels: 1001 capabilities: MPLS_CAPABILITY_PUSH )"
    "capabilities: MPLS_CAPABILITY_PROTECTION pass_through_value: 77";

const Step kVlanSteps[] = {{"Create", &HaiL3MplsEncapsulation::CreateDestination,
                            "log 10 src/dest_vlan/hai/hai_dest_vlan CreateDestination:81 "
                            "[TX ===>] hai:vlan:Installing VLAN destination at HW: msg=",
                            "InstallVlanOutgoingEncapsulation",
                            "log 12 src/dest_vlan/hai/hai_dest_vlan CreateDestination:85 "
                            "There is no HAL client available"},
                           {"Delete", &HaiL3MplsEncapsulation::DeleteDestination,
                            "log 10 src/dest_vlan/hai/hai_dest_vlan DeleteDestination:102 "
                            "[TX ===>] hai:vlan:Delete VLAN destination at HW: msg=",
                            "DestroyVlanOutgoingEncapsulation",
                            "log 12 src/dest_vlan/hai/hai_dest_vlan DeleteDestination:106 "
                            "There is no HAL client available"},
                           {"Update", &HaiL3MplsEncapsulation::UpdateDestination,
                            "log 10 src/dest_vlan/hai/hai_dest_vlan UpdateDestination:123 "
                            "[TX ===>] hai:vlan:Replace VLAN destination at HW: msg=",
                            "ReplaceVlanOutgoingEncapsulation",
                            "log 12 src/dest_vlan/hai/hai_dest_vlan UpdateDestination:127 "
                            "There is no HAL client available"}};
const Step kHostSteps[] = {{"Create", &HaiL3MplsEncapsulation::CreateDestination,
                            "log 10 src/dest_host/hai/hai_dest_host CreateDestination:68 "
                            "[TX ===>] hai:host:Install host destination at HW",
                            "InstallHostOutgoingEncapsulation",
                            "log 12 src/dest_host/hai/hai_dest_host CreateDestination:74 "
                            "There is no HAL client available"},
                           {"Delete", &HaiL3MplsEncapsulation::DeleteDestination,
                            "log 10 src/dest_host/hai/hai_dest_host DeleteDestination:85 "
                            "[TX ===>] hai:host:Delete host destination at HW",
                            "DestroyHostOutgoingEncapsulation",
                            "log 12 src/dest_host/hai/hai_dest_host DeleteDestination:90 "
                            "There is no HAL client available"},
                           {"Update", &HaiL3MplsEncapsulation::UpdateDestination,
                            "log 10 src/dest_host/hai/hai_dest_host UpdateDestination:101 "
                            "[TX ===>] hai:host:Replace host destination at HW",
                            "ReplaceHostOutgoingEncapsulation",
                            "log 12 src/dest_host/hai/hai_dest_host UpdateDestination:106 "
                            "There is no HAL client available"}};
const Step kMplsSteps[] = {
    {"Create", &HaiL3MplsEncapsulation::CreateDestination,
     "log 10 src/dest_mpls/hai/hai_dest_mpls CreateDestination:80 [TX ===>] hai:mpls:msg:",
     "InstallMplsUnprotectedOutgoingEncapsulation",
     "log 12 src/dest_mpls/hai/hai_dest_mpls CreateDestination:84 "
     "There is no HAL client available"},
    {"Delete", &HaiL3MplsEncapsulation::DeleteDestination,
     "log 10 src/dest_mpls/hai/hai_dest_mpls DeleteDestination:95 [TX ===>] hai:mpls:msg:",
     "DestroyMplsUnprotectedOutgoingEncapsulation",
     "log 12 src/dest_mpls/hai/hai_dest_mpls DeleteDestination:99 "
     "There is no HAL client available"},
    {"Update", &HaiL3MplsEncapsulation::UpdateDestination,
     "log 10 src/dest_mpls/hai/hai_dest_mpls UpdateDestination:110 [TX ===>] hai:mpls:msg:",
     "ReplaceMplsUnprotectedOutgoingEncapsulation",
     "log 12 src/dest_mpls/hai/hai_dest_mpls UpdateDestination:114 "
     "There is no HAL client available"}};

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  const auto add_vlan = [&all](const Example& example, void (*fill)(VlanObject*)) {
    AddOperations<HaiL3MplsEncapsulationVlan, VlanEncapsulationMessage>(
        example, kVlanSteps, "VlanEncapsulationMessage", fill, &all);
  };
  add_vlan({"Vlan",
            "log 10 src/dest_vlan/hai/hai_dest_vlan TranslateVlanObjectToEncapMessage:52 "
            R"(Vlan Object message: lim_id: "\004\003\002\001" )"
            R"(source_mac: "\000\021\"3DU" vlan_dest_id: 12 vrf: 5 mtu: 1500 )"
            "capabilities: VLAN_CAPABILITY_ROUTED",
            "VlanMessage(vlan destination id(12), lim id(name=eth3, type=0x02, value=0x000103), "
            "vrf=5, mtu=1500, source mac address(00:11:22:33:44:55))",
            R"(lim_id: "\004\003\002\001" source_mac_address: "\000\021\"3DU" )"
            "vlan_destination_id: 12 vrf: 5 mtu: 1500 capabilities: VLAN_CAPABILITY_ROUTED "
            R"(list_values: "a")"},
           FillVlan);
  add_vlan({"EmptyVlan",
            "log 10 src/dest_vlan/hai/hai_dest_vlan TranslateVlanObjectToEncapMessage:52 "
            "Vlan Object message: ",
            "VlanMessage(vlan destination id(0), lim id(name=eth3, type=0x02, value=0x000103), "
            "vrf=Empty, mtu=Empty, source source mac address(Empty))",
            R"(lim_id: "")"},
           [](VlanObject*) {});
  AddOperations<HaiL3MplsEncapsulationHost, HostEncapsulationMessage>(
      {"Host", kHostRecordTrace, "", kHostMessage}, kHostSteps, "HostEncapsulationMessage",
      FillHost, &all);
  const auto add_mpls = [&all](const Example& example, void (*fill)(MplsObject*)) {
    AddOperations<HaiL3MplsEncapsulationMpls, MplsEncapsulationMessage>(
        example, kMplsSteps, "MplsEncapsulationMessage", fill, &all);
  };
  add_mpls({"Mpls", "",
            "MplsMessage(mpls destination id(17), vlan/tunnel destination id(5), "
            "lim id(name=eth3, type=0x02, value=0x000103), "
            "destination mac address(02:00:00:00:01:0b), labels(size=1, label(1001)), "
            "MPLS Capabilities(Push, Protection), HAL Flag(None))",
            kMplsMessage},
           FillMpls);
  add_mpls({"EmptyMpls",
            "log 10 src/dest_mpls/hai/hai_dest_mpls TranslateMplsObjectToEncapMessage:70 "
            "[TX ===>] hai:mpls:No neighbor active, turn on Drop Flag",
            "MplsMessage(mpls destination id(0), vlan/tunnel destination id(0), lim id(Empty), "
            "destination mac address(Empty), labels(size=0), MPLS Capabilities(), "
            "HAL Flag(Drop Packet))",
            "vlan_tunnel_dest_id: 0 flag: ACTION_DROP"},
           [](MplsObject*) {});

  const auto add_ecmp = [&all](const char* name,
                               void (HaiL3MplsEncapsulationEcmp::*call)(const EcmpData&),
                               const char* trace, const char* request, const char* no_client) {
    all.push_back({name,
                   [call]() -> Call {
                     return [call, group = EcmpData{7, {12, 15, 15, 12}}] {
                       (HaiL3MplsEncapsulationEcmp().*call)(group);
                       return 0;
                     };
                   },
                   AsWrapper<EcmpEncapsulationMessage>, "", trace, "", "", request, no_client,
                   false});
  };
  add_ecmp("InstallEcmp", &HaiL3MplsEncapsulationEcmp::InstallEcmp,
           "log 10 src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:25 "
           "[TX ===>] hai:ecmp:Install ECMP=(db_id=7)",
           "hal InstallEcmpEncap EcmpEncapsulationMessage db_id: 7 "
           "members: 12 members: 15 members: 15 members: 12",
           "log 12 src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:29 "
           "Hai has no HalL3MplsEncapsulationClient registered!!!");
  add_ecmp("DestroyEcmp", &HaiL3MplsEncapsulationEcmp::DestroyEcmp,
           "log 10 src/dest_ecmp/hai/hai_dest_ecmp DestroyEcmp:36 "
           "[TX ===>] hai:ecmp:Delete ECMP=(db_id=7)",
           "hal DestroyEcmpEncap EcmpEncapsulationMessage db_id: 7",
           "log 12 src/dest_ecmp/hai/hai_dest_ecmp DestroyEcmp:40 "
           "Hai has no HalL3MplsEncapsulationClient registered!!!");

  const auto add_vrf = [&all](const char* name,
                              int (HaiL3MplsEncapsulationVrf::*call)(const VrfData&),
                              const char* trace, const char* request) {
    all.push_back({name,
                   [call]() -> Call {
                     return [call] { return (HaiL3MplsEncapsulationVrf().*call)(VrfData{5, 42}); };
                   },
                   AsWrapper<VrfEncapsulationMessage>, "", trace, "", "", request, "", false});
  };
  add_vrf("InstallVrf", &HaiL3MplsEncapsulationVrf::InstallVrf,
          "log 10 src/vrf/vrf_hai InstallVrf:23 [TX ===>] hai:vrf:"
          "Install VRF=5 db_id=42 l3-ingress interface at HW",
          "hal InstallVrfIngressInterface VrfEncapsulationMessage vrf_id: 5");
  add_vrf("DestroyVrf", &HaiL3MplsEncapsulationVrf::DestroyVrf,
          "log 10 src/vrf/vrf_hai DestroyVrf:32 [TX ===>] hai:vrf:"
          "Delete VRF=5 db_id=42 l3-ingress interface at HW",
          "hal DestroyVrfIngressInterface VrfEncapsulationMessage vrf_id: 5");
  return all;
}

class OperationTest : public testing_support::HaiTest,
                      public ::testing::WithParamInterface<Operation> {
 protected:
  OperationTest() : call_(GetParam().prepare()) {
    InterfaceIds().name = "eth3";
    InterfaceIds().type = 0x02;
    InterfaceIds().ifindex = 0x01000103;
    client_.on_request = [this](AppMessage* wrapper) { wrapper_ = Address(wrapper); };
  }

  int Run() const { return call_(); }

  /// The traces, with the wrapper that the client received.
  std::vector<std::string> Traces() const {
    std::vector<std::string> traces;
    if (HasRecordTrace()) traces.push_back(GetParam().record_trace);
    traces.push_back(GetParam().trace);
    if (!GetParam().rendered_name.empty()) {
      traces.back() +=
          GetParam().rendered_name + "(this=" + wrapper_ + "): " + GetParam().rendered_fields;
    }
    return traces;
  }

  /// `first`, the request and what is destroyed after it.
  static std::vector<std::string> Sent(std::vector<std::string> first = {}) {
    first.push_back(GetParam().request);
    if (GetParam().on_heap) first.emplace_back("message freed");
    first.emplace_back("AppMessage destroyed");
    return first;
  }

  static bool HasRecordTrace() { return !GetParam().record_trace.empty(); }

  /// The number of live allocations, without what the fakes keep.
  static std::ptrdiff_t Live() {
    std::vector<std::string>().swap(InterfaceIds().calls);
    return LiveWithoutEvents();
  }

  const Call call_;
  std::string wrapper_;
};

TEST_P(OperationTest, TracesAndSends) {
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAreArray(Sent(Traces())));
  EXPECT_EQ(LevelQueries(), HasRecordTrace() ? 2 : 1);
  // A trace that shows no fields renders none.
  if (GetParam().rendered_fields.empty()) {
    EXPECT_THAT(InterfaceIds().calls, IsEmpty());
  }
}

TEST_P(OperationTest, OnlySendsWithoutTrace) {
  SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAreArray(Sent()));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
  EXPECT_EQ(LevelQueries(), HasRecordTrace() ? 2 : 1);
}

TEST_P(OperationTest, SendsTheWholeWrapper) {
  int requests = 0;
  client_.on_request = [&requests](AppMessage* message) {
    ++requests;
    EXPECT_EQ(GetParam().as_wrapper(message), static_cast<const void*>(message));
  };
  Run();
  EXPECT_EQ(requests, 1);
}

TEST_P(OperationTest, SendsToTheCurrentClient) {
  testing_support::FakeHalClient second;
  int requests = 0;
  second.on_request = [&requests](AppMessage*) { ++requests; };
  Run();
  EXPECT_EQ(requests, 0);
  Hai::GetInstance()->set_client(&second);
  Run();
  EXPECT_EQ(requests, 1);
}

TEST_P(OperationTest, LeavesNothingBehind) {
  Run();
  for (const bool trace : {true, false}) {
    SetTrace(trace);
    const auto before = Live();
    Run();
    EXPECT_EQ(Live(), before) << (trace ? "with" : "without") << " a trace";
  }
}

TEST_P(OperationTest, PropagatesTheClientsException) {
  client_.on_request = [this](AppMessage* wrapper) {
    wrapper_ = Address(wrapper);
    throw std::runtime_error("HAL");
  };
  EXPECT_THAT([this] { Run(); }, ThrowsMessage<std::runtime_error>("HAL"));
  EXPECT_THAT(Events(), ElementsAreArray(Sent(Traces())));
  const auto before = Live();
  EXPECT_THROW(Run(), std::runtime_error);
  EXPECT_EQ(Live(), before);
}

// The record's trace, if there is one, comes before the message has an owner.
TEST_P(OperationTest, PropagatesTheSinksExceptionAtTheTrace) {
  Run();
  const auto before = Live();
  SetLogHook([records = HasRecordTrace() ? 2 : 1]() mutable {
    if (--records == 0) throw std::runtime_error("log");
  });
  EXPECT_THAT([this] { Run(); }, ThrowsMessage<std::runtime_error>("log"));
  SetLogHook(nullptr);
  EXPECT_THAT(Events(), ElementsAreArray({"AppMessage destroyed"}));
  EXPECT_EQ(Live(), before);
}

std::string NameOf(const ::testing::TestParamInfo<Operation>& tested) { return tested.param.name; }

template <typename Predicate>
std::vector<Operation> OperationsThat(Predicate predicate) {
  std::vector<Operation> chosen;
  for (Operation& operation : AllOperations()) {
    if (predicate(operation)) chosen.push_back(std::move(operation));
  }
  return chosen;
}

INSTANTIATE_TEST_SUITE_P(, OperationTest, ::testing::ValuesIn(AllOperations()), NameOf);

// Without a client. The operations of VRFs call it regardless; see vrf_test.cc.

class NoClientTest : public OperationTest {
 protected:
  NoClientTest() { WithoutClient(); }
};

TEST_P(NoClientTest, IsLogged) {
  EXPECT_EQ(Run(), 0);
  ASSERT_EQ(Events().size(), HasRecordTrace() ? 4U : 3U);
  // No client saw the wrapper's address; the trace has it after its start.
  std::string& trace = Events()[HasRecordTrace() ? 1 : 0];
  if (!GetParam().rendered_name.empty()) {
    const std::string start = GetParam().trace + GetParam().rendered_name + "(this=";
    wrapper_ = trace.substr(start.size(), Address(nullptr).size());
  }
  std::vector<std::string> expected = Traces();
  expected.insert(expected.end(), {GetParam().no_client, "AppMessage destroyed"});
  EXPECT_THAT(Events(), ElementsAreArray(expected));
}

TEST_P(NoClientTest, IsAllThatIsLoggedWithoutTrace) {
  SetTrace(false);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(Events(), ElementsAreArray({GetParam().no_client, "AppMessage destroyed"s}));
  EXPECT_THAT(InterfaceIds().calls, IsEmpty());
  EXPECT_EQ(LevelQueries(), HasRecordTrace() ? 2 : 1);
}

TEST_P(NoClientTest, LeavesNothingBehind) {
  Run();
  for (const bool trace : {true, false}) {
    SetTrace(trace);
    const auto before = Live();
    Run();
    EXPECT_EQ(Live(), before) << (trace ? "with" : "without") << " a trace";
  }
}

TEST_P(NoClientTest, PropagatesTheSinksException) {
  Run();
  const auto before = Live();
  SetTrace(false);
  // Without a trace, the first record is the error.
  SetLogHook([] { throw std::runtime_error("log"); });
  EXPECT_THAT([this] { Run(); }, ThrowsMessage<std::runtime_error>("log"));
  SetLogHook(nullptr);
  EXPECT_THAT(Events(), ElementsAreArray({"AppMessage destroyed"}));
  EXPECT_EQ(Live(), before);
}

INSTANTIATE_TEST_SUITE_P(, NoClientTest,
                         ::testing::ValuesIn(OperationsThat([](const Operation& operation) {
                           return !operation.no_client.empty();
                         })),
                         NameOf);

// The message on the heap.

class MessageTest : public OperationTest {};

TEST_P(MessageTest, IsTheFirstThatIsAllocated) {
  const auto before = Live();
  FailAllocation(1);
  EXPECT_THROW(Run(), std::bad_alloc);
  FailAllocation(0);
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(Live(), before);
}

INSTANTIATE_TEST_SUITE_P(, MessageTest,
                         ::testing::ValuesIn(OperationsThat([](const Operation& operation) {
                           return operation.on_heap;
                         })),
                         NameOf);

/// A translation that fails: an attribute has the wrong type.
struct FailedTranslation {
  const char* name;
  /// Makes an object and translates it into a message of its own. Returns how much the message
  /// allocates up to the failure.
  std::function<std::ptrdiff_t()> size_of_message;
  std::function<std::vector<Call>()> prepare;
  std::string record_trace;
};

template <typename Adapter, typename Message, typename Object, typename Translate>
FailedTranslation Failed(const char* name, Translate translate, void (*fill)(Object*),
                         std::string record_trace) {
  const auto make = [fill] {
    auto object = std::make_shared<Object>();
    fill(object.get());
    return object;
  };
  return {name,
          [make, translate] {
            const auto object = make();
            const auto before = LiveWithoutEvents();
            const auto message = std::make_unique<Message>();
            Adapter adapter;
            EXPECT_THROW((adapter.*translate)(object->pointer(), message.get()), boost::bad_get);
            return LiveWithoutEvents() - before;
          },
          [make] {
            std::vector<Call> calls;
            for (const auto call : {&HaiL3MplsEncapsulation::CreateDestination,
                                    &HaiL3MplsEncapsulation::DeleteDestination,
                                    &HaiL3MplsEncapsulation::UpdateDestination}) {
              calls.emplace_back([object = make(), call] {
                Adapter adapter;
                return (adapter.*call)(object->pointer());
              });
            }
            return calls;
          },
          std::move(record_trace)};
}

void PrintTo(const FailedTranslation& translation, std::ostream* out) { *out << translation.name; }

class FailedTranslationTest : public testing_support::HaiTest,
                              public ::testing::WithParamInterface<FailedTranslation> {};

// Nothing owns the message yet.
TEST_P(FailedTranslationTest, SendsNothingAndLosesTheMessage) {
  const auto lost = GetParam().size_of_message();
  EXPECT_GT(lost, 0);
  for (const Call& call : GetParam().prepare()) {
    const auto before = LiveWithoutEvents();
    EXPECT_THROW(call(), boost::bad_get);
    std::vector<std::string> expected;
    if (!GetParam().record_trace.empty()) expected.push_back(GetParam().record_trace);
    EXPECT_THAT(Events(), ElementsAreArray(expected));
    std::vector<std::string>().swap(expected);
    EXPECT_EQ(LiveWithoutEvents(), before + lost);
  }
}

INSTANTIATE_TEST_SUITE_P(
    , FailedTranslationTest,
    ::testing::Values(Failed<HaiL3MplsEncapsulationVlan, encapsulation::VlanMessage>(
                          "VlanWithANumberInTheList",
                          &HaiL3MplsEncapsulationVlan::TranslateVlanObjectToEncapMessage,
                          +[](VlanObject* vlan) {
                            FillVlan(vlan);
                            vlan->object.attribute_lists["interfaces"].second.emplace_back(7);
                          },
                          AllOperations().front().record_trace),
                      Failed<HaiL3MplsEncapsulationHost, encapsulation::HostMessage>(
                          "HostWithATextAsItsVlan",
                          &HaiL3MplsEncapsulationHost::TranslateHostObjectToEncapMessage,
                          +[](HostObject* host) {
                            FillHost(host);
                            host->object.attributes["vlan_dest_id"] = db::Attribute("5"s);
                          },
                          ""),
                      Failed<HaiL3MplsEncapsulationMpls, encapsulation::MplsMessage>(
                          "MplsWithATextAsItsVlan",
                          &HaiL3MplsEncapsulationMpls::TranslateMplsObjectToEncapMessage,
                          +[](MplsObject* mpls) {
                            FillMpls(mpls);
                            mpls->object.attributes["vlan_dest_id"] = db::Attribute("5"s);
                          },
                          ""),
                      Failed<HaiL3MplsEncapsulationMpls, encapsulation::MplsMessage>(
                          "MplsWithATextAsItsNeighbor",
                          &HaiL3MplsEncapsulationMpls::TranslateMplsObjectToEncapMessage,
                          +[](MplsObject* mpls) {
                            FillMpls(mpls);
                            mpls->object.attributes["host_dest_id"] = db::Attribute("9"s);
                          },
                          "")),
    [](const auto& tested) { return std::string(tested.param.name); });

/// The kinds that have `TranslateMessage`.
template <typename Adapter, typename Wrapper, typename Object>
void ExpectTranslated(void (*fill)(Object*), const std::vector<std::string>& traces,
                      const std::string& message) {
  static_assert(
      std::is_same_v<decltype(std::declval<Adapter&>().TranslateMessage(nullptr)), Wrapper>);
  Object object;
  fill(&object);
  {
    const Wrapper wrapper = Adapter().TranslateMessage(object.pointer());
    EXPECT_EQ(wrapper.message()->ShortDebugString(), message);
    EXPECT_THAT(Events(), ElementsAreArray(traces));
    Events().clear();
    testing_support::WatchDeletion(wrapper.message());
  }
  EXPECT_THAT(Events(), ElementsAreArray({"message freed", "AppMessage destroyed"}));
}

using TranslateMessageTest = testing_support::HaiTest;

TEST_F(TranslateMessageTest, ReturnsAWrapperThatOwnsTheHost) {
  ExpectTranslated<HaiL3MplsEncapsulationHost, HostEncapsulationMessage>(
      FillHost, {kHostRecordTrace}, kHostMessage);
}

TEST_F(TranslateMessageTest, ReturnsAWrapperThatOwnsTheTunnel) {
  ExpectTranslated<HaiL3MplsEncapsulationMpls, MplsEncapsulationMessage>(FillMpls, {},
                                                                         kMplsMessage);
}

}  // namespace
}  // namespace dest_mng
