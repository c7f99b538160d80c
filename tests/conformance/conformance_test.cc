/// The common behaviour of all HALs: the embedded HAL, zuskux-hal with its tables only, and
/// zuskux-hal that programs Linux. The expectations come from reference/hal/hal_code.h,
/// docs/wire_protocol.md and docs/linux.md.
///
/// The Linux server needs root. A test that needs a feature that the kernel lacks is skipped; with
/// ZUSKUX_SKIP_NOTHING=1 in the environment, it fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/conformance/hal_under_test.h"
#include "tests/data_plane/linux/network_namespace.h"
#include "tests/hal/messages.h"
#include "zuskux/host_encapsulation_message.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

enum class Hal { kEmbedded, kSimulatedServer, kLinuxServer };

struct HalName {
  Hal hal;
  const char* name;
  std::unique_ptr<HalUnderTest> (*make)(std::size_t capacity);
};
constexpr HalName kHals[] = {{Hal::kEmbedded, "Embedded", MakeEmbeddedHal},
                             {Hal::kSimulatedServer, "SimulatedServer", MakeSimulatedServer},
                             {Hal::kLinuxServer, "LinuxServer", MakeLinuxServer}};

std::ostream& operator<<(std::ostream& out, const HalName& hal) { return out << hal.name; }

// The messages of the tests. Those of VLANs name an interface, and those of riders a MAC address:
// without them, Linux would not forward.

constexpr char kMac[] = "\x02\x02\x02\x02\x02\x02";
constexpr char kOtherMac[] = "\x02\x02\x02\x02\x02\x03";
const std::string kLimId("\x01\x00\x00\x00", 4);

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t mtu = 1500) {
  encapsulation::VlanMessage vlan = Vlan(id, mtu);
  vlan.set_lim_id(kLimId);
  return vlan;
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac(kMac);
  return host;
}

encapsulation::HostMessage OtherNeighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac(kOtherMac);
  return host;
}

encapsulation::MplsMessage Tunnel(std::uint32_t id, std::uint32_t below,
                                  std::uint32_t label = 100) {
  encapsulation::MplsMessage mpls = MplsOn(id, below, label);
  mpls.set_dest_mac(kMac);
  return mpls;
}

/// The kernel features that a request needs.
std::set<std::string> FeaturesFor(const HalRequest& request) {
  switch (KindOf(request.operation)) {
    case HalKind::kVrf:
      return {"VRF"};
    case HalKind::kMpls: {
      encapsulation::MplsMessage mpls;
      EXPECT_TRUE(mpls.ParseFromString(request.payload));
      if (mpls.vlan_tunnel_dest_id() == 0) return {"MPLS", "dummy"};
      return {"MPLS"};
    }
    case HalKind::kHost: {
      encapsulation::HostMessage host;
      EXPECT_TRUE(host.ParseFromString(request.payload));
      if (!host.has_vlan_dest_id()) return {"dummy"};
      return {};
    }
    default:
      return {};
  }
}

/// A HAL, in a network namespace of its own if it programs Linux.
class ConformanceBase : public NetworkNamespaceTest {
 protected:
  // The tests call `Start` instead.
  void SetUp() override {}

  void TearDown() override {
    if (hal_ == nullptr) return;
    EXPECT_EQ(hal_->Disagreement(), "");
    hal_.reset();
  }

  /// Starts the HAL, or skips the test if this is impossible here. `requests` are those that the
  /// test will send.
  void Start(const HalName& hal, const std::vector<HalRequest>& requests,
             std::size_t capacity = 1000) {
    if (hal.hal == Hal::kLinuxServer) {
      NetworkNamespaceTest::SetUp();
      if (IsSkipped()) return;
      std::set<std::string> features;
      for (const HalRequest& request : requests) features.merge(FeaturesFor(request));
      for (const std::string& feature : features) Need(feature);
      if (IsSkipped() || HasFailure()) return;
    }
    hal_ = hal.make(capacity);
  }

  bool started() const { return hal_ != nullptr; }

