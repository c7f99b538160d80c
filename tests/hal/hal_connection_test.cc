/// What all connections share: the requests, and the code being reported.

#include "reference/hal/hal_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/hal/messages.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Lists the requests and marks that it sees, between those that the connection submits.
class Observed : public RequestObserver {
 public:
  std::uint64_t Request(const HalRequest& /*request*/, const void* /*wrapper*/) override {
    events.emplace_back("observed request");
    return 1;
  }
  void Result(std::uint64_t /*number*/, const HalRequest& /*request*/, HalReturnCode /*code*/,
              std::string_view /*reason*/) override {
    ADD_FAILURE();
  }
  void BeginReinstall() override { events.emplace_back("observed begin"); }
  void EndReinstall() override { events.emplace_back("observed end"); }
  void ObjectStateChanged(const HalObjectState& /*state*/) override { ADD_FAILURE(); }
  void ServerFound() override { ADD_FAILURE(); }
  void Event(std::string_view /*line*/) override { ADD_FAILURE(); }

  std::vector<std::string> events;
};

class ObservedConnection : public HalConnection {
 public:
  explicit ObservedConnection(Observed* observed) : observed_(observed) { Observe(observed); }

  void Start(HalReports /*reports*/) override { ADD_FAILURE(); }
  bool HasRoom() override { return true; }
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

 protected:
  HalReturnCode Submit(HalRequest* /*request*/) override {
    observed_->events.emplace_back("submitted request");
    return kHalSuccess;
  }
  void SubmitBeginReinstall() override { observed_->events.emplace_back("submitted begin"); }
  void SubmitEndReinstall() override { observed_->events.emplace_back("submitted end"); }

 private:
  Observed* const observed_;
};

/// Keeps the operation and the id of each request, and refuses it with its own code.
class SubmittedRequests : public HalConnection {
 public:
  static constexpr HalReturnCode kRefusal{1234};

  void Start(HalReports /*reports*/) override { ADD_FAILURE(); }
  bool HasRoom() override { return true; }
  void SubmitBeginReinstall() override { ADD_FAILURE(); }
  void SubmitEndReinstall() override { ADD_FAILURE(); }
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

  const std::vector<std::pair<HalOperation, std::uint32_t>>& submitted() const {
    return submitted_;
  }
  /// Where the last request's payload was.
  const void* payload_memory() const { return payload_memory_; }

 protected:
  HalReturnCode Submit(HalRequest* request) override {
    EXPECT_FALSE(request->payload.empty());
    submitted_.emplace_back(request->operation, request->id);
    payload_memory_ = request->payload.data();
    return kRefusal;
  }

 private:
  std::vector<std::pair<HalOperation, std::uint32_t>> submitted_;
  const void* payload_memory_ = nullptr;
};

TEST(HalConnectionTest, SubmitsEachRequestAndPassesTheAnswerOn) {
  VrfEncapsulationMessage vrf;
  *vrf.encap() = Vrf(1);
  VlanEncapsulationMessage vlan(std::make_unique<encapsulation::VlanMessage>(Vlan(2)));
  HostEncapsulationMessage host(std::make_unique<encapsulation::HostMessage>(Host(3)));
  EcmpEncapsulationMessage ecmp;
  *ecmp.encap() = Ecmp(4, {3});
  MplsEncapsulationMessage mpls(std::make_unique<encapsulation::MplsMessage>(MplsOn(5, 2)));

  SubmittedRequests connection;
  HalL3MplsEncapsulationClient& client = connection;
  constexpr HalReturnCode kRefusal = SubmittedRequests::kRefusal;
  EXPECT_EQ(client.InstallVrfIngressInterface(&vrf), kRefusal);
  EXPECT_EQ(client.DestroyVrfIngressInterface(&vrf), kRefusal);
  EXPECT_EQ(client.InstallVlanOutgoingEncapsulation(&vlan), kRefusal);
  EXPECT_EQ(client.DestroyVlanOutgoingEncapsulation(&vlan), kRefusal);
  EXPECT_EQ(client.ReplaceVlanOutgoingEncapsulation(&vlan), kRefusal);
  EXPECT_EQ(client.InstallHostOutgoingEncapsulation(&host), kRefusal);
  EXPECT_EQ(client.DestroyHostOutgoingEncapsulation(&host), kRefusal);
  EXPECT_EQ(client.ReplaceHostOutgoingEncapsulation(&host), kRefusal);
  EXPECT_EQ(client.InstallEcmpEncap(&ecmp), kRefusal);
  EXPECT_EQ(client.DestroyEcmpEncap(&ecmp), kRefusal);
  EXPECT_EQ(client.InstallMplsUnprotectedOutgoingEncapsulation(&mpls), kRefusal);
  EXPECT_EQ(client.DestroyMplsUnprotectedOutgoingEncapsulation(&mpls), kRefusal);
  EXPECT_EQ(client.ReplaceMplsUnprotectedOutgoingEncapsulation(&mpls), kRefusal);

  EXPECT_THAT(
      connection.submitted(),
      ElementsAre(
          std::pair(HalOperation::kInstallVrf, 1), std::pair(HalOperation::kDestroyVrf, 1),
          std::pair(HalOperation::kInstallVlan, 2), std::pair(HalOperation::kDestroyVlan, 2),
          std::pair(HalOperation::kReplaceVlan, 2), std::pair(HalOperation::kInstallHost, 3),
          std::pair(HalOperation::kDestroyHost, 3), std::pair(HalOperation::kReplaceHost, 3),
          std::pair(HalOperation::kInstallEcmp, 4), std::pair(HalOperation::kDestroyEcmp, 4),
          std::pair(HalOperation::kInstallMpls, 5), std::pair(HalOperation::kDestroyMpls, 5),
          std::pair(HalOperation::kReplaceMpls, 5)));
}

