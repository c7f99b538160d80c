// The common behaviour of the requests of all kinds: when they look up the HAL client, and what
// they pass to the log.

#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>
#include <iostream>
#include <ostream>
#include <regex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "tests/support/hai_test.h"
#include "tests/support/wrapped_constructor.h"
#include "zuskux/hai.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vrf_hai.h"

// The linker's --wrap wraps the functions below: calls from every object except the one that
// defines the function go to Wrapped..., and Real... is the function itself.

namespace dest_mng {
namespace {

// Called with the number of the registry look-up, counted from 1.
std::function<void(int look)> registry_hook;
int registry_looks = 0;

// If not empty, successive reads of an attribute return these values instead.
std::vector<int> attribute_values;

// The ECMP or VRF message constructed last.
const google::protobuf::Message* made_message = nullptr;

void OnConstructed(const google::protobuf::Message* message) { made_message = message; }

}  // namespace

Hai* RealGetInstance() __asm__("__real__ZN8dest_mng3Hai11GetInstanceEv");
Hai* WrappedGetInstance() __asm__("__wrap__ZN8dest_mng3Hai11GetInstanceEv");
Hai* WrappedGetInstance() {
  if (registry_hook) registry_hook(++registry_looks);
  return RealGetInstance();
}

int RealReadInteger(DbObject* object,
                    const char* name) __asm__("__real__ZN8dest_mng11ReadIntegerEPNS_8DbObjectEPKc");
int WrappedReadInteger(DbObject* object, const char* name) __asm__(
    "__wrap__ZN8dest_mng11ReadIntegerEPNS_8DbObjectEPKc");
int WrappedReadInteger(DbObject* object, const char* name) {
  const int value = RealReadInteger(object, name);
  if (attribute_values.empty()) return value;
  const int instead = attribute_values.front();
  attribute_values.erase(attribute_values.begin());
  return instead;
}

ZUSKUX_WRAP_CONSTRUCTOR(EcmpMessage, encapsulation::EcmpMessage, "13encapsulation11EcmpMessage")
ZUSKUX_WRAP_CONSTRUCTOR(VrfMessage, encapsulation::VrfMessage, "13encapsulation10VrfMessage")

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::FakeHalClient;
using testing_support::InterfaceIds;
using testing_support::LevelQueries;
using testing_support::RawRecords;
using testing_support::SetLevelAnswer;
using testing_support::SetLogHook;
using testing_support::SetTrace;

/// One request on its own object.
struct Request {
  std::string name;
  std::function<void()> send;
  /// The raw records of its traces, with the address as "ADDRESS".
  std::vector<std::string> traces;
  /// The raw record without a client; none if the request needs one.
  std::string no_client;
};

std::ostream& operator<<(std::ostream& out, const Request& request) { return out << request.name; }

// printf formats in a name that comes from the platform and in one that comes from the operator.
constexpr char kName[] = "%s%n";

std::vector<Request> Requests() {
  constexpr char kNoClient[] = "There is no HAL client available";
  std::vector<Request> requests;
  const std::pair<const char*, int (HaiL3MplsEncapsulation::*)(void*)> operations[] = {
      {"Create", &HaiL3MplsEncapsulation::CreateDestination},
      {"Delete", &HaiL3MplsEncapsulation::DeleteDestination},
      {"Update", &HaiL3MplsEncapsulation::UpdateDestination}};

  const char* const vlan_traces[] = {"[TX ===>] hai:vlan:Installing VLAN destination at HW: msg=%s",
                                     "[TX ===>] hai:vlan:Delete VLAN destination at HW: msg=%s",
                                     "[TX ===>] hai:vlan:Replace VLAN destination at HW: msg=%s"};
  const char* const host_traces[] = {"[TX ===>] hai:host:Install host destination at HW",
                                     "[TX ===>] hai:host:Delete host destination at HW",
                                     "[TX ===>] hai:host:Replace host destination at HW"};
  for (std::size_t place = 0; place < 3; ++place) {
    const auto [name, operation] = operations[place];
    requests.push_back(
        {std::string(name) + "Vlan",
         [operation = operation] {
           testing_support::TestObject<DbVlanObject, DestVlanMessage> vlan;
           vlan.record().set_lim_id("aaaa");
           vlan.record().set_name(kName);
           HaiL3MplsEncapsulationVlan adapter;
           EXPECT_EQ((adapter.*operation)(vlan.pointer()), 0);
         },
         {R"(Vlan Object message: %s <- lim_id: "aaaa" name: "%s%n")",
          std::string(vlan_traces[place]) +
              " <- VlanEncapsulationMessage(this=ADDRESS): VlanMessage(vlan destination id(0), "
              "lim id(name=%s%n, type=0x02, value=0x000103), vrf=Empty, mtu=Empty, "
              "source source mac address(Empty))"},
         kNoClient});
    requests.push_back({std::string(name) + "Host",
                        [operation = operation] {
                          testing_support::TestObject<DbHostObject, DestHostMessage> host;
                          host.record().set_name(kName);
                          HaiL3MplsEncapsulationHost adapter;
                          EXPECT_EQ((adapter.*operation)(host.pointer()), 0);
                        },
                        {R"(Host Object message: %s <- name: "%s%n")", host_traces[place]},
                        kNoClient});
    requests.push_back(
        {std::string(name) + "Mpls",
         [operation = operation] {
           testing_support::TestObject<DbMplsObject, DestMplsMessage> mpls;
           mpls.record().set_lim_id("aaaa");
           HaiL3MplsEncapsulationMpls adapter;
           EXPECT_EQ((adapter.*operation)(mpls.pointer()), 0);
         },
         {"[TX ===>] hai:mpls:No neighbor active, turn on Drop Flag",
          "[TX ===>] hai:mpls:msg:%s <- MplsEncapsulationMessage(this=ADDRESS): MplsMessage(mpls "
          "destination id(0), vlan/tunnel destination id(0), lim id(name=%s%n, type=0x02, "
          "value=0x000103), destination mac address(Empty), labels(size=0), MPLS Capabilities(), "
          "HAL Flag(Drop Packet))"},
         kNoClient});
  }

  constexpr char kNoEcmpClient[] = "Hai has no HalL3MplsEncapsulationClient registered!!!";
  requests.push_back({"InstallEcmp",
                      [] {
                        HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {12, 15}});
                      },
                      {"[TX ===>] hai:ecmp:Install ECMP=(db_id=%u) <- 7"},
                      kNoEcmpClient});
  requests.push_back({"DestroyEcmp",
                      [] {
                        HaiL3MplsEncapsulationEcmp().DestroyEcmp({7, {12, 15}});
                      },
                      {"[TX ===>] hai:ecmp:Delete ECMP=(db_id=%u) <- 7"},
                      kNoEcmpClient});
  requests.push_back(
      {"InstallVrf",
       [] {
         EXPECT_EQ(HaiL3MplsEncapsulationVrf().InstallVrf({5, 42}), 0);
       },
       {"[TX ===>] hai:vrf:Install VRF=%u db_id=%u l3-ingress interface at HW <- 5 <- 42"},
       ""});
  requests.push_back(
      {"DestroyVrf",
       [] {
         EXPECT_EQ(HaiL3MplsEncapsulationVrf().DestroyVrf({5, 42}), 0);
       },
       {"[TX ===>] hai:vrf:Delete VRF=%u db_id=%u l3-ingress interface at HW <- 5 <- 42"},
       ""});
  return requests;
}