  void Carry(const std::vector<HalRequest>& requests) {
    for (const HalRequest& request : requests) {
      ASSERT_EQ(hal_->CarryOut(request), kHalSuccess) << Name(request);
    }
  }

  static std::string Name(const HalRequest& request) {
    return std::string(OperationName(request.operation)) + ' ' + std::to_string(request.id);
  }

  /// The contents after these installs.
  static TableEntries EntriesOf(const std::vector<HalRequest>& installs) {
    TableEntries entries;
    for (const HalRequest& install : installs) {
      entries[{KindOf(install.operation), install.id}] = install.payload;
    }
    return entries;
  }

  std::vector<std::uint32_t> Ids(HalKind kind) {
    std::vector<std::uint32_t> ids;
    for (const auto& [key, payload] : hal_->Contents()) {
      if (key.first == kind) ids.push_back(key.second);
    }
    return ids;
  }

  std::unique_ptr<HalUnderTest> hal_;

 private:
  static void Need(const std::string& feature) {
    static const std::map<std::string, std::string> kProbes = {
        {"VRF", "ip link add probe type vrf table 9 && ip link del probe"},
        {"dummy", "ip link add probe type dummy && ip link del probe"},
        {"MPLS",
         "ip -6 nexthop add id 1 encap mpls 16 via fe80::1 dev eth2 onlink && "
         "ip nexthop del id 1"}};
    if (Works(kProbes.at(feature))) return;
    if (std::getenv("ZUSKUX_SKIP_NOTHING") != nullptr) FAIL() << "this kernel lacks " << feature;
    GTEST_SKIP() << "needs " << feature;
  }
};

// The codes. Each group of cases is one test, so that a HAL starts once for all of them.

struct Case {
  const char* name;
  /// What the HAL holds before.
  std::vector<HalRequest> held;
  HalRequest request;
  HalReturnCode code;
};

struct Group {
  const char* name;
  std::vector<Case> cases;
};

std::ostream& operator<<(std::ostream& out, const Group& group) { return out << group.name; }

/// VLAN 10, host 20 on it, group 40 of both.
std::vector<HalRequest> Held() {
  return {Install(VlanOn(10)), Install(Neighbour(20, 10)), Install(Ecmp(40, {10, 20}))};
}

/// The same and tunnel 30 on the VLAN.
std::vector<HalRequest> HeldWithTunnel() {
  std::vector<HalRequest> held = Held();
  held.push_back(Install(Tunnel(30, 10)));
  return held;
}

encapsulation::VlanMessage VlanWithoutId() {
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(kLimId);
  return vlan;
}

encapsulation::HostMessage HostWithoutId() {
  encapsulation::HostMessage host;
  host.set_vlan_dest_id(10);
  return host;
}

encapsulation::MplsMessage TwoLabels(std::uint32_t second) {
  encapsulation::MplsMessage mpls = Tunnel(31, 10);
  mpls.add_labels(second);
  return mpls;
}

