#include "reference/manager/engine/manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <string>
#include <vector>

#include "base_encap_message.pb.h"
#include "interface_ids/interface_table.h"
#include "reference/manager/engine/adapters.h"
#include "reference/manager/views/explain.h"
#include "reference/manager/views/report.h"
#include "tests/manager/scripted_hal.h"
#include "tests/manager/sites.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ManagerTest : public ::testing::Test {
 protected:
  ManagerTest()
      : manager_(&io_,
                 {[this] { ++finished_; }, [this] { ++reinstalls_begun_; },
                  [this](std::size_t objects, auto time) {
                    reinstalled_.push_back(objects);
                    reinstall_time_ = time;
                  },
                  [this](std::uint64_t results) { results_ = results; }, nullptr, nullptr, nullptr,
                  [this](const std::string& differences, bool reinstalls) {
                    audited_.push_back(differences + (reinstalls ? "; reinstalls" : ""));
                  }}) {
    manager_.Start(&hal_);
  }

  void Apply(const Site& site) {
    manager_.Apply(site);
    Work();
  }

  void FindServer() {
    hal_.FindServer();
    Work();
  }

  void Answer(const std::string& request, HalReturnCode code = kHalSuccess) {
    hal_.Answer(request, code);
    Work();
  }

  // Answers every request with `code` until the manager sends no more.
  void AnswerAll(HalReturnCode code = kHalSuccess) {
    for (int round = 0; hal_.outstanding() != 0; ++round) {
      ASSERT_LT(round, 100) << "the manager does not stop sending";
      hal_.AnswerAll(code);
      Work();
    }
  }

  // Handles what has arrived, without the answer to the end of a reinstall.
  void WorkBeforeTheEnd() {
    io_.restart();
    io_.poll();
  }

  // Makes the HAL hold all of `site`.
  void Install(const Site& site) {
    manager_.Apply(site);
    FindServer();
    AnswerAll();
    hal_.TakeLog();
    ASSERT_TRUE(manager_.settled());
    finished_ = 0;
    reinstalled_.clear();
  }

  std::vector<std::string> Sent() { return hal_.TakeLog(); }

  Standing StandingOf(HalKind kind, std::uint32_t id) const {
    return reference::StandingOf(*manager_.database().Find({kind, id}));
  }

  std::string StandingText(HalKind kind, std::uint32_t id) const {
    const Object& object = *manager_.database().Find({kind, id});
    return std::string(StandingName(reference::StandingOf(object))) + ' ' + ReasonOf(object);
  }

  void Work() {
    io_.restart();
    io_.poll();
    hal_.EndReinstalls();
    io_.restart();
    io_.poll();
  }

  boost::asio::io_context io_;
  int finished_ = 0;
  int reinstalls_begun_ = 0;
  std::vector<std::size_t> reinstalled_;
  std::chrono::steady_clock::duration reinstall_time_{};
  std::uint64_t results_ = 0;
  std::vector<std::string> audited_;
  Manager manager_;
  ScriptedHal hal_;
};

TEST_F(ManagerTest, SendsNothingBeforeTheServerIsFound) {
  Apply(SiteOfAllKinds());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_FALSE(manager_.settled());
  EXPECT_EQ(manager_.remaining(), 8U);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kPending);
}

TEST_F(ManagerTest, InstallsInTheOrderOfDependence) {
  Apply(SiteOfAllKinds());
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vrf 7", "install-vlan 10",
                                  "install-vlan 11", "install-host 20", "install-host 21",
                                  "install-mpls 41", "install-mpls 40", "install-ecmp 30"));
  EXPECT_EQ(finished_, 0);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(finished_, 1);
  EXPECT_EQ(results_, 7U);
  EXPECT_EQ(manager_.remaining(), 0U);
  EXPECT_THAT(reinstalled_, ElementsAre(8U));
  EXPECT_EQ(Summary(manager_.database()).text(), "8 objects: 7 installed, 1 sent");
}

TEST_F(ManagerTest, AnEmptySiteSettles) {
  Apply(Site());
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "end-reinstall"));
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, ReportsAnApplyWithoutChangesAsSettled) {
  Install(SiteOfAllKinds());
  Apply(SiteOfAllKinds());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, ResendsAnEcmpGroupOnceItsLastMemberIsInstalled) {
  Site site;
  site.vlans = {VlanEntry(10)};
  site.mpls = {TunnelEntry(41, 10, 0), TunnelEntry(42, 10, 0)};
  site.ecmps = {EcmpEntry(30, {41, 42, 10})};
  Apply(site);
  FindServer();
  Sent();
  Answer("install-vlan 10");
  Answer("install-ecmp 30", kHalMissingReference);
  EXPECT_EQ(StandingOf(HalKind::kEcmp, 30), Standing::kFailed);
  Answer("install-mpls 41");
  EXPECT_THAT(Sent(), IsEmpty());
  Answer("install-mpls 42");
  EXPECT_THAT(Sent(), ElementsAre("install-ecmp 30"));
  Answer("install-ecmp 30");
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(StandingOf(HalKind::kEcmp, 30), Standing::kInstalled);
}