std::vector<Request> RequestsThatCheck(bool check) {
  std::vector<Request> chosen;
  for (const Request& request : Requests()) {
    if (request.no_client.empty() != check) chosen.push_back(request);
  }
  return chosen;
}

const auto kRequestName = [](const auto& tested) { return tested.param.name; };

class RequestTest : public testing_support::HaiTest, public ::testing::WithParamInterface<Request> {
 protected:
  RequestTest() {
    InterfaceIds().name = kName;
    InterfaceIds().type = 2;
    InterfaceIds().ifindex = 0x01000103;
    for (std::size_t number = 0; number < clients_.size(); ++number) {
      clients_[number].on_request = [this, number](AppMessage*) { asked_.push_back(number); };
    }
  }

  ~RequestTest() override {
    registry_hook = nullptr;
    attribute_values.clear();
  }

  static void Register(HalL3MplsEncapsulationClient* client) {
    RealGetInstance()->set_client(client);
  }

  std::array<FakeHalClient, 4> clients_;
  /// The numbers of the clients that received a request.
  std::vector<std::size_t> asked_;
};

TEST_P(RequestTest, PassesTheLogItsFormatAndArguments) {
  GetParam().send();

  std::vector<std::string> records;
  for (const std::string& record : RawRecords()) {
    records.push_back(
        std::regex_replace(record, std::regex("this=0x[0-9A-F]{16}"), "this=ADDRESS"));
  }
  EXPECT_THAT(records, ElementsAreArray(GetParam().traces));
}

