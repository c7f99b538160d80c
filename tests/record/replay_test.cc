#include "reference/record/replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/embedded_hal.h"
#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

struct Outcome {
  ReplayReport report;
  std::string text;
};

constexpr ReplayOptions kImpatient{std::chrono::milliseconds(50), std::chrono::milliseconds(50)};

Outcome ReplayTo(std::unique_ptr<HalConnection> hal, const std::vector<Step>& steps,
                 const ReplayOptions& options = ReplayOptions()) {
  std::ostringstream out;
  const ReplayReport report = Replay(steps, std::move(hal), options, &out);
  return {report, out.str()};
}

Outcome ReplayEmbedded(const std::vector<Step>& steps,
                       const EmbeddedHalOptions& options = EmbeddedHalOptions()) {
  return ReplayTo(std::make_unique<EmbeddedHal>(options), steps);
}

std::vector<Step> Record(const std::function<void(RecordedSession*)>& act) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  {
    RecordedSession session(path);
    act(&session);
  }
  RecordingReader recording(path);
  return ReadSteps(&recording);
}

// Covers every kind, every action, all codes that unlimited tables can answer, a reinstall that
// removes something, and a restart.
void ActRichly(RecordedSession* session) {
  session->BeginReinstall();
  session->Send(HalOperation::kInstallVrf, 5, Vrf(5));
  session->Send(HalOperation::kInstallVlan, 1, Vlan(1));
  session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
  session->Send(HalOperation::kInstallHost, 3, HostOn(3, 1));
  session->Send(HalOperation::kInstallMpls, 4, MplsOn(4, 2));
  session->Send(HalOperation::kInstallEcmp, 6, Ecmp(6, {3, 4, 4}));
  session->EndReinstall();
  session->Send(HalOperation::kInstallVlan, 1, Vlan(1, 9000));
  session->Send(HalOperation::kReplaceVlan, 1, Vlan(1, 9000));
  session->Send(HalOperation::kReplaceHost, 7, HostOn(7, 1));
  session->Send(HalOperation::kReplaceHost, 3, HostOn(3, 8));
  session->Send(HalOperation::kReplaceHost, 3, HostOn(3, 2));
  session->Send(HalOperation::kReplaceMpls, 4, MplsOn(4, 2, 1 << 20));
  session->Send(HalOperation::kReplaceMpls, 4, MplsOn(4, 2, 99));
  session->Send(HalOperation::kInstallHost, 0, encapsulation::HostMessage());
  session->Send(HalOperation::kDestroyEcmp, 6, Ecmp(6, {}));
  session->Send(HalOperation::kDestroyMpls, 4, MplsOn(4, 2));
  session->Send(HalOperation::kDestroyMpls, 4, MplsOn(4, 2));
  session->Send(HalOperation::kDestroyVrf, 5, Vrf(5));
  session->BeginReinstall();
  session->Send(HalOperation::kInstallVlan, 1, Vlan(1, 1400));
  session->EndReinstall();
  session->Send(HalOperation::kDestroyHost, 3, Host(3));
  session->RestartServer();
  session->Send(HalOperation::kDestroyVlan, 1, Vlan(1));
}

TEST(Replay, OfWhatItAnsweredShowsNoDifference) {
  const Outcome outcome = ReplayEmbedded(Record(ActRichly));
  EXPECT_EQ(outcome.text, "");
  EXPECT_EQ(outcome.report.sent, 21U);
  EXPECT_EQ(outcome.report.not_compared, 2U) << "the requests of VRFs";
  EXPECT_EQ(outcome.report.refused, 0U);
  EXPECT_EQ(outcome.report.differences, 0U);
}

TEST(Replay, SendsWhatWasSentInOrder) {
  const std::vector<Step> steps = Record(ActRichly);
  std::vector<std::pair<HalOperation, std::string>> expected;
  for (const Step& step : steps) {
    if (step.kind != Step::Kind::kRequest) continue;
    expected.emplace_back(step.request.operation, step.request.payload);
  }
  std::vector<std::pair<HalOperation, std::string>> sent;
  EmbeddedHalOptions options;
  options.before_apply = [&sent](const HalRequest& request) {
    sent.emplace_back(request.operation, request.payload);
  };
  ReplayEmbedded(steps, options);
  EXPECT_EQ(sent, expected);
}

TEST(Replay, PrintsEachResultThatDiffers) {
  std::vector<Step> steps = Record([](RecordedSession* session) {
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1));
    session->Send(HalOperation::kInstallHost, 3, HostOn(3, 1));
    session->Send(HalOperation::kDestroyHost, 9, Host(9));
  });
  ASSERT_EQ(steps.size(), 4U);
  steps[2].code = kHalTableFull;
  steps[3].code = kHalSuccess;
  const Outcome outcome = ReplayEmbedded(steps);
  EXPECT_EQ(outcome.text,
            "#2 install-host id=3: recorded 5 table full, now 0 success\n"
            "#3 destroy-host id=9: recorded 0 success, now 4 not installed\n");
  EXPECT_EQ(outcome.report.differences, 2U);
}

TEST(Replay, ShowsAHalThatIsSmaller) {
  const auto steps = Record([](RecordedSession* session) {
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1));
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
  });
  EmbeddedHalOptions options;
  options.table_capacity = 1;
  EXPECT_EQ(ReplayEmbedded(steps, options).text,
            "#2 install-vlan id=2: recorded 0 success, now 5 table full\n");
}