TEST_F(ManagerTest, ResendsWhatLackedADestinationOnceThatIsRepaired) {
  Site site;
  site.vlans = {VlanEntry(10)};
  site.hosts = {HostEntry(20, 10)};
  site.ecmps = {EcmpEntry(30, {20})};
  Apply(site);
  FindServer();
  Answer("install-vlan 10", kHalBadRequest);
  Answer("install-host 20", kHalMissingReference);
  Answer("install-ecmp 30", kHalMissingReference);
  EXPECT_EQ(finished_, 1);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed bad request");
  Sent();

  site.vlans[0].mtu = 9000;
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10"));
  Answer("install-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("install-host 20"));
  Answer("install-host 20");
  EXPECT_THAT(Sent(), ElementsAre("install-ecmp 30"));
  Answer("install-ecmp 30");
  EXPECT_EQ(Summary(manager_.database()).text(), "3 objects: 3 installed");
}

TEST_F(ManagerTest, GivesUpWhenTheHalMissesAReferenceThatItHas) {
  Site site;
  site.vlans = {VlanEntry(10)};
  site.hosts = {HostEntry(20, 10)};
  Apply(site);
  FindServer();
  Answer("install-vlan 10");
  Sent();
  AnswerAll(kHalMissingReference);
  EXPECT_THAT(Sent(), ElementsAre("install-host 20", "install-host 20", "end-reinstall"));
  EXPECT_EQ(StandingOf(HalKind::kHost, 20), Standing::kFailed);
}

TEST_F(ManagerTest, DoesNotRepeatAPermanentError) {
  Apply(SiteOfAllKinds());
  FindServer();
  Sent();
  AnswerAll(kHalLabelOutOfRange);
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(Summary(manager_.database()).text(), "8 objects: 8 failed");
  Apply(SiteOfAllKinds());
  EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ManagerTest, SendsALateChangeOnceTheResultArrives) {
  Site site;
  site.vlans = {VlanEntry(10, 1500)};
  Apply(site);
  FindServer();
  Sent();
  site.vlans = {VlanEntry(10, 1600)};
  Apply(site);
  site.vlans = {VlanEntry(10, 1700)};
  Apply(site);
  EXPECT_THAT(Sent(), IsEmpty());
  Answer("install-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  encapsulation::VlanMessage message;
  ASSERT_TRUE(message.ParseFromString(hal_.last_payload()));
  EXPECT_EQ(message.mtu(), 1700U);
  EXPECT_EQ(finished_, 0);
  Answer("replace-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, RemovesOnceTheInstallHasItsResult) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  Apply(site);
  FindServer();
  Apply(Site());
  Sent();
  Answer("install-vlan 10");
  // The other object may still have to be moved off the one being removed.
  EXPECT_THAT(Sent(), IsEmpty());
  Answer("install-vlan 11", kHalTableFull);
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
  EXPECT_EQ(StandingOf(HalKind::kVlan, 11), Standing::kRemoved);
  Answer("destroy-vlan 10");
  EXPECT_EQ(Summary(manager_.database()).text(), "2 objects: 2 removed");
}

TEST_F(ManagerTest, InstallsAgainWhatComesBackDuringItsRemoval) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  Apply(Site());
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
  Answer("destroy-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10"));
  Answer("install-vlan 10");
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
}

TEST_F(ManagerTest, SendsExactlyWhatChanges) {
  const Site first = SiteOfAllKinds();
  Install(first);

  Site second = first;
  second.vlans[0].mtu = 9000;
  second.hosts.push_back(HostEntry(22, 11));
  second.ecmps[0].members = {22};
  second.mpls.erase(second.mpls.begin());
  Apply(second);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10", "install-host 22", "install-ecmp 30"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("destroy-mpls 40"));

  Apply(first);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10", "install-mpls 40", "install-ecmp 30",
                                  "destroy-host 22"));
  EXPECT_EQ(StandingText(HalKind::kHost, 22), "removed ");
  Apply(first);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(Summary(manager_.database()).text(), "8 objects: 7 installed, 1 sent");
}

TEST_F(ManagerTest, RemovesNothingBeforeWhatRidesOnIt) {
  Install(SiteOfAllKinds());
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-ecmp 30", "destroy-mpls 40", "destroy-mpls 41",
                                  "destroy-host 20", "destroy-host 21", "destroy-vlan 10",
                                  "destroy-vlan 11", "destroy-vrf 7"));
  AnswerAll();
  EXPECT_EQ(Summary(manager_.database()).text(), "8 objects: 8 removed");
}

TEST_F(ManagerTest, ANeighborGoesAndComesBack) {
  const Site first = SiteOfAllKinds();
  Install(first);

  Site second = first;
  second.hosts.pop_back();
  for (SiteMpls& mpls : second.mpls) mpls.neighbor = 0;
  Apply(second);
  EXPECT_THAT(Sent(), ElementsAre("replace-mpls 41", "replace-mpls 40"));
  encapsulation::MplsMessage message;
  ASSERT_TRUE(message.ParseFromString(hal_.last_payload()));
  EXPECT_EQ(message.flag(), encapsulation::ACTION_DROP);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("destroy-host 21"));
  EXPECT_EQ(StandingText(HalKind::kMpls, 40), "inactive no active neighbor: dropping");
  EXPECT_TRUE(Summary(manager_.database()).complete());

  Apply(first);
  EXPECT_THAT(Sent(), ElementsAre("install-host 21", "replace-mpls 41", "replace-mpls 40"));
  ASSERT_TRUE(message.ParseFromString(hal_.last_payload()));
  EXPECT_FALSE(message.has_flag());
  AnswerAll();
  EXPECT_EQ(StandingOf(HalKind::kMpls, 40), Standing::kInstalled);
}

TEST_F(ManagerTest, SendsNoMoreThanThereIsRoomFor) {
  hal_.SetRoom(2);
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11), VlanEntry(12)};
  Apply(site);
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "install-vlan 11"));
  hal_.ReportRoom();
  Work();
  EXPECT_THAT(Sent(), IsEmpty());
  hal_.Answer();
  hal_.ReportRoom();
  Work();
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 12"));
}

TEST_F(ManagerTest, HandlesResultsAgainAfterABatchOfRequests) {
  constexpr std::uint32_t kVlans = 2000;
  hal_.SetRoom(kVlans);
  Site site;
  for (std::uint32_t id = 1; id <= kVlans; ++id) site.vlans.push_back(VlanEntry(id));
  manager_.Apply(site);
  hal_.FindServer();
  io_.restart();
  while (hal_.outstanding() == 0) ASSERT_EQ(io_.poll_one(), 1U);
  EXPECT_EQ(hal_.outstanding(), 1024U);
}

TEST_F(ManagerTest, ReportsAReinstallThatHasBegun) {
  ScriptedHal hal;
  std::vector<std::string> sent;
  ManagerEvents events;
  events.reinstalling = [&] { sent = hal.TakeLog(); };
  Manager own(&io_, std::move(events));
  own.Start(&hal);
  hal.FindServer();
  Work();
  EXPECT_THAT(sent, ElementsAre("begin-reinstall"));
}

TEST_F(ManagerTest, SleepsOnceAReinstallHasEnded) {
  Apply(Site());
  hal_.FindServer();
  io_.restart();
  EXPECT_EQ(io_.poll_one(), 1U);
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "end-reinstall"));
  EXPECT_EQ(io_.poll(), 0U);
}