const std::vector<Group>& Groups() {
  static const std::vector<Group> kGroups = {
      {"BadRequests",
       {{"VlanWithoutId", {}, Install(VlanWithoutId()), kHalBadRequest},
        {"HostWithoutId", Held(), Install(HostWithoutId()), kHalBadRequest},
        {"EcmpWithoutId", {}, Install(encapsulation::EcmpMessage()), kHalBadRequest},
        {"VlanZero", {}, Install(VlanOn(0)), kHalBadRequest},
        {"HostZero", Held(), Install(Neighbour(0, 10)), kHalBadRequest},
        {"EcmpZero", {}, Install(Ecmp(0, {})), kHalBadRequest},
        {"ReplaceZero", {}, Replace(VlanOn(0)), kHalBadRequest},
        {"DestroyZero", {}, Destroy(Neighbour(0, 10)), kHalBadRequest}}},
      {"Existence",
       {{"NewVlan", {}, Install(VlanOn(10)), kHalSuccess},
        {"NewGroup", Held(), Install(Ecmp(41, {20})), kHalSuccess},
        {"DestroyVlan", {Install(VlanOn(10))}, Destroy(VlanOn(10)), kHalSuccess},
        {"DestroyHost",
         {Install(VlanOn(10)), Install(Neighbour(20, 10))},
         Destroy(Neighbour(20, 10)),
         kHalSuccess},
        {"DestroyGroup", Held(), Destroy(Ecmp(40, {10, 20})), kHalSuccess},
        {"DestroyMissingVlan", Held(), Destroy(VlanOn(20)), kHalNotFound},
        {"DestroyMissingHost", Held(), Destroy(Neighbour(10, 10)), kHalNotFound},
        {"DestroyMissingGroup", Held(), Destroy(Ecmp(41, {})), kHalNotFound},
        {"DestroyWithOtherContent", Held(), Destroy(Ecmp(40, {})), kHalSuccess},
        {"DestroyVlanInUse", Held(), Destroy(VlanOn(10)), kHalSuccess},
        {"DestroyHostInUse", Held(), Destroy(Neighbour(20, 10)), kHalSuccess},
        {"ReplaceVlan", Held(), Replace(VlanOn(10, 1400)), kHalSuccess},
        {"ReplaceHost", Held(), Replace(OtherNeighbour(20, 10)), kHalSuccess},
        {"ReplaceWithTheSame", Held(), Replace(VlanOn(10)), kHalSuccess},
        {"ReplaceMissingVlan", Held(), Replace(VlanOn(11)), kHalNotFound},
        {"ReplaceMissingHost", Held(), Replace(Neighbour(21, 10)), kHalNotFound},
        {"RepeatedVlan", Held(), Install(VlanOn(10)), kHalSuccess},
        {"RepeatedHost", Held(), Install(Neighbour(20, 10)), kHalSuccess},
        {"RepeatedGroup", Held(), Install(Ecmp(40, {10, 20})), kHalSuccess},
        {"OtherVlan", Held(), Install(VlanOn(10, 1400)), kHalExists},
        {"OtherHost", Held(), Install(OtherNeighbour(20, 10)), kHalExists},
        {"OtherMembers", Held(), Install(Ecmp(40, {20, 20})), kHalSuccess}}},
      {"References",
       {{"HostOnVlan", Held(), Install(Neighbour(21, 10)), kHalSuccess},
        {"HostOnMissing", Held(), Install(Neighbour(21, 11)), kHalMissingReference},
        {"HostOnZero", Held(), Install(Neighbour(21, 0)), kHalMissingReference},
        {"HostOnHost", Held(), Install(Neighbour(21, 20)), kHalMissingReference},
        {"HostOnGroup", Held(), Install(Neighbour(21, 40)), kHalMissingReference},
        {"ReplaceHostOnMissing", Held(), Replace(Neighbour(20, 11)), kHalMissingReference},
        {"GroupOfVlanAndHost", Held(), Install(Ecmp(41, {10, 20})), kHalSuccess},
        {"RepeatedMember", Held(), Install(Ecmp(41, {20, 20})), kHalSuccess},
        {"NoMember", Held(), Install(Ecmp(41, {})), kHalSuccess},
        {"MissingMember", Held(), Install(Ecmp(41, {20, 21})), kHalMissingReference},
        {"MemberZero", Held(), Install(Ecmp(41, {0})), kHalMissingReference},
        {"GroupOfGroup", Held(), Install(Ecmp(41, {40})), kHalMissingReference},
        {"GroupOfItself", Held(), Install(Ecmp(41, {41})), kHalMissingReference},
        {"NewMembersMissing", Held(), Install(Ecmp(40, {21})), kHalMissingReference}}},
      {"OrderOfChecks",
       {{"IdBeforeReferences", {}, Install(Neighbour(0, 11)), kHalBadRequest},
        {"NotFoundBeforeReferences", Held(), Replace(Neighbour(21, 11)), kHalNotFound},
        {"ExistsBeforeReferences", Held(), Install(Neighbour(20, 11)), kHalExists}}},
      {"Vrfs",
       {{"WithoutId", {}, Install(encapsulation::VrfMessage()), kHalBadRequest},
        {"ZeroIsAnId", {}, Install(Vrf(0)), kHalSuccess},
        {"New", {}, Install(Vrf(1)), kHalSuccess},
        {"Repeated", {Install(Vrf(1))}, Install(Vrf(1)), kHalSuccess},
        {"Destroy", {Install(Vrf(1))}, Destroy(Vrf(1)), kHalSuccess},
        {"DestroyMissing", {Install(Vrf(1))}, Destroy(Vrf(2)), kHalNotFound},
        {"MemberOfAGroup", {Install(Vrf(1))}, Install(Ecmp(41, {1})), kHalMissingReference}}},
      {"Mpls",
       {{"WithoutId", {}, Install(encapsulation::MplsMessage()), kHalBadRequest},
        {"Zero", {}, Install(Tunnel(0, 0)), kHalBadRequest},
        {"Repeated", HeldWithTunnel(), Install(Tunnel(30, 10)), kHalSuccess},
        {"Other", HeldWithTunnel(), Install(Tunnel(30, 10, 101)), kHalExists},
        {"Replace", HeldWithTunnel(), Replace(Tunnel(30, 10, 101)), kHalSuccess},
        {"ReplaceMissing", HeldWithTunnel(), Replace(Tunnel(31, 10)), kHalNotFound},
        {"Destroy", HeldWithTunnel(), Destroy(Tunnel(30, 10)), kHalSuccess},
        {"DestroyMissing", HeldWithTunnel(), Destroy(Tunnel(31, 10)), kHalNotFound},
        {"LargestLabel", HeldWithTunnel(), Install(Tunnel(31, 10, 1048575)), kHalSuccess},
        {"LabelTooLarge", HeldWithTunnel(), Install(Tunnel(31, 10, 1048576)), kHalLabelOutOfRange},
        {"SecondLabelTooLarge", HeldWithTunnel(), Install(TwoLabels(4294967295)),
         kHalLabelOutOfRange},
        {"ReplaceLabelTooLarge", HeldWithTunnel(), Replace(Tunnel(30, 10, 1048576)),
         kHalLabelOutOfRange},
        {"OnVlan", HeldWithTunnel(), Install(Tunnel(31, 10)), kHalSuccess},
        {"OnTunnel", HeldWithTunnel(), Install(Tunnel(31, 30)), kHalSuccess},
        {"OnMissing", HeldWithTunnel(), Install(Tunnel(31, 11)), kHalMissingReference},
        {"OnHost", HeldWithTunnel(), Install(Tunnel(31, 20)), kHalMissingReference},
        {"HostOnTunnel", HeldWithTunnel(), Install(Neighbour(21, 30)), kHalMissingReference},
        {"GroupOfEachKind", HeldWithTunnel(), Install(Ecmp(41, {10, 20, 30})), kHalSuccess},
        {"NotFoundBeforeLabels", HeldWithTunnel(), Replace(Tunnel(31, 10, 1048576)), kHalNotFound},
        {"ExistsBeforeLabels", HeldWithTunnel(), Install(Tunnel(30, 10, 1048576)), kHalExists},
        {"LabelsBeforeReferences", HeldWithTunnel(), Install(Tunnel(31, 11, 1048576)),
         kHalLabelOutOfRange}}},
      {"OnNothing",
       {{"Host", {}, Install(Host(21)), kHalSuccess},
        {"ReplaceHost", Held(), Replace(Host(20)), kHalSuccess},
        {"Mpls", {}, Install(MplsOn(31, 0)), kHalSuccess}}},
  };
  return kGroups;
}