TEST_P(RequestTest, ChecksTheLevelOncePerTrace) {
  for (const bool on : {true, false}) {
    SetTrace(on);
    GetParam().send();
    EXPECT_EQ(LevelQueries(), static_cast<int>(GetParam().traces.size())) << on;
  }
}

TEST_P(RequestTest, SendsToTheCurrentClient) {
  for (const std::size_t number : {1U, 0U, 2U}) {
    Register(&clients_[number]);
    GetParam().send();
  }

  EXPECT_THAT(asked_, ElementsAre(1, 0, 2));
}

TEST_P(RequestTest, LooksTheClientUpAfterItsLastTrace) {
  std::size_t traces = 0;
  SetLogHook([&] { Register(&clients_[++traces]); });
  Register(&clients_[0]);
  GetParam().send();

  EXPECT_EQ(traces, GetParam().traces.size());
  EXPECT_THAT(asked_, ElementsAre(traces));
}

INSTANTIATE_TEST_SUITE_P(, RequestTest, ::testing::ValuesIn(Requests()), kRequestName);

// The requests that check for a client.

class CheckedRequestTest : public RequestTest {};

TEST_P(CheckedRequestTest, MissesAClientThatItsTraceUnregistered) {
  int records = 0;
  SetLogHook([&] {
    ++records;
    WithoutClient();
  });
  Register(&clients_[0]);
  GetParam().send();

  EXPECT_THAT(asked_, IsEmpty());
  EXPECT_EQ(records, static_cast<int>(GetParam().traces.size()) + 1);
}

TEST_P(CheckedRequestTest, LogsAMissingClientAtAnyLevel) {
  WithoutClient();
  SetLevelAnswer([](int) { return 0; });
  GetParam().send();

  EXPECT_THAT(RawRecords(), ElementsAre(GetParam().no_client));
}

// One look-up for the check and one for the call.
TEST_P(CheckedRequestTest, SendsToTheClientOfItsSecondLookup) {
  SetTrace(false);
  registry_looks = 0;
  registry_hook = [this](int look) { Register(&clients_[static_cast<std::size_t>(look)]); };
  GetParam().send();

  EXPECT_THAT(asked_, ElementsAre(2));
  EXPECT_EQ(registry_looks, 2);
}

TEST_P(CheckedRequestTest, LooksUpTheClientOnceIfThereIsNone) {
  WithoutClient();
  SetTrace(false);
  registry_looks = 0;
  registry_hook = [](int) {};
  GetParam().send();

  EXPECT_EQ(registry_looks, 1);
}

INSTANTIATE_TEST_SUITE_P(, CheckedRequestTest, ::testing::ValuesIn(RequestsThatCheck(true)),
                         kRequestName);

// VRF requests, which do not check.

class UncheckedRequestTest : public RequestTest {};