TEST_F(ManagerTest, ShowsWhatChangesBeforeWhatGoes) {
  std::vector<std::string> changed;
  ManagerEvents events;
  events.standing_changed = [&](const Object& object) { changed.push_back(KeyText(object.key)); };
  ScriptedHal hal;
  Manager own(&io_, std::move(events));
  own.Start(&hal);
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  own.Apply(site);
  hal.FindServer();
  Work();
  hal.AnswerAll();
  Work();
  site.vlans = {VlanEntry(11)};
  site.vlans[0].mtu = 9000;
  changed.clear();
  own.Apply(site);
  EXPECT_THAT(changed, ElementsAre("vlan:11", "vlan:10"));
}

TEST_F(ManagerTest, SendsAnyNumberOfRequests) {
  constexpr std::uint32_t kVlans = 5000;
  hal_.SetRoom(kVlans);
  Site site;
  for (std::uint32_t id = 1; id <= kVlans; ++id) site.vlans.push_back(VlanEntry(id));
  Apply(site);
  FindServer();
  EXPECT_EQ(hal_.outstanding(), kVlans);
  AnswerAll();
  EXPECT_EQ(Summary(manager_.database()).text(), "5000 objects: 5000 installed");
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, ARequestThatFoundTheQueueFullIsSentAgain) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  Apply(site);
  FindServer();
  Sent();
  Answer("install-vlan 11", kHalQueueFull);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 11"));
  hal_.SetRoom(1);
  Answer("install-vlan 11", kHalQueueFull);
  EXPECT_THAT(Sent(), IsEmpty());
  Answer("install-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 11"));
  Answer("install-vlan 11");
  EXPECT_EQ(finished_, 1);
}

/// The HAL tells the state of objects after their results.
class ManagerObjectStateTest : public ManagerTest {
 protected:
  void SetUp() override { Install(SiteOfAllKinds()); }

  void Tell(HalKind kind, std::uint32_t id, HalReturnCode code, const std::string& reason = {}) {
    hal_.ReportState(kind, id, code, reason);
    Work();
  }

  std::string Explained(HalKind kind, std::uint32_t id) const {
    return *Explain(manager_.database(), {kind, id});
  }
};

TEST_F(ManagerObjectStateTest, ABrokenObjectHasFailedUntilItRecovers) {
  Tell(HalKind::kHost, 20, kHalKernelRefused, "no memory");
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "failed refused by the kernel: no memory");
  EXPECT_EQ(Explained(HalKind::kHost, 20),
            "host:20 \"host-20\" was installed but does not work: refused by the kernel: no "
            "memory\n");
  EXPECT_EQ(Summary(manager_.database()).text(), "8 objects: 6 installed, 1 sent, 1 failed");
  EXPECT_FALSE(manager_.settled());
  EXPECT_TRUE(manager_.finished());
  EXPECT_EQ(finished_, 1) << "says once that it is not settled";

  Tell(HalKind::kHost, 20, kHalNoInterface, "there is no device eth2");
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "failed no such interface: there is no device eth2");
  Tell(HalKind::kHost, 20, kHalSuccess);
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "installed ");
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 3);
  EXPECT_THAT(Sent(), IsEmpty()) << "nothing needs to be installed again";
}

TEST_F(ManagerObjectStateTest, AVrfIsNamedByItsNumber) {
  Tell(HalKind::kVrf, 7, kHalKernelRefused);
  EXPECT_EQ(StandingText(HalKind::kVrf, 1), "failed refused by the kernel");
  EXPECT_EQ(Explained(HalKind::kVrf, 1),
            "vrf:1 \"vrf-1\" was installed but does not work: refused by the kernel\n");
  Tell(HalKind::kVrf, 7, kHalSuccess);
  EXPECT_EQ(StandingText(HalKind::kVrf, 1), "sent ");
}

TEST_F(ManagerObjectStateTest, AnUnknownObjectIsIgnored) {
  Tell(HalKind::kHost, 999, kHalKernelRefused);
  Tell(HalKind::kVrf, 999, kHalKernelRefused);
  Tell(HalKind::kHost, 20, kHalSuccess);
  EXPECT_TRUE(manager_.settled());
}

// The state was told before the HAL carried out the request.
TEST_F(ManagerObjectStateTest, ARequestInFlightDecides) {
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  Tell(HalKind::kVlan, 10, kHalKernelRefused);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kPending);
  Answer("replace-vlan 10");
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerObjectStateTest, AStateThatFollowsTheResultHolds) {
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  hal_.Answer("replace-vlan 10", kHalSuccess);
  hal_.ReportState(HalKind::kVlan, 10, kHalKernelRefused);
  Work();
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kFailed);
}

// The recovery crosses the request: the result of the request says the same.
TEST_F(ManagerObjectStateTest, ARecoveryThatCrossesARequestIsIgnored) {
  Tell(HalKind::kVlan, 10, kHalKernelRefused);
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kPending);
  Tell(HalKind::kVlan, 10, kHalSuccess);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kPending);
  Answer("replace-vlan 10", kHalNotSupported);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed not supported");
}

// Only a request can mend what a request has failed to do.
TEST_F(ManagerObjectStateTest, ARefusedRequestStaysRefused) {
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  Answer("replace-vlan 10", kHalNotSupported);
  Tell(HalKind::kVlan, 10, kHalKernelRefused, "no memory");
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed not supported");
  Tell(HalKind::kVlan, 10, kHalSuccess);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed not supported");
}

// The HAL says that its hardware may accept the request now.
TEST_F(ManagerObjectStateTest, ARequestThatTheHardwareRefusedIsSentAgain) {
  for (const HalReturnCode code : {kHalNoInterface, kHalKernelRefused}) {
    Site site = SiteOfAllKinds();
    site.vlans[0].mtu = code == kHalNoInterface ? 9000 : 9001;
    Apply(site);
    for (int refusals = 0; refusals < 2; ++refusals) {
      EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
      Answer("replace-vlan 10", code);
      EXPECT_THAT(Sent(), IsEmpty()) << "only when the HAL says so";
      EXPECT_FALSE(manager_.settled());
      Tell(HalKind::kVlan, 10, kHalSuccess);
    }
    EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
    const int finished = finished_;
    Answer("replace-vlan 10");
    EXPECT_TRUE(manager_.settled());
    EXPECT_EQ(finished_, finished + 1) << "says so";
  }
}

TEST_F(ManagerObjectStateTest, AnObjectThatIsBeingRemovedIsIgnored) {
  Site site = SiteOfAllKinds();
  site.ecmps.clear();
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("destroy-ecmp 30"));
  Tell(HalKind::kEcmp, 30, kHalKernelRefused);
  Answer("destroy-ecmp 30");
  Tell(HalKind::kEcmp, 30, kHalKernelRefused);
  EXPECT_EQ(StandingOf(HalKind::kEcmp, 30), Standing::kRemoved);
  EXPECT_TRUE(manager_.settled());
}