class CodesTest : public ConformanceBase,
                  public testing::WithParamInterface<std::tuple<HalName, Group>> {};

TEST_P(CodesTest, AreThoseOfTheCasesAndAFailedRequestChangesNothing) {
  const auto& [hal, group] = GetParam();
  std::vector<HalRequest> requests;
  for (const Case& test : group.cases) {
    requests.insert(requests.end(), test.held.begin(), test.held.end());
    requests.push_back(test.request);
  }
  Start(hal, requests);
  if (!started()) return;
  for (const Case& test : group.cases) {
    SCOPED_TRACE(test.name);
    hal_->Clear();
    ASSERT_NO_FATAL_FAILURE(Carry(test.held));
    EXPECT_EQ(hal_->CarryOut(test.request), test.code);
    TableEntries expected = EntriesOf(test.held);
    const std::pair key(KindOf(test.request.operation), test.request.id);
    if (test.code == kHalSuccess && ActionOf(test.request.operation) == HalAction::kDestroy) {
      expected.erase(key);
    } else if (test.code == kHalSuccess) {
      expected[key] = test.request.payload;
    }
    EXPECT_EQ(hal_->Contents(), expected);
    EXPECT_EQ(hal_->Disagreement(), "");
  }
}

INSTANTIATE_TEST_SUITE_P(Each, CodesTest,
                         testing::Combine(testing::ValuesIn(kHals), testing::ValuesIn(Groups())),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  std::get<1>(test.param).name;
                         });