TEST(HalConnectionTest, ARequestUsesTheMemoryOfTheOneBefore) {
  EcmpEncapsulationMessage large;
  *large.encap() = Ecmp(1, std::vector<std::uint32_t>(100, 7));
  EcmpEncapsulationMessage smaller;
  *smaller.encap() = Ecmp(2, std::vector<std::uint32_t>(50, 7));
  SubmittedRequests connection;
  connection.InstallEcmpEncap(&large);
  const void* const memory = connection.payload_memory();
  connection.InstallEcmpEncap(&smaller);
  EXPECT_EQ(connection.payload_memory(), memory);
}

// The observer may see the HAL's answer as soon as the request has been submitted.
TEST(HalConnectionTest, IsObservedBeforeItSubmits) {
  Observed observed;
  ObservedConnection connection(&observed);
  connection.BeginReinstall();
  VrfEncapsulationMessage vrf;
  connection.InstallVrfIngressInterface(&vrf);
  connection.EndReinstall();
  EXPECT_THAT(observed.events, ElementsAre("observed begin", "submitted begin", "observed request",
                                           "submitted request", "observed end", "submitted end"));
}

TEST(HalReporterTest, CallbacksMayBeEmpty) {
  HalReporter reporter(HalReports(), nullptr);
  reporter.Room();
  reporter.ServerFound();
  reporter.ServerLost();
  reporter.ReinstallEnded(true);
  reporter.ObjectStateChanged({HalKind::kVlan, 1, kHalNoInterface, ""});
  reporter.Digests(HalDigests());
  Observed observed;
  HalReporter(HalReports(), &observed).Room();
  EXPECT_THAT(observed.events, IsEmpty());
}

TEST(HalConnectionTest, InitialisesTheModuleWithoutARequest) {
  SubmittedRequests connection;
  EXPECT_EQ(connection.InitEncapsulationModule(), kHalSuccess);
  EXPECT_THAT(connection.submitted(), IsEmpty());
}

void ExpectReported(HalReturnCode code, const std::string& reason) {
  EXPECT_EQ(ReportedCode(), code);
  EXPECT_EQ(ReportedReason(), reason);
}

TEST(ScopedReportTest, TheInnermostCountsAndThenTheOneBefore) {
  ExpectReported(kHalSuccess, "");
  {
    const ScopedReport outer(kHalKernelRefused, "no memory");
    ExpectReported(kHalKernelRefused, "no memory");
    {
      const ScopedReport inner(kHalExists);
      ExpectReported(kHalExists, "");
    }
    ExpectReported(kHalKernelRefused, "no memory");
  }
  ExpectReported(kHalSuccess, "");
}

TEST(ScopedReportTest, IsEachThreadsOwn) {
  const ScopedReport reported(kHalKernelRefused, "no memory");
  std::thread([] { ExpectReported(kHalSuccess, ""); }).join();
}

TEST(HalReporterTest, AVrfsReasonIsReportedWithItsOutcome) {
  HalReports reports;
  int outcomes = 0;
  reports.vrf_result = [&outcomes](const HalRequest& /*request*/, HalReturnCode code) {
    ExpectReported(code, "no memory");
    ++outcomes;
  };
  HalReporter(reports, nullptr)
      .Result({HalOperation::kInstallVrf, 7, 0, {}}, kHalKernelRefused, "no memory");
  EXPECT_EQ(outcomes, 1);
  ExpectReported(kHalSuccess, "");
}

}  // namespace
}  // namespace reference