// A state from before the reinstall says nothing about the result in it.
TEST_F(ManagerObjectStateTest, AReinstallStartsOver) {
  Tell(HalKind::kHost, 20, kHalKernelRefused);
  hal_.FindServer();
  hal_.ReportState(HalKind::kHost, 21, kHalKernelRefused);
  Work();
  EXPECT_EQ(StandingOf(HalKind::kHost, 20), Standing::kPending);
  AnswerAll();
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerObjectStateTest, ALostServerLeavesTheLastKnownState) {
  Tell(HalKind::kHost, 20, kHalKernelRefused);
  hal_.LoseServer();
  Work();
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "failed refused by the kernel");
}

/// Audits compare what the HAL has acknowledged with the digests of its tables.
class ManagerAuditTest : public ManagerTest {
 protected:
  void SetUp() override { Install(SiteOfAllKinds()); }

  void Audit(const HalDigests& digests) {
    manager_.Audit();
    Work();
    EXPECT_THAT(Sent(), ElementsAre("ask-for-digests"));
    hal_.ReportDigests(digests);
    Work();
  }

  // More than an audit reads in one step.
  static constexpr std::uint32_t kVlans = 3000;

  Site InstallVlans(std::uint32_t count) {
    hal_.SetRoom(count);
    Site site;
    for (std::uint32_t id = 1; id <= count; ++id) site.vlans.push_back(VlanEntry(id));
    Apply(site);
    AnswerAll();
    Sent();
    return site;
  }

  // As if the HAL had lost a VLAN.
  HalDigests WithoutAVlan() const {
    HalDigests digests = hal_.Digests();
    --digests.of(HalKind::kVlan).count;
    return digests;
  }
};

TEST_F(ManagerAuditTest, FindsNoDifference) {
  Audit(hal_.Digests());
  EXPECT_THAT(audited_, ElementsAre(""));
  EXPECT_EQ(manager_.audits(), 1U);
  EXPECT_EQ(manager_.audits_with_differences(), 0U);
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 0) << "nothing to report";
}

// Only digests of one hash function can be compared. The manager learns the server's from its
// answer, and keeps to it until an answer uses another one.
TEST_F(ManagerAuditTest, ComparesByTheHashFunctionOfTheAnswer) {
  constexpr EntryHashFunction kOlder = EntryHashFunction::kFnv1a;
  Audit(hal_.Digests(kOlder));
  EXPECT_THAT(audited_, IsEmpty());
  EXPECT_THAT(Sent(), ElementsAre("ask-for-digests"));
  hal_.ReportDigests(hal_.Digests(kOlder));
  Work();
  EXPECT_THAT(audited_, ElementsAre(""));

  HalDigests digests = hal_.Digests(kOlder);
  ++digests.of(HalKind::kHost).sum;
  Audit(digests);
  EXPECT_THAT(audited_, ElementsAre("", "host 2 with other content; reinstalls"));
  EXPECT_EQ(manager_.audits(), 2U);
}

TEST_F(ManagerAuditTest, FollowsTheSite) {
  Audit(hal_.Digests());
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  site.ecmps.clear();
  site.vrfs.push_back(VrfEntry(2, 8));
  Apply(site);
  AnswerAll();
  Sent();
  Audit(hal_.Digests());
  EXPECT_THAT(audited_, ElementsAre("", ""));
}

TEST_F(ManagerAuditTest, ADifferenceLeadsToAReinstallOnce) {
  Audit(WithoutAVlan());
  EXPECT_THAT(audited_, ElementsAre("vlan 2 here, 1 there; reinstalls"));
  EXPECT_FALSE(manager_.settled());
  AnswerAll();
  EXPECT_TRUE(manager_.settled());
  Sent();

  HalDigests digests = WithoutAVlan();
  ++digests.of(HalKind::kVlan).count;
  ++digests.of(HalKind::kHost).sum;
  finished_ = 0;
  Audit(digests);
  EXPECT_EQ(audited_.back(), "host 2 with other content");
  EXPECT_FALSE(manager_.in_sync());
  EXPECT_FALSE(manager_.settled());
  EXPECT_EQ(finished_, 1) << "says that it is not settled";
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(manager_.audits(), 2U);
  EXPECT_EQ(manager_.audits_with_differences(), 2U);

  Audit(hal_.Digests());
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 2);
}

TEST_F(ManagerAuditTest, WaitsForTheWorkToEnd) {
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  Sent();
  manager_.Audit();
  Work();
  EXPECT_THAT(Sent(), IsEmpty());
  hal_.LoseServer();
  Work();
  manager_.Audit();
  Work();
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_THAT(audited_, IsEmpty());
}

// The digests may or may not include a request that was sent meanwhile.
TEST_F(ManagerAuditTest, ARequestInBetweenEndsTheAudit) {
  manager_.Audit();
  Work();
  EXPECT_THAT(Sent(), ElementsAre("ask-for-digests"));
  Site site = SiteOfAllKinds();
  site.vlans[0].mtu = 9000;
  Apply(site);
  AnswerAll();
  hal_.ReportDigests(WithoutAVlan());
  Work();
  EXPECT_THAT(audited_, IsEmpty());
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerAuditTest, DigestsThatNobodyAskedForAreIgnored) {
  hal_.ReportDigests(WithoutAVlan());
  Work();
  EXPECT_THAT(audited_, IsEmpty());
  EXPECT_TRUE(manager_.settled());
}

// Reads them in steps; a site that is applied in between starts over.
TEST_F(ManagerAuditTest, CoversAnyNumberOfObjects) {
  Site site = InstallVlans(kVlans);
  manager_.Audit();
  site.vlans[0].mtu = 9000;
  Apply(site);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 1"));
  Audit(hal_.Digests());
  EXPECT_THAT(audited_, ElementsAre(""));
}

// Without the steps of a complete reading.
TEST_F(ManagerAuditTest, ReadsOnlyWhatHasChangedSinceTheLastAudit) {
  Site site = InstallVlans(kVlans);
  Audit(hal_.Digests());
  site.vlans[0].mtu = 9000;
  site.vlans.pop_back();
  site.vlans.push_back(VlanEntry(kVlans + 1));
  Apply(site);
  AnswerAll();
  Sent();
  manager_.Audit();
  EXPECT_THAT(Sent(), ElementsAre("ask-for-digests"));
  hal_.ReportDigests(hal_.Digests());
  Work();
  EXPECT_THAT(audited_, ElementsAre("", ""));
}