class ConformanceTest : public ConformanceBase, public testing::WithParamInterface<HalName> {
 protected:
  /// Starts the HAL and carries out the requests, which succeed. The test needs nothing else from
  /// the kernel.
  void StartWith(const std::vector<HalRequest>& requests, std::size_t capacity = 1000) {
    Start(GetParam(), requests, capacity);
    if (started()) Carry(requests);
  }
};

INSTANTIATE_TEST_SUITE_P(Each, ConformanceTest, testing::ValuesIn(kHals),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ConformanceTest, AMessageOfAnotherKindIsABadRequest) {
  StartWith({});
  if (!started()) return;
  HostEncapsulationMessage host(std::make_unique<encapsulation::HostMessage>(Neighbour(20, 10)));
  EXPECT_EQ(hal_->connection()->InstallVlanOutgoingEncapsulation(&host), kHalSuccess);
  const Answer answer = hal_->Await();
  EXPECT_EQ(answer.operation, HalOperation::kInstallVlan);
  EXPECT_EQ(answer.code, kHalBadRequest);
  EXPECT_EQ(answer.ids.id, 0U);
  EXPECT_THAT(hal_->Contents(), IsEmpty());
}

TEST_P(ConformanceTest, AResultReturnsBothIds) {
  encapsulation::MplsMessage mpls = Tunnel(30, 10);
  mpls.set_pass_through_value(77);
  Start(GetParam(), {Install(mpls)});
  if (!started()) return;
  Carry({Install(VlanOn(10))});
  for (const HalRequest& request : {Install(mpls), Replace(mpls), Destroy(mpls)}) {
    hal_->Submit(request);
    const Answer answer = hal_->Await();
    EXPECT_EQ(answer.operation, request.operation);
    EXPECT_EQ(answer.code, kHalSuccess);
    EXPECT_EQ(answer.ids.id, 30U);
    EXPECT_EQ(answer.ids.secondary_id, 77U);
  }
}

TEST_P(ConformanceTest, ARepeatedInstallChecksNoReferences) {
  StartWith(Held());
  if (!started()) return;
  Carry({Destroy(VlanOn(10)), Install(Neighbour(20, 10)), Install(Ecmp(40, {10, 20}))});
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(21, 10))), kHalMissingReference);
}

TEST_P(ConformanceTest, WhatIsInUseMayGoAndComeBack) {
  StartWith(Held());
  if (!started()) return;
  Carry({Destroy(VlanOn(10)), Destroy(Neighbour(20, 10))});
  EXPECT_EQ(hal_->CarryOut(Destroy(VlanOn(10))), kHalNotFound);
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(20, 10))), kHalMissingReference);
  EXPECT_EQ(hal_->Contents(), EntriesOf({Install(Ecmp(40, {10, 20}))}));
  Carry({Install(VlanOn(10, 1400)), Install(Neighbour(20, 10))});
  EXPECT_THAT(Ids(HalKind::kVlan), ElementsAre(10));
  EXPECT_THAT(Ids(HalKind::kHost), ElementsAre(20));
}