TEST_P(UncheckedRequestTest, LooksUpTheClientOnce) {
  SetTrace(false);
  registry_looks = 0;
  registry_hook = [this](int look) { Register(&clients_[static_cast<std::size_t>(look)]); };
  GetParam().send();
  GetParam().send();

  EXPECT_THAT(asked_, ElementsAre(1, 2));
  EXPECT_EQ(registry_looks, 2);
}

INSTANTIATE_TEST_SUITE_P(, UncheckedRequestTest, ::testing::ValuesIn(RequestsThatCheck(false)),
                         kRequestName);

class UncheckedRequestDeathTest : public RequestTest {
 protected:
  // Sends without a client. This or a sanitizer reports the null call, and nothing else.
  static void SendThroughNull() {
    std::signal(SIGSEGV, [](int) {
      constexpr char kText[] = "null call\n";
      _exit(write(STDERR_FILENO, kText, sizeof kText - 1) > 0 ? 1 : 2);
    });
    GetParam().send();
  }
  static constexpr char kNullCall[] = "null call|null pointer";
};

TEST_P(UncheckedRequestDeathTest, CallsThroughNullWithoutAClient) {
  WithoutClient();
  SetTrace(false);
  EXPECT_DEATH(SendThroughNull(), kNullCall);
}

TEST_P(UncheckedRequestDeathTest, CallsThroughNullAfterItsTrace) {
  SetLogHook([] {
    std::cerr << "traced\n";
    RealGetInstance()->set_client(nullptr);
  });
  EXPECT_DEATH(SendThroughNull(), std::string("^traced\n.*(") + kNullCall + ")");
}

INSTANTIATE_TEST_SUITE_P(, UncheckedRequestDeathTest, ::testing::ValuesIn(RequestsThatCheck(false)),
                         kRequestName);

// The attribute that a host destination reads twice.

using LookupTest = testing_support::HaiTest;

TEST_F(LookupTest, HostReadsItsVlanDestIdASecondTime) {
  testing_support::TestObject<DbHostObject, DestHostMessage> host;
  encapsulation::HostMessage message;
  attribute_values = {5, 6};
  HaiL3MplsEncapsulationHost().TranslateHostObjectToEncapMessage(host.pointer(), &message);

  EXPECT_EQ(message.vlan_dest_id(), 6U);
  EXPECT_THAT(attribute_values, IsEmpty());
}

TEST_F(LookupTest, HostReadsAVlanDestIdOf0Once) {
  testing_support::TestObject<DbHostObject, DestHostMessage> host;
  encapsulation::HostMessage message;
  attribute_values = {0, 6};
  HaiL3MplsEncapsulationHost().TranslateHostObjectToEncapMessage(host.pointer(), &message);

  EXPECT_FALSE(message.has_vlan_dest_id());
  EXPECT_THAT(attribute_values, ElementsAre(6));
  attribute_values.clear();
}

// The contents of the message when the trace is written.
class MessageAtTraceTest : public testing_support::HaiTest {
 protected:
  MessageAtTraceTest() {
    SetLogHook([this] { at_trace_.push_back(made_message->ShortDebugString()); });
  }

  std::vector<std::string> at_trace_;
};

TEST_F(MessageAtTraceTest, EcmpHoldsItsIdAndMembers) {
  HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {12, 15}});
  HaiL3MplsEncapsulationEcmp().DestroyEcmp({7, {12, 15}});

  EXPECT_THAT(at_trace_, ElementsAre("db_id: 7 members: 12 members: 15", "db_id: 7"));
}

TEST_F(MessageAtTraceTest, VrfHoldsItsId) {
  HaiL3MplsEncapsulationVrf().InstallVrf({5, 42});
  HaiL3MplsEncapsulationVrf().DestroyVrf({5, 42});

  EXPECT_THAT(at_trace_, ElementsAre("vrf_id: 5", "vrf_id: 5"));
}

}  // namespace
}  // namespace dest_mng