TEST_F(ManagerAuditTest, CoversAnyNumberOfChanges) {
  Site site = InstallVlans(kVlans);
  Audit(hal_.Digests());
  for (SiteVlan& vlan : site.vlans) vlan.mtu = 9000;
  Apply(site);
  AnswerAll();
  Sent();
  Audit(hal_.Digests());
  EXPECT_THAT(audited_, ElementsAre("", ""));
}

// Another server may hold anything.
TEST_F(ManagerAuditTest, ReadsEverythingAfterAReinstall) {
  Audit(hal_.Digests());
  hal_.FindServer();
  Work();
  AnswerAll();
  Sent();
  Audit(hal_.Digests());
  EXPECT_THAT(audited_, ElementsAre("", ""));
}

TEST(AcknowledgedDigestsTest, ReadsAsManyEntriesAsItMayAtATime) {
  DestDatabase database;
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11), VlanEntry(12)};
  database.Replace(site);
  for (const std::uint32_t id : {10U, 11U, 12U}) {
    database.FindEntry({HalKind::kVlan, id})->presence = Presence::kPresent;
  }
  AcknowledgedDigests digests;
  for (int entry = 0; entry < 2; ++entry) EXPECT_FALSE(digests.Continue(&database, 1));
  EXPECT_TRUE(digests.Continue(&database, 1));
  EXPECT_EQ(digests.digests().of(HalKind::kVlan).count, 3U);
  for (const std::uint32_t id : {10U, 11U}) {
    digests.WillChange(database.FindEntry({HalKind::kVlan, id}));
  }
  EXPECT_EQ(digests.digests().of(HalKind::kVlan).count, 1U);
  EXPECT_FALSE(digests.Continue(&database, 1));
  EXPECT_TRUE(digests.Continue(&database, 1));
  EXPECT_EQ(digests.digests().of(HalKind::kVlan).count, 3U);
}

TEST(ReinstallBackoffTest, DoublesThePauseUpToAnHour) {
  using std::chrono::minutes;
  ReinstallBackoff backoff;
  ReinstallBackoff::Time now{};
  for (const int pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
    SCOPED_TRACE(pause);
    EXPECT_TRUE(backoff.Allow(now));
    EXPECT_FALSE(backoff.Allow(now + minutes(pause) - std::chrono::seconds(1)));
    backoff.InOrder(now + minutes(pause) - std::chrono::seconds(1));
    now += minutes(pause);
  }
  backoff.InOrder(now);
  EXPECT_TRUE(backoff.Allow(now));
  EXPECT_TRUE(backoff.Allow(now + minutes(1)));
}

struct LossCase {
  const char* name;
  HalReturnCode code;
};

class ManagerLossTest : public ManagerTest, public ::testing::WithParamInterface<LossCase> {};

TEST_P(ManagerLossTest, WaitsForTheReinstallThatFollows) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  Install(site);
  site.vlans[1].mtu = 9000;
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 11"));
  Answer("replace-vlan 11", GetParam().code);
  site.hosts = {HostEntry(20, 10)};
  Apply(site);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(finished_, 0);
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "install-vlan 11",
                                  "install-host 20"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(finished_, 1);
  EXPECT_THAT(reinstalled_, ElementsAre(3U));
}

INSTANTIATE_TEST_SUITE_P(Codes, ManagerLossTest,
                         ::testing::Values(LossCase{"ServerLost", kHalServerLost},
                                           LossCase{"NoServer", kHalNoServer}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(ManagerTest, ReinstallsEverythingInTheFixedOrder) {
  Install(SiteOfAllKinds());
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vrf 7", "install-vlan 10",
                                  "install-vlan 11", "install-host 20", "install-host 21",
                                  "install-mpls 41", "install-mpls 40", "install-ecmp 30"));
  Answer("install-ecmp 30", kHalMissingReference);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("install-ecmp 30", "end-reinstall"));
  EXPECT_EQ(finished_, 1);
  EXPECT_THAT(reinstalled_, ElementsAre(8U));
}

TEST_F(ManagerTest, ReportsHowLongAReinstallTook) {
  Apply(SiteOfAllKinds());
  const auto begin = std::chrono::steady_clock::now();
  FindServer();
  AnswerAll();
  EXPECT_THAT(reinstalled_, SizeIs(1));
  EXPECT_LE(reinstall_time_, std::chrono::steady_clock::now() - begin);
}

TEST_F(ManagerTest, AnotherServerDuringAReinstallStartsItOver) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  Apply(site);
  FindServer();
  Answer("install-vlan 10");
  Answer("install-vlan 11", kHalServerLost);
  Sent();
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "install-vlan 11"));
  EXPECT_EQ(reinstalls_begun_, 2);
  EXPECT_THAT(reinstalled_, IsEmpty());
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_THAT(reinstalled_, ElementsAre(2U));
  EXPECT_EQ(finished_, 1);
}

// A request sent before the manager learns of the new server reaches that server ahead of the
// reinstall.
TEST_F(ManagerTest, ARequestThatReachedTheNewServerIsSentAgainAsAnInstall) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  hal_.FindServer();
  site.vlans[0].mtu = 9000;
  manager_.Apply(site);
  // The manager handles both in one go, the reinstall first.
  Work();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10"));
  AnswerAll();
  Sent();

  site.vlans[0].mtu = 1600;
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  // The new server is found while that request is in its queue.
  hal_.FindServerWithRequestsInFlight();
  Work();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall"));
  Answer("replace-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10"));
  Answer("install-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
}

TEST_F(ManagerTest, AChangeDuringAReinstallIsPartOfIt) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  FindServer();
  site.vlans[0].mtu = 9000;
  site.hosts = {HostEntry(20, 10)};
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "install-host 20"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10", "end-reinstall"));
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, APendingRemovalNeedsNoRequestAfterAReinstall) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  site.vrfs = {VrfEntry(1, 7)};
  Install(site);
  site.vlans.pop_back();
  site.vrfs.clear();
  manager_.Apply(site);
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(Summary(manager_.database()).text(), "3 objects: 1 installed, 2 removed");
}