TEST_P(ConformanceTest, AFullTableAcceptsNoNewEntry) {
  StartWith({Install(VlanOn(1)), Install(VlanOn(2))}, 2);
  if (!started()) return;
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(3))), kHalTableFull);
  EXPECT_THAT(Ids(HalKind::kVlan), ElementsAre(1, 2));
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(4, 1))), kHalSuccess) << "another table";
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(2))), kHalSuccess) << "a repeated install";
  EXPECT_EQ(hal_->CarryOut(Replace(VlanOn(2, 1400))), kHalSuccess);
  Carry({Destroy(VlanOn(1))});
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(3))), kHalSuccess);
  EXPECT_THAT(Ids(HalKind::kVlan), ElementsAre(2, 3));
}

TEST_P(ConformanceTest, RoomIsCheckedLast) {
  StartWith({Install(VlanOn(10)), Install(Neighbour(20, 10))}, 1);
  if (!started()) return;
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(21, 11))), kHalMissingReference);
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(21, 10))), kHalTableFull);
}

TEST_P(ConformanceTest, ManyRequestsInFlightHaveOneResultEach) {
  StartWith({Install(VlanOn(10))});
  if (!started()) return;
  // In groups of four: a host, the same again, another content, and one on a VLAN that is missing.
  constexpr std::uint32_t kCount = 200;
  std::map<std::pair<std::uint32_t, HalReturnCode>, int> expected;
  for (std::uint32_t id = 100; id < 100 + kCount; ++id) {
    hal_->Submit(Install(Neighbour(id, 10)));
    hal_->Submit(Install(Neighbour(id, 10)));
    hal_->Submit(Install(OtherNeighbour(id, 10)));
    hal_->Submit(Install(Neighbour(id + kCount, 11)));
    expected[{id, kHalSuccess}] = 2;
    expected[{id, kHalExists}] = 1;
    expected[{id + kCount, kHalMissingReference}] = 1;
  }
  std::map<std::pair<std::uint32_t, HalReturnCode>, int> answers;
  for (std::uint32_t count = 0; count < 4 * kCount; ++count) {
    const Answer answer = hal_->Await();
    EXPECT_EQ(answer.operation, HalOperation::kInstallHost);
    ++answers[{answer.ids.id, answer.code}];
  }
  EXPECT_EQ(answers, expected);
  EXPECT_EQ(Ids(HalKind::kHost).size(), kCount);
}

using ReinstallTest = ConformanceTest;

INSTANTIATE_TEST_SUITE_P(Each, ReinstallTest, testing::ValuesIn(kHals),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(ReinstallTest, RemovesWhatWasNotNamed) {
  StartWith({Install(VlanOn(10)), Install(VlanOn(11)), Install(VlanOn(12)),
             Install(Neighbour(20, 10)), Install(Ecmp(40, {20}))});
  if (!started()) return;
  hal_->BeginReinstall();
  Carry({Install(VlanOn(10)), Replace(VlanOn(12, 1400)), Install(VlanOn(13))});
  EXPECT_EQ(Ids(HalKind::kHost).size(), 1U) << "nothing is removed before the end";
  hal_->EndReinstall();
  EXPECT_EQ(hal_->Contents(),
            EntriesOf({Install(VlanOn(10)), Install(VlanOn(12, 1400)), Install(VlanOn(13))}));
}

TEST_P(ReinstallTest, RemovesWhatWasNotNamedOfEveryKind) {
  std::vector<HalRequest> held = HeldWithTunnel();
  held.push_back(Install(Vrf(1)));
  StartWith(held);
  if (!started()) return;
  hal_->Clear();
  EXPECT_THAT(hal_->Contents(), IsEmpty());
}

TEST_P(ReinstallTest, KeepsAWholeSiteThatIsInstalledAgain) {
  StartWith(Held());
  if (!started()) return;
  hal_->BeginReinstall();
  Carry(Held());
  hal_->EndReinstall();
  EXPECT_EQ(hal_->Contents(), EntriesOf(Held()));
}

TEST_P(ReinstallTest, InstallReplaces) {
  StartWith(Held());
  if (!started()) return;
  const std::vector<HalRequest> others = {Install(VlanOn(10, 1400)),
                                          Install(OtherNeighbour(20, 10)), Install(Ecmp(40, {20}))};
  hal_->BeginReinstall();
  Carry(others);
  hal_->EndReinstall();
  EXPECT_EQ(hal_->Contents(), EntriesOf(others));
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(10))), kHalExists) << "after the reinstall";
}