TEST(Replay, DoesNotSendWhatTheClientHadRefused) {
  const auto steps = Record([](RecordedSession* session) {
    session->Fail(HalOperation::kInstallVlan, 1, Vlan(1), kHalQueueFull);
    session->Fail(HalOperation::kInstallVlan, 1, Vlan(1), kHalTooLarge);
    session->Fail(HalOperation::kInstallVlan, 1, Vlan(1), kHalNoServer);
    session->Send(HalOperation::kReplaceVlan, 1, Vlan(1));
  });
  const Outcome outcome = ReplayEmbedded(steps);
  EXPECT_EQ(outcome.text, "");
  EXPECT_EQ(outcome.report.sent, 1U);
  EXPECT_EQ(outcome.report.refused, 3U);
}

TEST(Replay, DoesNotCompareWhatHadNoAnswer) {
  const auto steps = Record([](RecordedSession* session) {
    session->Fail(HalOperation::kDestroyVlan, 1, Vlan(1), kHalServerLost);
    session->Fail(HalOperation::kDestroyVlan, 1, Vlan(1), kHalDeadline);
    session->recorder().Request({HalOperation::kDestroyVlan, 1, 0, ""}, nullptr);
  });
  const Outcome outcome = ReplayEmbedded(steps);
  EXPECT_EQ(outcome.text, "");
  EXPECT_EQ(outcome.report.sent, 3U);
  EXPECT_EQ(outcome.report.not_compared, 3U);
}

TEST(Replay, CountsWhatCannotBeSentAsADifference) {
  const auto steps = Record([](RecordedSession* session) {
    const std::string too_long(2 << 20, 'p');
    session->recorder().Request({HalOperation::kInstallVlan, 1, 0, too_long}, nullptr);
    session->recorder().Request({HalOperation::kInstallVlan, 2, 0, "\xFF"}, nullptr);
  });
  const Outcome outcome = ReplayEmbedded(steps);
  EXPECT_EQ(outcome.text,
            "#1 install-vlan id=1: cannot be sent again: its message was not recorded in full\n"
            "#2 install-vlan id=2: cannot be sent again: its message was not recorded in full\n");
  EXPECT_EQ(outcome.report.differences, 2U);
}

TEST(Replay, WaitsForRoom) {
  const auto steps = Record([](RecordedSession* session) {
    for (std::uint32_t id = 0; id < 100; ++id)
      session->Send(HalOperation::kInstallVrf, id, Vrf(id));
  });
  int applied = 0;
  EmbeddedHalOptions options;
  options.queue_capacity = 1;
  options.before_apply = [&applied](const HalRequest& /*request*/) { ++applied; };
  EXPECT_EQ(ReplayEmbedded(steps, options).report.sent, 100U);
  EXPECT_GE(applied, 99) << "the last request may be in flight";
}

/// A HAL that never answers, and whose server may or may not be found.
class SilentHal : public HalConnection {
 public:
  explicit SilentHal(bool found, bool room) : found_(found), room_(room) {}

  void Start(HalReports reports) override {
    if (found_) reports.server_found();
  }
  bool HasRoom() override { return room_; }
  void SubmitBeginReinstall() override {}
  void SubmitEndReinstall() override {}
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

 protected:
  HalReturnCode Submit(HalRequest* /*request*/) override { return kHalSuccess; }

 private:
  bool found_;
  bool room_;
};

TEST(Replay, EndsWhenTheHalIsSilent) {
  const auto steps = Record(
      [](RecordedSession* session) { session->Send(HalOperation::kInstallVlan, 1, Vlan(1)); });
  struct Case {
    bool found;
    bool room;
    const char* error;
  };
  for (const Case& test : {Case{false, true,
                                "no free HAL server was found; start one with zuskux-hal, or end "
                                "the client that programs it"},
                           Case{true, false, "#1 install-vlan id=1: the HAL takes no request"},
                           Case{true, true, "#1 install-vlan id=1: the HAL does not answer"}}) {
    EXPECT_EQ(ErrorOf([&] {
                ReplayTo(std::make_unique<SilentHal>(test.found, test.room), steps, kImpatient);
              }),
              test.error);
  }
}

TEST(Replay, EndsWhenTheServerIsLost) {
  const auto steps = Record([](RecordedSession* session) {
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1));
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
  });
  EmbeddedHal* restarted = nullptr;
  EmbeddedHalOptions options;
  options.before_apply = [&restarted](const HalRequest& request) {
    if (request.id == 2) restarted->Restart();
  };
  auto hal = std::make_unique<EmbeddedHal>(options);
  restarted = hal.get();
  EXPECT_EQ(ErrorOf([&] { ReplayTo(std::move(hal), steps); }),
            "#2 install-vlan id=2: the HAL server was lost");
}

TEST(Replay, EndsWhenTheServerIsLostBetweenResults) {
  const auto steps = Record([](RecordedSession* session) {
    session->Send(HalOperation::kInstallVrf, 1, Vrf(1));
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
  });
  EmbeddedHal* restarted = nullptr;
  EmbeddedHalOptions options;
  options.before_apply = [&restarted](const HalRequest& request) {
    if (request.operation == HalOperation::kInstallVrf) restarted->Restart();
  };
  auto hal = std::make_unique<EmbeddedHal>(options);
  restarted = hal.get();
  EXPECT_EQ(ErrorOf([&] { ReplayTo(std::move(hal), steps); }),
            "#2 install-vlan id=2: the HAL server was lost");
}

}  // namespace
}  // namespace reference