TEST_F(ManagerTest, ARemovalThatReachedTheNewServerEndsWithItsResult) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
  hal_.FindServerWithRequestsInFlight();
  Work();
  Apply(Site());
  EXPECT_FALSE(manager_.finished());
  Answer("destroy-vlan 10", kHalNotFound);
  EXPECT_EQ(manager_.queues().outstanding.now, 0U);
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerTest, AnObjectWhoseInstallFailedIsInstalledWhenItIsChanged) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  AnswerAll(kHalBadRequest);
  Sent();
  site.vlans[0].mtu = 9000;
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10"));
  AnswerAll();
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
}

TEST_F(ManagerTest, AnObjectWhoseInstallFailedNeedsNoRemoval) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  AnswerAll(kHalBadRequest);
  Sent();
  Apply(Site());
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kRemoved);
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerTest, AnObjectWhoseUpdateFailedIsStillInTheHal) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  Site changed = site;
  changed.vlans[0].mtu = 9000;
  Apply(changed);
  AnswerAll(kHalBadRequest);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kFailed);
  Sent();
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  AnswerAll(kHalBadRequest);
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
}

TEST_F(ManagerTest, ARemovalThatFailedIsShownAndTriedAgainByTheNextApply) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  Apply(Site());
  AnswerAll(kHalBadRequest);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed bad request");
  EXPECT_EQ(finished_, 1);
  Sent();
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
  AnswerAll();
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kRemoved);
}

TEST_F(ManagerTest, FailuresOfUpdatesAreShownForEveryKind) {
  Site site = SiteOfAllKinds();
  Install(site);
  site.vlans[0].mtu = 9000;
  site.hosts[0].vlan = 11;
  site.ecmps[0].members = {21};
  site.mpls[1].label = 77;
  Apply(site);
  AnswerAll(kHalBadRequest);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10", "replace-host 20", "replace-mpls 41",
                                  "install-ecmp 30"));
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kEcmp, 30), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kMpls, 41), "failed bad request");
}

TEST_F(ManagerTest, FailuresOfRemovalsAreShownForEveryKind) {
  Install(SiteOfAllKinds());
  Apply(Site());
  AnswerAll(kHalBadRequest);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kHost, 20), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kEcmp, 30), "failed bad request");
  EXPECT_EQ(StandingText(HalKind::kMpls, 41), "failed bad request");
}

TEST_F(ManagerTest, SentIsTheEndStateOfVrfs) {
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  Apply(site);
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vrf 7"));
  EXPECT_EQ(StandingOf(HalKind::kVrf, 1), Standing::kPending);
  Answer("install-vrf 7");
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
  EXPECT_EQ(StandingOf(HalKind::kVrf, 1), Standing::kSent);
  EXPECT_TRUE(Summary(manager_.database()).complete());
}

TEST_F(ManagerTest, AVrfWhoseNumberChangesIsInstalledAndRemoved) {
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  Install(site);
  site.vrfs[0].vrf_id = 8;
  Apply(site);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("install-vrf 8", "destroy-vrf 7"));
  EXPECT_EQ(finished_, 1);
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vrf 8"));
}

TEST_F(ManagerTest, AVrfIsRefusedAndSentAgainAfterARemoval) {
  Site site;
  site.vrfs = {VrfEntry(1, 10)};
  Install(site);
  site.vrfs = {VrfEntry(2, 20)};
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("install-vrf 20"));
  Answer("install-vrf 20", kHalTableFull);
  EXPECT_EQ(StandingText(HalKind::kVrf, 2), "failed table full");
  EXPECT_EQ(manager_.refused(), 1U);
  EXPECT_THAT(Sent(), ElementsAre("destroy-vrf 10"));
  Answer("destroy-vrf 10");
  EXPECT_THAT(Sent(), ElementsAre("install-vrf 20"));
  Answer("install-vrf 20");
  EXPECT_EQ(Summary(manager_.database()).text(), "2 objects: 1 sent, 1 removed");
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerTest, ARefusalHasTheReasonThatTheHalGives) {
  Site site;
  site.vrfs = {VrfEntry(1, 10)};
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  hal_.SetReason("no memory");
  Answer("install-vrf 10", kHalKernelRefused);
  Answer("install-vlan 10", kHalKernelRefused);
  EXPECT_EQ(StandingText(HalKind::kVrf, 1), "failed refused by the kernel: no memory");
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed refused by the kernel: no memory");

  // The next result replaces it.
  manager_.Resync();
  Work();
  hal_.SetReason("");
  Answer("install-vlan 10", kHalNotSupported);
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed not supported");
  manager_.Resync();
  Work();
  hal_.SetReason("a success needs none");
  AnswerAll();
  EXPECT_EQ(manager_.database().Find({HalKind::kVlan, 10})->reason(), "");
  EXPECT_EQ(manager_.database().Find({HalKind::kVrf, 1})->reason(), "");
}

TEST_F(ManagerTest, IsNotSettledWithAVrfThatWasRefused) {
  Site site;
  site.vrfs = {VrfEntry(1, 10)};
  Apply(site);
  FindServer();
  AnswerAll(kHalTableFull);
  EXPECT_TRUE(manager_.finished());
  EXPECT_FALSE(manager_.settled());
}

TEST_F(ManagerTest, AFailedRemovalOfTheOldNumberIsShown) {
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  Install(site);
  site.vrfs[0].vrf_id = 8;
  Apply(site);
  Answer("install-vrf 8");
  EXPECT_EQ(StandingOf(HalKind::kVrf, 1), Standing::kPending);
  Answer("destroy-vrf 7", kHalBadRequest);
  EXPECT_EQ(StandingText(HalKind::kVrf, 1), "failed bad request");
  EXPECT_FALSE(manager_.settled());
}

// The entry of the old number must still be removed, whether or not the new one is installed.
TEST_F(ManagerTest, AFailedRemovalOfTheOldNumberIsShownBeforeARefusalOfTheNewOne) {
  for (const std::uint32_t next : {6U, 8U}) {
    Site site;
    site.vrfs = {VrfEntry(1, 7)};
    Install(site);
    site.vrfs[0].vrf_id = next;
    Apply(site);
    Answer("install-vrf " + std::to_string(next), kHalTableFull);
    Answer("destroy-vrf 7", kHalBadRequest);
    EXPECT_EQ(StandingText(HalKind::kVrf, 1), "failed bad request") << next;
    Apply(Site());
    AnswerAll();
  }
}