TEST_P(ReinstallTest, InstallReplacesMpls) {
  StartWith(HeldWithTunnel());
  if (!started()) return;
  const std::vector<HalRequest> others = {Install(VlanOn(10)), Install(Tunnel(30, 10, 101))};
  hal_->BeginReinstall();
  Carry(others);
  hal_->EndReinstall();
  EXPECT_EQ(hal_->Contents(), EntriesOf(others));
  EXPECT_EQ(hal_->CarryOut(Install(Tunnel(30, 10))), kHalExists) << "after the reinstall";
}

// Otherwise they would outlive what they refer to, which the end removes.
TEST_P(ReinstallTest, NothingRefersToUnnamedEntries) {
  StartWith(Held());
  if (!started()) return;
  hal_->BeginReinstall();
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(20, 10))), kHalMissingReference) << "as before";
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(21, 10))), kHalMissingReference) << "a new one";
  EXPECT_EQ(hal_->CarryOut(Install(Ecmp(40, {20}))), kHalMissingReference);
  Carry({Install(VlanOn(10)), Install(Neighbour(21, 10)), Install(Ecmp(40, {21, 10}))});
  hal_->EndReinstall();
  EXPECT_EQ(hal_->Contents(), EntriesOf({Install(VlanOn(10)), Install(Neighbour(21, 10)),
                                         Install(Ecmp(40, {21, 10}))}));
}

TEST_P(ReinstallTest, AFailedInstallDoesNotName) {
  StartWith(Held());
  if (!started()) return;
  hal_->BeginReinstall();
  EXPECT_EQ(hal_->CarryOut(Install(Neighbour(20, 11))), kHalMissingReference);
  hal_->EndReinstall();
  EXPECT_THAT(hal_->Contents(), IsEmpty());
}

TEST_P(ReinstallTest, WhatIsDestroyedMeanwhileStaysDestroyed) {
  StartWith(Held());
  if (!started()) return;
  hal_->BeginReinstall();
  Carry({Install(VlanOn(10)), Destroy(VlanOn(10))});
  hal_->EndReinstall();
  EXPECT_THAT(hal_->Contents(), IsEmpty());
}

TEST_P(ReinstallTest, BeginStartsOver) {
  StartWith({Install(VlanOn(10)), Install(VlanOn(11))});
  if (!started()) return;
  hal_->BeginReinstall();
  Carry({Install(VlanOn(10))});
  hal_->BeginReinstall();
  Carry({Install(VlanOn(11))});
  hal_->EndReinstall();
  EXPECT_THAT(Ids(HalKind::kVlan), ElementsAre(11));
}

TEST_P(ReinstallTest, AnEndWithoutABeginRemovesNothing) {
  StartWith(Held());
  if (!started()) return;
  hal_->connection()->EndReinstall();
  // The HAL carries out requests and marks in order.
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(10, 1400))), kHalExists) << "no reinstall is open";
  EXPECT_EQ(hal_->Contents(), EntriesOf(Held()));
  hal_->BeginReinstall();
  Carry(Held());
  hal_->EndReinstall();
  hal_->connection()->EndReinstall();
  EXPECT_EQ(hal_->CarryOut(Install(VlanOn(10, 1400))), kHalExists);
  EXPECT_EQ(hal_->Contents(), EntriesOf(Held()));
}

}  // namespace
}  // namespace reference