TEST_F(ManagerTest, TheReportOfAnEarlierReinstallSaysNothingAboutTheOneInProgress) {
  Install(SiteOfAllKinds());
  FindServer();
  hal_.ReportReinstallEnded(true);
  // Answers everything except the end of the last reinstall.
  for (int round = 0; hal_.outstanding() != 0; ++round) {
    ASSERT_LT(round, 100);
    hal_.AnswerAll();
    io_.restart();
    io_.poll();
  }
  EXPECT_EQ(Sent().back(), "end-reinstall");
  EXPECT_FALSE(manager_.in_sync());
  EXPECT_EQ(finished_, 0);
  Work();
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, IsSettledOnlyWhileItIsInSyncWithAServer) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  EXPECT_TRUE(manager_.settled());
  hal_.LoseServer();
  Work();
  EXPECT_FALSE(manager_.settled());
  EXPECT_FALSE(manager_.connected());
  hal_.SetInSync(false);
  FindServer();
  EXPECT_FALSE(manager_.finished());
  AnswerAll();
  EXPECT_TRUE(manager_.finished());
  EXPECT_FALSE(manager_.settled());
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, HasNotFinishedBeforeTheServerAnswersTheEndOfAReinstall) {
  Apply(Site());
  hal_.FindServer();
  io_.restart();
  io_.poll();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "end-reinstall"));
  EXPECT_FALSE(manager_.finished());
  EXPECT_EQ(finished_, 0);
  Work();
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 1);
}

TEST_F(ManagerTest, AnIdThatMovesToAnotherKindMeetsAFullTable) {
  Site site;
  site.vlans = {VlanEntry(1), VlanEntry(2)};
  site.hosts = {HostEntry(10, 2)};
  Install(site);
  site.vlans = {VlanEntry(2), VlanEntry(10)};
  site.hosts = {HostEntry(20, 10)};
  Apply(site);
  Answer("install-vlan 10", kHalTableFull);
  Answer("install-host 20", kHalMissingReference);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10", "install-host 20", "destroy-host 10",
                                  "destroy-vlan 1"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10", "install-host 20"));
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerTest, CountsObjectsByStanding) {
  Site site = SiteOfAllKinds();
  Install(site);
  site.mpls[1].neighbor = 0;
  site.hosts.pop_back();
  site.mpls[0].neighbor = 0;
  Apply(site);
  AnswerAll();
  for (std::size_t kind = 0; kind < kHalKinds; ++kind) {
    DestDatabase::StandingCounts counted{};
    for (const auto& [key, object] : manager_.database().objects()) {
      if (key.kind != static_cast<HalKind>(kind)) continue;
      ++counted.at(static_cast<std::size_t>(reference::StandingOf(object)));
    }
    EXPECT_EQ(manager_.database().counts(static_cast<HalKind>(kind)), counted) << kind;
  }
  EXPECT_EQ(Summary(manager_.database()).text(),
            "8 objects: 4 installed, 2 inactive, 1 sent, 1 removed");
}

TEST_F(ManagerTest, VrfsThatExchangeTheirNumbersStayInTheHal) {
  Site site;
  site.vrfs = {VrfEntry(1, 7), VrfEntry(2, 8)};
  Install(site);
  std::swap(site.vrfs[0].vrf_id, site.vrfs[1].vrf_id);
  Apply(site);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(Summary(manager_.database()).text(), "2 objects: 2 sent");
}

TEST_F(ManagerTest, ANumberThatAnotherVrfHasStaysInTheHal) {
  Site site;
  site.vrfs = {VrfEntry(1, 7), VrfEntry(2, 7)};
  Install(site);
  site.vrfs.pop_back();
  Apply(site);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(StandingOf(HalKind::kVrf, 2), Standing::kRemoved);
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vrf 7"));
}

TEST_F(ManagerTest, VrfsTooAreSentOnlyWhileThereIsRoom) {
  hal_.SetRoom(0);
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  Apply(site);
  FindServer();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall"));
  hal_.SetRoom(1);
  hal_.ReportRoom();
  Work();
  EXPECT_THAT(Sent(), ElementsAre("install-vrf 7"));
}

TEST_F(ManagerTest, GivesUpAfterThreeDeadlinesUntilTheNextReinstall) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  Sent();
  AnswerAll(kHalDeadline);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10", "install-vlan 10", "end-reinstall"));
  EXPECT_EQ(StandingText(HalKind::kVlan, 10), "failed no answer in time");
  FindServer();
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "end-reinstall"));
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
}

TEST_F(ManagerTest, AChangeStartsTheAttemptsOver) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  for (int attempt = 0; attempt < 3; ++attempt) Answer("install-vlan 10", kHalDeadline);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kFailed);
  Sent();
  site.vlans[0].mtu = 1400;
  Apply(site);
  AnswerAll(kHalDeadline);
  EXPECT_THAT(Sent(), SizeIs(3));
}

TEST_F(ManagerTest, ARemovalStartsTheAttemptsOver) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  site.vlans[0].mtu = 1400;
  Apply(site);
  AnswerAll(kHalDeadline);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kFailed);
  Sent();
  Apply(Site());
  AnswerAll(kHalDeadline);
  EXPECT_THAT(Sent(), SizeIs(3));
}

TEST_F(ManagerTest, AnUpdateWithoutAnAnswerIsSentAgainAsAnUpdate) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  site.vlans[0].mtu = 1400;
  Apply(site);
  Answer("replace-vlan 10", kHalDeadline);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10", "replace-vlan 10"));
}

TEST_F(ManagerTest, WhatMayBeInTheHalIsRemoved) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  AnswerAll(kHalDeadline);
  Sent();
  Apply(Site());
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10"));
  const std::uint64_t refused = manager_.refused();
  Answer("destroy-vlan 10", kHalNotFound);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kRemoved);
  EXPECT_EQ(manager_.refused(), refused) << "it was not there";
}

TEST_F(ManagerTest, ARestartForgetsWhatWasAwaited) {
  Site site;
  site.vlans = {VlanEntry(10)};
  site.ecmps = {EcmpEntry(30, {10})};
  Apply(site);
  FindServer();
  Answer("install-vlan 10", kHalLabelOutOfRange);
  Answer("install-ecmp 30", kHalMissingReference);
  hal_.LoseServer();
  FindServer();
  Sent();
  Answer("install-ecmp 30", kHalBadRequest);
  Answer("install-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("end-reinstall"));
}

TEST_F(ManagerTest, TheHostIsNotifiedOfAServerOnceThereIsOne) {
  std::vector<bool> heard;
  ManagerEvents events;
  Manager* manager = nullptr;
  events.connection = [&](bool connected) {
    EXPECT_EQ(connected, manager->connected());
    heard.push_back(connected);
  };
  events.reinstall_ended = [&](bool in_sync) { EXPECT_EQ(in_sync, manager->in_sync()); };
  // The host's manager takes the place of the fixture's.
  ScriptedHal hal;
  Manager own(&io_, std::move(events));
  manager = &own;
  own.Start(&hal);
  hal.FindServer();
  Work();
  hal.EndReinstalls();
  Work();
  EXPECT_TRUE(own.in_sync());
  hal.LoseServer();
  Work();
  EXPECT_THAT(heard, ElementsAre(true, false));
}

TEST_F(ManagerTest, ReplacesWhatExists) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Apply(site);
  FindServer();
  Sent();
  Answer("install-vlan 10", kHalExists);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  Answer("replace-vlan 10");
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
}

TEST_F(ManagerTest, InstallsWhatTheHalCannotReplace) {
  Site site;
  site.vlans = {VlanEntry(10)};
  Install(site);
  site.vlans[0].mtu = 9000;
  Apply(site);
  Sent();
  Answer("replace-vlan 10", kHalNotFound);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 10"));
  // A HAL that contradicts itself.
  Answer("install-vlan 10", kHalExists);
  EXPECT_THAT(Sent(), ElementsAre("replace-vlan 10"));
  Answer("replace-vlan 10", kHalNotFound);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kFailed);
}

TEST_F(ManagerTest, ARemovalMakesRoomForWhatFoundTheTableFull) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  Install(site);
  site.vlans = {VlanEntry(12), VlanEntry(13)};
  site.hosts = {HostEntry(20, 12)};
  Apply(site);
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 12", "install-vlan 13", "install-host 20"));
  Answer("install-vlan 12", kHalTableFull);
  Answer("install-vlan 13", kHalTableFull);
  Answer("install-host 20", kHalMissingReference);
  EXPECT_THAT(Sent(), ElementsAre("destroy-vlan 10", "destroy-vlan 11"));
  Answer("destroy-vlan 10");
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 12"));
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("install-vlan 13", "install-host 20"));
  EXPECT_EQ(Summary(manager_.database()).text(), "5 objects: 3 installed, 2 removed");
}

// The end of a reinstall removes what the site does not have.
TEST_F(ManagerTest, TheEndOfAReinstallMakesRoomForWhatFoundTheTableFull) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11), VlanEntry(12)};
  Apply(site);
  FindServer();
  Answer("install-vlan 10");
  Answer("install-vlan 11", kHalTableFull);
  hal_.Answer("install-vlan 12", kHalTableFull);
  WorkBeforeTheEnd();
  EXPECT_THAT(Sent(), ElementsAre("begin-reinstall", "install-vlan 10", "install-vlan 11",
                                  "install-vlan 12", "end-reinstall", "install-vlan 11",
                                  "install-vlan 12"));
  AnswerAll();
  EXPECT_TRUE(manager_.settled());
}

TEST_F(ManagerTest, CountsItsQueues) {
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11), VlanEntry(12)};
  Apply(site);
  EXPECT_EQ(manager_.queues().due.now, 3U);
  FindServer();
  hal_.AnswerAll();
  EXPECT_EQ(manager_.queues().outstanding.now, 3U);
  EXPECT_EQ(manager_.queues().inbox.now, 3U);
  Work();
  const ManagerQueues queues = manager_.queues();
  for (const QueueDepth depth : {queues.due, queues.outstanding, queues.inbox}) {
    EXPECT_EQ(depth.now, 0U);
  }
  EXPECT_EQ(queues.due.peak, 3U);
  EXPECT_EQ(queues.outstanding.peak, 3U);
  EXPECT_EQ(queues.inbox.peak, 7U) << "server found, a reinstall of each of five kinds, the end";
  Apply(Site());
  EXPECT_EQ(manager_.queues().outstanding.now, 3U) << "removals";
}

TEST_F(ManagerTest, IgnoresResultsThatItDoesNotWaitFor) {
  Site site;
  site.vlans = {VlanEntry(10)};
  site.vrfs = {VrfEntry(1, 7)};
  Install(site);
  hal_.Report(HalOperation::kInstallVlan, 10, kHalTableFull);
  hal_.Report(HalOperation::kDestroyVlan, 99, kHalSuccess);
  hal_.Report(HalOperation::kInstallVrf, 7, kHalTableFull);
  hal_.Report(HalOperation::kDestroyVrf, 99, kHalSuccess);
  Work();
  EXPECT_EQ(StandingOf(HalKind::kVrf, 1), Standing::kSent);
  EXPECT_EQ(manager_.queues().outstanding.now, 0U);
  EXPECT_EQ(StandingOf(HalKind::kVlan, 10), Standing::kInstalled);
  EXPECT_TRUE(manager_.settled());
  EXPECT_EQ(finished_, 0);
}

TEST_F(ManagerTest, AnIdMayGoToAnotherKind) {
  Site site;
  site.vlans = {VlanEntry(9), VlanEntry(10)};
  site.ecmps = {EcmpEntry(30, {10})};
  Install(site);
  site.vlans.pop_back();
  site.hosts = {HostEntry(10, 9)};
  Apply(site);
  AnswerAll();
  EXPECT_THAT(Sent(), ElementsAre("install-host 10", "destroy-vlan 10"));
}

TEST_F(ManagerTest, LeavesTheLibraryWithoutItsHal) {
  ScriptedHal hal;
  {
    Manager own(&io_, {});
    own.Start(&hal);
  }
  HaiObject vlan = MakeHaiObject(VlanEntry(10));
  SendInstall(&vlan);
  EXPECT_THAT(hal.TakeLog(), IsEmpty());
}

TEST_F(ManagerTest, PassesTheInterfacesToThePlatform) {
  Site site;
  site.interfaces = {{"eth0", 0x01000001, 1, 1}, {"eth1", 0x01000002, 1, 2}};
  Apply(site);
  site.interfaces.pop_back();
  site.interfaces[0].name = "uplink";
  Apply(site);
  const auto& table = interface_ids::InterfaceTable::Global();
  ASSERT_TRUE(table.Find(0x01000001).has_value());
  EXPECT_EQ(table.Find(0x01000001)->name, "uplink");
  EXPECT_FALSE(table.Find(0x01000002).has_value());
}

}  // namespace
}  // namespace reference
