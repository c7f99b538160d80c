/// The HAL client against a server that the test controls.

#include "reference/socket_client/socket_hal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "tests/socket_client/fake_server.h"
#include "tests/socket_client/reported.h"
#include "zuskux/ecmp_encapsulation_message.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

class SocketHalTest : public testing::Test {
 protected:
  SocketHalOptions Options() {
    SocketHalOptions options;
    options.path = server_.path();
    options.reconnect_first = milliseconds(1);
    options.reconnect_last = milliseconds(4);
    options.log = [this](LogLevel, const std::string& line) { log_.Add(line); };
    return options;
  }

  /// Starts a client without a server that answers.
  SocketHal* Start(const SocketHalOptions& options) {
    hal_ = std::make_unique<SocketHal>(options);
    hal_->Start(reported_.Reports());
    return hal_.get();
  }

  /// Starts a client that has found the server.
  SocketHal* StartConnected(const SocketHalOptions& options) {
    SocketHal* const hal = Start(options);
    server_.AcceptAndGreet();
    reported_.Await(1);
    return hal;
  }

  /// Waits until everything that the server sent so far has been handled.
  void Settle(std::uint32_t id) {
    const std::size_t before = reported_.events().size();
    EXPECT_EQ(InstallVlan(hal_.get(), id), kHalSuccess);
    server_.Answer(server_.Next());
    EXPECT_EQ(reported_.Await(before + 1).back(), "InstallVlan " + std::to_string(id) + ": 0");
  }

  /// Blocks the reporting thread until `released_`.
  void HoldThread() {
    held_.Open();
    released_.Pass();
  }

  Gate held_;
  Gate released_;
  FakeServer server_;
  Record log_;
  Reported reported_;
  std::unique_ptr<SocketHal> hal_;
};

// docs/wire_protocol.md, docs/recovery.md and docs/operating.md promise these.
TEST(SocketHalOptionsTest, AreTheDocumentedLimits) {
  const SocketHalOptions options;
  EXPECT_EQ(options.deadline, std::chrono::seconds(30));
  EXPECT_EQ(options.heartbeat, std::chrono::seconds(1));
  EXPECT_EQ(options.heartbeats_missed, 5);
  EXPECT_EQ(options.reconnect_first, milliseconds(10));
  EXPECT_EQ(options.reconnect_last, std::chrono::seconds(1));
  EXPECT_EQ(options.reconnect_absent, milliseconds(100));
}

class OneWriter : public SocketHalTest {
 protected:
  SocketHalOptions Options() {
    SocketHalOptions options = SocketHalTest::Options();
    options.program = "first 1.0";
    options.other_writer = [this] { others_.Add("told"); };
    return options;
  }

  Record others_;
};

TEST_F(OneWriter, IdentifiesItselfAsAWriterInItsHello) {
  StartConnected(Options());
  EXPECT_EQ(server_.hello().program(), "first 1.0");
  EXPECT_EQ(server_.hello().protocol_minor_version(), 4U);
  EXPECT_TRUE(server_.hello().writes());
  EXPECT_FALSE(server_.hello().take_over());
}

TEST_F(OneWriter, TakesOverFromTheFirstServersWriterOnly) {
  SocketHalOptions options = Options();
  options.take_over = true;
  Start(options);
  // This server goes away before it answers.
  server_.Accept();
  EXPECT_TRUE(server_.hello().take_over());
  server_.AcceptAndGreet();
  EXPECT_TRUE(server_.hello().take_over());
  reported_.Await(1);
  server_.AcceptAndGreet();
  EXPECT_FALSE(server_.hello().take_over());
}

TEST_F(OneWriter, LearnsOfAnotherWriterAndSucceedsIt) {
  Start(Options());
  for (std::size_t attempt = 1; attempt <= 2; ++attempt) {
    server_.Accept();
    server_.SendFrame(FrameType::kGoodbye, 1, "other programs this server");
    others_.Await(attempt);
  }
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(1), ElementsAre("found"));
  EXPECT_THAT(others_.entries(), ElementsAre("told", "told"));
  EXPECT_THAT(log_.entries(), ElementsAre("HAL server says goodbye: other programs this server",
                                          StartsWith("connected to HAL server")));
}

TEST_F(OneWriter, StopsSendingWhenAnotherOneHasTakenOver) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  server_.Next();
  server_.SendFrame(FrameType::kGoodbye, 2, "other has taken over");
  EXPECT_TRUE(server_.AwaitClosed());
  EXPECT_THAT(others_.Await(1), ElementsAre("told"));
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 100"));
  EXPECT_EQ(InstallVlan(hal, 2), kHalNoServer);
}

TEST_F(OneWriter, DoesNotMistakeALostServerForAnotherWriter) {
  StartConnected(Options());
  server_.Close();
  server_.AcceptAndGreet();
  EXPECT_EQ(reported_.Await(2).back(), "found");
  EXPECT_THAT(others_.entries(), IsEmpty());
}

TEST_F(OneWriter, DoesNotMistakeOtherGoodbyesForAnotherWriter) {
  StartConnected(Options());
  for (const std::uint32_t reason : {0U, 3U, 257U}) {
    server_.SendFrame(FrameType::kGoodbye, reason, "going down");
    server_.AcceptAndGreet();
  }
  EXPECT_THAT(others_.entries(), IsEmpty());
}

/// Each request ends in exactly one result.
class PromiseOneResult : public SocketHalTest {};

TEST_F(PromiseOneResult, BeforeTheServerIsLost) {
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  InstallVlan(hal_.get(), 5);
  server_.Next();
  server_.Close();
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 5: 100", "lost"));
}

TEST_F(PromiseOneResult, WithTheServersCodeAlsoIfABadFrameFollows) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 5);
  std::string bytes;
  AppendResult(server_.Next().sequence, {kHalTableFull, 5}, &bytes);
  server_.Send(bytes + std::string(kFrameHeaderSize, '\xFF'));
  EXPECT_TRUE(server_.AwaitClosed());
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 5: 5"));
}

TEST_F(PromiseOneResult, WithTheServersCode) {
  SocketHal* const hal = StartConnected(Options());
  EXPECT_EQ(InstallVlan(hal, 5), kHalSuccess);
  EXPECT_EQ(DestroyVlan(hal, 6), kHalSuccess);
  const FakeServer::Frame install = server_.Next();
  const FakeServer::Frame destroy = server_.Next();
  EXPECT_EQ(install.type, FrameType{5});
  EXPECT_EQ(install.payload, Vlan(5).SerializeAsString());
  EXPECT_EQ(destroy.type, FrameType{6});
  server_.Answer(destroy, 4);
  server_.Answer(install);
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "DestroyVlan 6: 4", "InstallVlan 5: 0"));
  EXPECT_EQ(hal->counters().requests, 2U);
  EXPECT_EQ(hal->counters().results, 2U);
  EXPECT_EQ(hal->counters().servers_found, 1U);
}

// `Reported` fails if a report runs inside another.
TEST_F(PromiseOneResult, CountedWhenItsDeliveryBegins) {
  reported_.on_event = [this](const std::string& event) {
    const HalConnectionCounters counters = hal_->counters();
    EXPECT_EQ(counters.servers_found, 1U) << event;
    EXPECT_EQ(counters.results, event == "found" ? 0U : 1U) << event;
  };
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  server_.Answer(server_.Next());
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 0"));
}

TEST_F(PromiseOneResult, NeverInsideARequestThatIsSentInsideAReport) {
  SocketHalOptions options = Options();
  options.queue_entries = 1;
  reported_.on_event = [this](const std::string& event) {
    if (event != "found") return;
    EXPECT_EQ(InstallVlan(hal_.get(), 1), kHalSuccess);
    EXPECT_EQ(InstallVlan(hal_.get(), 2), kHalQueueFull);
  };
  Start(options);
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 2: 101"));
  server_.Answer(server_.Next());
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 2: 101", "InstallVlan 1: 0"));
}

TEST_F(PromiseOneResult, RequestsFromBeforeTheServerWaitForIt) {
  hal_ = std::make_unique<SocketHal>(Options());
  EXPECT_EQ(InstallVlan(hal_.get(), 1), kHalSuccess);
  hal_->BeginReinstall();
  EXPECT_EQ(InstallVrf(hal_.get(), 2), kHalSuccess);
  EXPECT_EQ(hal_->counters().queued, 3U);
  hal_->Start(reported_.Reports());
  server_.AcceptAndGreet();
  const FakeServer::Frame install = server_.Next();
  EXPECT_EQ(install.type, FrameType{5});
  EXPECT_EQ(server_.Next().type, FrameType::kBeginReinstall);
  EXPECT_EQ(server_.Next().type, FrameType{3});
  server_.Answer(install);
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 0"));
  EXPECT_EQ(hal_->counters().queued_peak, 3U);
}

TEST_F(PromiseOneResult, WithoutAServer) {
  server_.StopListening();
  hal_ = std::make_unique<SocketHal>(Options());
  EXPECT_EQ(InstallVlan(hal_.get(), 1), kHalSuccess) << "the request waits for the first attempt";
  hal_->Start(reported_.Reports());
  EXPECT_THAT(reported_.Await(1), ElementsAre("InstallVlan 1: 104"));
  EXPECT_FALSE(hal_->counters().connected);
  EXPECT_EQ(InstallVlan(hal_.get(), 2), kHalNoServer);
  EXPECT_THAT(reported_.Await(2), ElementsAre("InstallVlan 1: 104", "InstallVlan 2: 104"));
  server_.Listen();
  server_.AcceptAndGreet();
  EXPECT_EQ(reported_.Await(3).back(), "found");
  EXPECT_THAT(log_.Await(2),
              ElementsAre("no HAL server at " + server_.path() + ": No such file or directory",
                          "connected to HAL server fake-hal 1, generation 0x0000000000000007"));
}

TEST_F(PromiseOneResult, NothingIsLostBeforeAServerWasFound) {
  server_.StopListening();
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  log_.AwaitStart("no HAL server");
  server_.Listen();
  // Ends before its hello.
  server_.Accept();
  server_.Close();
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(1), ElementsAre("found"));
}

TEST_F(PromiseOneResult, WhenTheServerIsLost) {
  SocketHal* const hal = StartConnected(Options());
  for (std::uint32_t id = 1; id <= 3; ++id) InstallVlan(hal, id);
  server_.Next();
  server_.Answer(server_.Next());
  EXPECT_EQ(reported_.Await(2).back(), "InstallVlan 2: 0");
  EXPECT_TRUE(hal->counters().connected);
  server_.Close();
  EXPECT_TRUE(Eventually([hal] { return !hal->counters().connected; }));
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(5), ElementsAre("found", "InstallVlan 2: 0", "InstallVlan 1: 100",
                                              "InstallVlan 3: 100", "found"));
  Settle(4);
  EXPECT_EQ(hal->counters().servers_found, 2U);
  EXPECT_EQ(hal->counters().results, 4U);
}

TEST_F(PromiseOneResult, WhenTheServerSaysGoodbye) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  server_.Next();
  server_.SendFrame(FrameType::kGoodbye, 0, "going\ndown");
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 100"));
  EXPECT_EQ(log_.AwaitStart("HAL server says"), "HAL server says goodbye: going\\ndown");
}

TEST_F(PromiseOneResult, WhenTheServerStalls) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(30);
  options.queue_entries = 2;
  SocketHal* const hal = StartConnected(options);
  InstallVlan(hal, 1);
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 102"));
  InstallVlan(hal, 2);
  EXPECT_EQ(reported_.Await(3).back(), "InstallVlan 2: 102");
  server_.Answer(server_.Next());
  server_.Answer(server_.Next());
  EXPECT_TRUE(Eventually([hal] { return hal->counters().late_results == 2; }));
  EXPECT_EQ(hal->counters().results, 2U);
}

// More requests than the queue has places, and none is ever answered.
TEST_F(PromiseOneResult, WhenTheServerAnswersNothing) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(500);
  options.queue_entries = 2;
  SocketHal* const hal = StartConnected(options);
  reported_.Await(1);
  for (std::uint32_t id = 1; id <= 4; id += 2) {
    const std::size_t before = reported_.events().size();
    InstallVlan(hal, id);
    InstallVlan(hal, id + 1);
    EXPECT_FALSE(hal->HasRoom());
    std::vector<std::string> events = reported_.Await(before + 3);
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(before));
    // There is room from the first deadline on, which may come before the second.
    const std::string first = "InstallVlan " + std::to_string(id) + ": 102";
    const std::string second = "InstallVlan " + std::to_string(id + 1) + ": 102";
    EXPECT_THAT(events,
                AnyOf(ElementsAre(first, second, "room"), ElementsAre(first, "room", second)));
  }
  // The places of the first two requests now hold others.
  for (int i = 0; i < 4; ++i) server_.Answer(server_.Next());
  EXPECT_TRUE(Eventually([hal] { return hal->counters().late_results == 4; }));
  Settle(5);
}

TEST_F(PromiseOneResult, AfterASleepWhenTheServerAnswersNothing) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(2'000);
  SocketHal* const hal = StartConnected(options);
  const std::clock_t start = std::clock();
  InstallVlan(hal, 1);
  EXPECT_EQ(reported_.Await(2).back(), "InstallVlan 1: 102");
  EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10) << "processor time";
}

TEST_F(PromiseOneResult, WhenTheServerAnswersTwiceOrWithoutBeingAsked) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  const FakeServer::Frame request = server_.Next();
  server_.Answer(request);
  server_.Answer(request);
  std::string unknown;
  AppendResult(12345, {kHalSuccess, 1, 0, {}}, &unknown);
  server_.Send(unknown);
  reported_.Await(2);
  Settle(2);
  EXPECT_THAT(reported_.events(), ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0"));
  EXPECT_EQ(hal->counters().late_results, 2U);
}

TEST_F(PromiseOneResult, WithTheReasonThatTheServerGivesMadeSafe) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  server_.Answer(server_.Next(), 9, "no memory\n\x1b[31m");
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", R"(InstallVlan 1: 9 no memory\n\x1b[31m)"));
}

TEST_F(PromiseOneResult, WhenTheServerAnswersForAnotherObject) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  InstallVlan(hal, 2);
  std::string other;
  AppendResult(server_.Next().sequence, {kHalSuccess, 7, 0, {}}, &other);
  server_.Send(other);
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 2: 100"));
  EXPECT_EQ(log_.AwaitStart("HAL server closed"),
            "HAL server closed, it answered install-vlan 1 with a result for 7");
}

TEST_F(PromiseOneResult, WhenTheServerAnswersLateAndForAnotherObject) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(10);
  SocketHal* const hal = StartConnected(options);
  for (const std::uint32_t code : {0U, 100U}) {
    const std::size_t before = reported_.events().size();
    InstallVlan(hal, 1);
    EXPECT_EQ(reported_.Await(before + 1).back(), "InstallVlan 1: 102");
    std::string late;
    AppendResult(server_.Next().sequence, {HalReturnCode{code}, code == 0 ? 7U : 1U, 0, {}}, &late);
    server_.Send(late);
    // The connection ends, without another result.
    server_.AcceptAndGreet();
    EXPECT_EQ(reported_.Await(before + 2).back(), "found");
  }
}

TEST_F(PromiseOneResult, WhenTheServerAnswersWithACodeOfTheClient) {
  SocketHal* const hal = StartConnected(Options());
  std::size_t events = 1;
  for (const std::uint32_t code : {100U, 101U, 104U, 0xFFFFFFFFU}) {
    InstallVlan(hal, 1);
    server_.Answer(server_.Next(), code);
    EXPECT_EQ(reported_.Await(++events).back(), "InstallVlan 1: 100");
    EXPECT_EQ(log_.AwaitStart("HAL server closed, it answered install-vlan 1 with code " +
                              std::to_string(code)),
              "HAL server closed, it answered install-vlan 1 with code " + std::to_string(code) +
                  ", a code of the client's own");
    server_.AcceptAndGreet();
    EXPECT_EQ(reported_.Await(++events).back(), "found");
  }
  InstallVlan(hal, 1);
  server_.Answer(server_.Next(), 99);
  EXPECT_EQ(reported_.Await(++events).back(), "InstallVlan 1: 99");
}

TEST_F(PromiseOneResult, WhenTheRequestIsTooLarge) {
  SocketHal* const hal = Start(Options());
  server_.Accept();
  server_.Greet(3);
  reported_.Await(1);
  EXPECT_EQ(InstallVlan(hal, 1), kHalTooLarge);
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 103"));
  EXPECT_EQ(InstallVrf(hal, 1'000'000), kHalTooLarge);
  EXPECT_EQ(log_.AwaitStart("install-vrf"), "install-vrf 1000000 dropped: request too large");
  EXPECT_EQ(InstallVrf(hal, 5), kHalSuccess);
  const FrameType first_sent = server_.Next().type;
  EXPECT_EQ(first_sent, FrameType{3});
}

TEST_F(PromiseOneResult, OfARefusedRequestInsideTheResultOfAnother) {
  SocketHalOptions options = Options();
  options.queue_bytes = 0;
  // No heartbeat wakes the client.
  options.heartbeat = std::chrono::hours(1);
  // The first result may come while the client handles the server's hello, the others do not.
  reported_.on_event = [this, sent = 1U](const std::string& event) mutable {
    if (event == "found" || sent == 4) return;
    EXPECT_EQ(InstallVlan(hal_.get(), ++sent), kHalTooLarge);
  };
  EXPECT_EQ(InstallVlan(StartConnected(options), 1), kHalTooLarge);
  EXPECT_THAT(reported_.Await(5), ElementsAre("found", "InstallVlan 1: 103", "InstallVlan 2: 103",
                                              "InstallVlan 3: 103", "InstallVlan 4: 103"));
}

TEST_F(PromiseOneResult, WhenAnEarlyRequestIsTooLarge) {
  hal_ = std::make_unique<SocketHal>(Options());
  InstallVlan(hal_.get(), 1);
  hal_->Start(reported_.Reports());
  server_.Accept();
  server_.Greet(3);
  EXPECT_THAT(reported_.Await(2), ElementsAre("InstallVlan 1: 103", "found"));
}

TEST_F(PromiseOneResult, SequencesWrap) {
  SocketHalOptions options = Options();
  options.first_sequence = 0xFFFFFE;
  SocketHal* const hal = StartConnected(options);
  std::vector<FakeServer::Frame> requests;
  std::vector<std::uint32_t> sequences;
  for (std::uint32_t id = 1; id <= 4; ++id) {
    InstallVlan(hal, id);
    requests.push_back(server_.Next());
    sequences.push_back(requests.back().sequence);
  }
  EXPECT_THAT(sequences, ElementsAre(0xFFFFFE, 0xFFFFFF, 0, 1));
  for (const FakeServer::Frame& request : requests) server_.Answer(request);
  EXPECT_THAT(reported_.Await(5), ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0",
                                              "InstallVlan 3: 0", "InstallVlan 4: 0"));
}

/// VRF requests have no result, but survive the loss of the server.
// The connection's thread is busy meanwhile: it reports.
TEST_F(SocketHalTest, TheServerGetsTheFirstOfManyRequestsBeforeTheHostHasMadeTheLast) {
  constexpr std::uint32_t kRequests = 2'000;
  hal_ = std::make_unique<SocketHal>(Options());
  HalReports reports = reported_.Reports();
  reports.vrf_result = [this](const HalRequest&, HalReturnCode) {
    for (std::uint32_t id = 1; id <= kRequests; ++id) InstallVlan(hal_.get(), id);
    HoldThread();
  };
  hal_->Start(reports);
  server_.AcceptAndGreet();
  reported_.Await(1);
  InstallVrf(hal_.get(), 7);
  server_.Answer(server_.Next());
  held_.Pass();
  for (std::uint32_t id = 1; id <= kRequests; ++id) {
    if (id == kRequests / 2) released_.Open();
    ASSERT_EQ(IdIn(server_.Next()), id);
  }
}

class PromiseVrfsAreKept : public SocketHalTest {};

TEST_F(PromiseVrfsAreKept, UntilTheyAreAnswered) {
  SocketHal* const hal = StartConnected(Options());
  InstallVrf(hal, 1);
  InstallVrf(hal, 2);
  server_.Answer(server_.Next());
  EXPECT_EQ(IdIn(server_.Next()), 2U);
  Settle(9);
  server_.Close();
  server_.AcceptAndGreet();
  EXPECT_EQ(IdIn(server_.Next()), 2U);
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 9: 0", "found"));
  EXPECT_EQ(hal->counters().late_results, 0U);
}

// The server answers heartbeats, and nothing else is requested.
TEST_F(PromiseVrfsAreKept, UntilTheirDeadline) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(500);
  hal_ = std::make_unique<SocketHal>(options);
  hal_->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  InstallVrf(hal_.get(), 1);
  const FakeServer::Frame request = server_.Next();
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "install-vrf 1: 102"));
  EXPECT_EQ(log_.AwaitStart("install-vrf"), "install-vrf 1 failed: no answer in time");
  // The late answer is dropped.
  server_.Answer(request);
  Settle(9);
  EXPECT_EQ(hal_->counters().late_results, 1U);
  EXPECT_THAT(reported_.events(), ElementsAre("found", "install-vrf 1: 102", "InstallVlan 9: 0"));
}

TEST_F(PromiseVrfsAreKept, ARefusalIsReported) {
  SocketHal* const hal = StartConnected(Options());
  InstallVrf(hal, 1);
  server_.Answer(server_.Next(), 5);
  EXPECT_EQ(log_.AwaitStart("install-vrf"), "install-vrf 1 refused: table full");
  EXPECT_THAT(reported_.events(), ElementsAre("found"));
}

TEST_F(PromiseVrfsAreKept, ARefusalIsReportedWithItsReason) {
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  InstallVrf(hal_.get(), 1);
  server_.Answer(server_.Next(), 9, "no memory");
  EXPECT_EQ(log_.AwaitStart("install-vrf"),
            "install-vrf 1 refused: refused by the kernel: no memory");
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "install-vrf 1: 9 no memory"));
}

TEST_F(PromiseVrfsAreKept, EachOutcomeIsReported) {
  hal_ = std::make_unique<SocketHal>(Options());
  SocketHal* const hal = hal_.get();
  hal->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  InstallVrf(hal, 1);
  server_.Answer(server_.Next(), 5);
  EXPECT_EQ(reported_.Await(2).back(), "install-vrf 1: 5");
  InstallVrf(hal, 2);
  server_.Next();
  server_.Close();
  EXPECT_EQ(reported_.Await(3).back(), "lost");
  server_.AcceptAndGreet();
  server_.Answer(server_.Next());
  EXPECT_THAT(reported_.Await(5),
              ElementsAre("found", "install-vrf 1: 5", "lost", "found", "install-vrf 2: 0"));
  InstallVrf(hal, 3);
  server_.Answer(server_.Next(), 104);
  EXPECT_THAT(reported_.Await(7), testing::Contains("install-vrf 3: 100"))
      << "a code that no server sends";
  EXPECT_EQ(hal->counters().results, 0U);
}

TEST_F(PromiseVrfsAreKept, InTheirOrderUnlessSuperseded) {
  SocketHal* const hal = StartConnected(Options());
  InstallVrf(hal, 1);
  InstallVrf(hal, 2);
  DestroyVrf(hal, 1);
  InstallVlan(hal, 9);
  for (int i = 0; i < 4; ++i) server_.Next();
  server_.StopListening();
  server_.Close();
  EXPECT_EQ(reported_.Await(2).back(), "InstallVlan 9: 100");
  InstallVrf(hal, 3);
  DestroyVrf(hal, 2);
  EXPECT_EQ(hal->counters().queued, 3U);
  reported_.on_event = [hal](const std::string& event) {
    if (event == "found") hal->BeginReinstall();
  };
  server_.Listen();
  server_.AcceptAndGreet();
  std::vector<std::pair<FrameType, std::uint32_t>> sent;
  for (int i = 0; i < 4; ++i) {
    const FakeServer::Frame frame = server_.Next();
    sent.emplace_back(frame.type, IdIn(frame));
  }
  EXPECT_THAT(sent,
              ElementsAre(std::pair(FrameType{4}, 1U), std::pair(FrameType{3}, 3U),
                          std::pair(FrameType{4}, 2U), std::pair(FrameType::kBeginReinstall, 0U)));
}

TEST_F(PromiseVrfsAreKept, InBounds) {
  server_.StopListening();
  SocketHalOptions options = Options();
  options.queue_entries = 2;
  SocketHal* const hal = Start(options);
  log_.Await(1);
  EXPECT_EQ(InstallVrf(hal, 1), kHalSuccess);
  EXPECT_EQ(InstallVrf(hal, 2), kHalSuccess);
  EXPECT_EQ(InstallVrf(hal, 3), kHalQueueFull);
  EXPECT_EQ(DestroyVrf(hal, 2), kHalSuccess) << "replaces the other request for VRF 2";
  EXPECT_EQ(log_.AwaitStart("install-vrf"), "install-vrf 3 dropped: send queue full");
  EXPECT_THAT(reported_.events(), IsEmpty());
}

/// Queues are bounded, writes are coalesced, and a slow server does not count as dead.
class PromiseBounded : public SocketHalTest {};

TEST_F(PromiseBounded, InEntries) {
  SocketHalOptions options = Options();
  options.queue_entries = 4;
  SocketHal* const hal = StartConnected(options);
  for (std::uint32_t id = 1; id <= 4; ++id) {
    EXPECT_TRUE(hal->HasRoom());
    EXPECT_EQ(InstallVlan(hal, id), kHalSuccess);
  }
  EXPECT_FALSE(hal->HasRoom());
  EXPECT_FALSE(hal->HasRoom());
  EXPECT_EQ(InstallVlan(hal, 5), kHalQueueFull);
  EXPECT_EQ(reported_.Await(2).back(), "InstallVlan 5: 101");
  for (int i = 0; i < 4; ++i) server_.Answer(server_.Next());
  const auto events = reported_.Await(7);
  EXPECT_EQ(std::count(events.begin(), events.end(), "room"), 1);
  EXPECT_GT(std::find(events.begin(), events.end(), "room"),
            std::find(events.begin(), events.end(), "InstallVlan 2: 0"))
      << "half of the queue is free";
}

TEST_F(PromiseBounded, InBytes) {
  constexpr std::size_t kBytes = 1000;
  SocketHalOptions options = Options();
  options.queue_bytes = kBytes;
  reported_.on_event = [this](const std::string& event) {
    if (event == "found") HoldThread();
  };
  SocketHal* const hal = Start(options);
  server_.Accept();
  server_.Greet(100);
  // The thread is inside the server-found report and writes nothing.
  held_.Pass();
  const std::size_t frame = kFrameHeaderSize + Vlan(1).SerializeAsString().size();
  // Without a write, the limit in bytes decides; all frames have the same size.
  std::size_t taken = 0;
  while (InstallVlan(hal, 1) == kHalSuccess) ++taken;
  EXPECT_GE(taken, kBytes / frame - 1);
  EXPECT_LE(taken, kBytes / frame);
  EXPECT_FALSE(hal->HasRoom());
  released_.Open();
  for (std::size_t i = 0; i < taken; ++i) server_.Answer(server_.Next());
  const auto events = reported_.Await(taken + 3);
  EXPECT_EQ(std::count(events.begin(), events.end(), "room"), 1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "InstallVlan 1: 101"), 1);
  EXPECT_TRUE(hal->HasRoom());
}

TEST_F(PromiseBounded, HasRoomIsFalseBeforeALargeRequestIsRefused) {
  SocketHalOptions options = Options();
  options.queue_bytes = 300;
  reported_.on_event = [this](const std::string& event) {
    if (event == "found") HoldThread();
  };
  SocketHal* const hal = Start(options);
  server_.Accept();
  server_.Greet(100);
  held_.Pass();
  std::size_t taken = 0;
  while (hal->HasRoom() && taken < 100) {
    ASSERT_EQ(InstallVlan(hal, 1), kHalSuccess);
    ++taken;
  }
  const std::size_t frame = kFrameHeaderSize + Vlan(1).SerializeAsString().size();
  EXPECT_LE(taken * frame + kFrameHeaderSize + 100, 300 + frame);
  EXPECT_GE(taken * frame + kFrameHeaderSize + 100, 300);
  released_.Open();
  // Writing them makes room, without an answer.
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "room"));
}

TEST_F(PromiseBounded, OneWriteForOneRequestAloneAndOneForAllThatWait) {
  reported_.on_event = [this](const std::string& event) {
    if (event == "InstallVlan 1: 0") HoldThread();
  };
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  server_.Answer(server_.Next());
  held_.Pass();
  const SocketHalStatistics before = hal->statistics();
  for (std::uint32_t id = 2; id <= 101; ++id) InstallVlan(hal, id);
  EXPECT_EQ(hal->counters().queued, 99U) << "the first was written by the thread that sent it";
  released_.Open();
  for (std::uint32_t id = 2; id <= 101; ++id) server_.Answer(server_.Next());
  EXPECT_EQ(reported_.Await(102).back(), "InstallVlan 101: 0");
  const SocketHalStatistics after = hal->statistics();
  EXPECT_EQ(after.wake_ups, before.wake_ups) << "the thread is awake in a report";
  EXPECT_EQ(after.writes - before.writes, 2U);
  const HalLatencies latencies = hal->latencies();
  EXPECT_EQ(latencies.queue.count, 101U);
  EXPECT_EQ(latencies.wire.count, 101U);
  EXPECT_EQ(latencies.hal.count, 101U);
  EXPECT_GE(latencies.queue.p99, latencies.queue.p50);
  EXPECT_GE(latencies.queue.max, latencies.queue.p99);
  EXPECT_EQ(hal->counters().queued_peak, 99U);
  EXPECT_EQ(hal->counters().queued, 0U);
}

TEST_F(PromiseBounded, RequestsOneAtATimeNeedNoWakeUpEach) {
  SocketHal* const hal = StartConnected(Options());
  Settle(1);
  const SocketHalStatistics before = hal->statistics();
  for (std::uint32_t id = 2; id <= 20; ++id) Settle(id);
  const SocketHalStatistics after = hal->statistics();
  // If the thread runs late and finds no deadline left to watch, it needs one more wake-up.
  EXPECT_LT(after.wake_ups - before.wake_ups, 19U);
  EXPECT_EQ(after.writes - before.writes, 19U);
}

/// A request that the socket does not accept in one go.
class PromiseBoundedLargeRequest : public PromiseBounded {
 protected:
  void SetUp() override {
    Start(Options());
    server_.Accept();
    server_.Greet(kLargest);
    ASSERT_THAT(reported_.Await(1), ElementsAre("found"));
    Settle(1);
  }

  void InstallLarge(std::uint32_t id) {
    EcmpEncapsulationMessage message;
    message.encap()->set_db_id(id);
    for (std::uint32_t member = 0; member < kMembers; ++member) {
      message.encap()->add_members(kFirstMember + member);
    }
    ASSERT_EQ(hal_->InstallEcmpEncap(&message), kHalSuccess);
    large_ = message.encap()->SerializeAsString();
    ASSERT_GT(large_.size(), std::size_t{1} << 20);
  }

  static constexpr std::uint32_t kLargest = 1U << 22;
  static constexpr std::uint32_t kMembers = 400'000;
  static constexpr std::uint32_t kFirstMember = 1U << 20;
  std::string large_;
};

TEST_F(PromiseBoundedLargeRequest, IsWrittenToItsEndBeforeTheNext) {
  InstallLarge(2);
  EXPECT_EQ(InstallVlan(hal_.get(), 3), kHalSuccess);
  EXPECT_EQ(hal_->counters().queued, 2U);
  const FakeServer::Frame large = server_.Next();
  EXPECT_EQ(large.payload, large_);
  const FakeServer::Frame next = server_.Next();
  EXPECT_EQ(next.payload, Vlan(3).SerializeAsString());
  server_.Answer(large);
  server_.Answer(next);
  EXPECT_THAT(reported_.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallEcmp 2: 0", "InstallVlan 3: 0"));
  EXPECT_EQ(hal_->counters().queued, 0U);
}

TEST_F(PromiseBoundedLargeRequest, LeavesRoomOnceItIsWritten) {
  InstallLarge(2);
  EXPECT_FALSE(hal_->HasRoom());
  // Reads it without an answer.
  server_.Next();
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 1: 0", "room"));
}

TEST_F(PromiseBoundedLargeRequest, EndsWithTheServerInTheMiddleOfIt) {
  InstallLarge(2);
  server_.Close();
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallEcmp 2: 100", "found"));
  Settle(3);
}

/// The client's thread writes it, because it is awake.
class PromiseBoundedLargeRequestOfTheThread : public PromiseBoundedLargeRequest {
 protected:
  void SetUp() override {
    reported_.on_event = [this](const std::string& event) {
      if (event == "InstallVlan 2: 0") HoldThread();
    };
    PromiseBoundedLargeRequest::SetUp();
  }
};

TEST_F(PromiseBoundedLargeRequestOfTheThread, LeavesNoRoomBeforeItIsWritten) {
  InstallVlan(hal_.get(), 2);
  server_.Answer(server_.Next());
  held_.Pass();
  InstallVlan(hal_.get(), 3);
  const FakeServer::Frame small = server_.Next();
  InstallLarge(4);
  EXPECT_FALSE(hal_->HasRoom());
  released_.Open();
  server_.Answer(small);
  EXPECT_THAT(reported_.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0", "InstallVlan 3: 0"));
  EXPECT_EQ(server_.Next().payload, large_);
  EXPECT_EQ(reported_.Await(5).back(), "room");
}

TEST_F(PromiseBounded, ASlowServerIsKept) {
  SocketHalOptions options = Options();
  options.heartbeat = milliseconds(10);
  options.heartbeats_missed = 100;
  SocketHal* const hal = StartConnected(options);
  const auto start = std::chrono::steady_clock::now();
  InstallVlan(hal, 1);
  const FakeServer::Frame request = server_.Next();
  while (std::chrono::steady_clock::now() - start < 2 * 100 * options.heartbeat) {
    const FakeServer::Frame frame = server_.NextOfAny();
    ASSERT_EQ(frame.type, FrameType::kHeartbeat);
    server_.SendFrame(FrameType::kHeartbeat, frame.sequence, "");
  }
  EXPECT_THAT(reported_.events(), ElementsAre("found"));
  server_.Answer(request);
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 0"));
}

TEST_F(PromiseBounded, ADeadServerIsDropped) {
  SocketHalOptions options = Options();
  options.heartbeat = milliseconds(100);
  options.heartbeats_missed = 4;
  SocketHal* const hal = StartConnected(options);
  InstallVlan(hal, 1);
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "InstallVlan 1: 100"));
  EXPECT_EQ(log_.AwaitStart("HAL server lost"), "HAL server lost: no sign of life for 400 ms");
  EXPECT_EQ(server_.Next().type, FrameType{5});
  EXPECT_EQ(server_.NextOfAny().type, FrameType::kHeartbeat);
  EXPECT_EQ(server_.FramesToEnd().size(), 0U) << "it asks once";
}

TEST_F(PromiseBounded, AServerIsAskedBeforeItIsDropped) {
  SocketHalOptions options = Options();
  options.heartbeat = milliseconds(500);
  options.heartbeats_missed = 1;
  StartConnected(options);
  EXPECT_EQ(server_.NextOfAny().type, FrameType::kHeartbeat);
}

TEST_F(PromiseBounded, AServerWithoutAHelloIsDropped) {
  SocketHalOptions options = Options();
  options.heartbeat = milliseconds(100);
  options.heartbeats_missed = 2;
  const auto begin = std::chrono::steady_clock::now();
  Start(options);
  server_.Accept();
  EXPECT_EQ(log_.AwaitStart("HAL server lost"), "HAL server lost: no hello for 200 ms");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(200));
}

/// No report after the destructor has returned.
class PromiseNoReportAfterTheEnd : public SocketHalTest {};

TEST_F(PromiseNoReportAfterTheEnd, WhatWaitsHasNoResult) {
  SocketHal* const hal = StartConnected(Options());
  InstallVlan(hal, 1);
  hal_.reset();
  EXPECT_THAT(reported_.events(), ElementsAre("found"));
}

TEST_F(PromiseNoReportAfterTheEnd, WithoutAStart) {
  hal_ = std::make_unique<SocketHal>(Options());
  InstallVlan(hal_.get(), 1);
  hal_.reset();
  EXPECT_THAT(reported_.events(), IsEmpty());
}

TEST_F(PromiseNoReportAfterTheEnd, WhileTheServerFloods) {
  SocketHal* const hal = StartConnected(Options());
  std::thread flood([this] {
    std::string frames;
    for (std::uint32_t i = 0; i < 1000; ++i) AppendResult(i, {kHalSuccess, 1, 0, {}}, &frames);
    for (int i = 0; i < 100'000 && server_.Send(frames); ++i) {
    }
  });
  EXPECT_TRUE(Eventually([hal] { return hal->counters().late_results >= 10'000; }));
  hal_.reset();
  flood.join();
  EXPECT_THAT(reported_.events(), ElementsAre("found"));
}

class ObjectStateTest : public SocketHalTest {
 protected:
  void SetUp() override {
    hal_ = std::make_unique<SocketHal>(Options());
    hal_->Start(reported_.AllReports());
    server_.AcceptAndGreet();
    reported_.Await(1);
  }

  void Tell(const std::string& payload) { server_.SendFrame(FrameType::kObjectStates, 0, payload); }
};

TEST_F(ObjectStateTest, IsReportedInOrderWithTheResults) {
  InstallVlan(hal_.get(), 5);
  const FakeServer::Frame first = server_.Next();
  // VLAN 5 has code 9, then 0.
  Tell("\x0A\x0B\x08\x01\x10\x05\x18\x09\x22\x03no\n");
  server_.Answer(first);
  Tell("\x0A\x04\x08\x01\x10\x05\x0A\x06\x08\x01\x10\x07\x18\x07");
  EXPECT_THAT(reported_.Await(5), ElementsAre("found", "state vlan 5: 9 no\\n", "InstallVlan 5: 0",
                                              "state vlan 5: 0", "state vlan 7: 7"));
}

TEST_F(ObjectStateTest, OneThatIsNotValidEndsTheConnection) {
  Tell("\x0A\x02\x18\x64");
  EXPECT_TRUE(server_.AwaitClosed());
  EXPECT_EQ(log_.AwaitStart("HAL server closed, its"),
            "HAL server closed, its object states do not decode");
}

TEST_F(SocketHalTest, RefusesAPathThatIsTooLong) {
  SocketHalOptions options;
  options.path = std::string(200, 'x');
  EXPECT_THROW(SocketHal{options}, boost::system::system_error);
}

class ReinstallTest : public SocketHalTest {
 protected:
  /// Reinstalls VLAN 1; the server then claims to hold `count` VLANs, with the digest that
  /// `function` gives for this one.
  void Reinstall(std::uint64_t count, EntryHashFunction function = EntryHashFunction::kXxh3) {
    hal_->BeginReinstall();
    InstallVlan(hal_.get(), 1);
    hal_->EndReinstall();
    EXPECT_EQ(server_.Next().type, FrameType::kBeginReinstall);
    server_.Answer(server_.Next());
    const FakeServer::Frame end = server_.Next();
    EXPECT_EQ(end.type, FrameType::kEndReinstall);
    wire::TableSummary summary;
    summary.set_removed(3);
    wire::KindSummary* const vlans = summary.add_kinds();
    vlans->set_kind("vlan");
    vlans->set_count(count);
    vlans->set_digest(EntryHash(1, Vlan(1).SerializeAsString(), function));
    server_.SendFrame(FrameType::kInSync, end.sequence, summary.SerializeAsString());
  }
};

TEST_F(ReinstallTest, ReportsWhenItIsInSync) {
  StartConnected(Options());
  Reinstall(1);
  EXPECT_THAT(log_.AwaitStart("in sync"),
              MatchesRegex("in sync after [0-9]+ ms: vrf 0, vlan 1, host 0, ecmp 0, mpls 0 "
                           "\\(3 removed\\)"));
  EXPECT_THAT(reported_.events(), ElementsAre("found", "InstallVlan 1: 0"));
}

TEST_F(ReinstallTest, UsesTheHashFunctionThatTheServerKnows) {
  struct Server {
    std::uint32_t minor_version;
    EntryHashFunction function;
  };
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  std::size_t events = 0;
  for (const auto& [minor_version, function] :
       {Server{0, EntryHashFunction::kFnv1a}, Server{3, EntryHashFunction::kFnv1a},
        Server{4, EntryHashFunction::kXxh3}, Server{5, EntryHashFunction::kXxh3},
        Server{1, EntryHashFunction::kFnv1a}}) {
    SCOPED_TRACE(minor_version);
    server_.Accept();
    server_.Send(HelloFrame(kProtocolVersion, kDefaultMaxPayload, minor_version));
    EXPECT_EQ(reported_.Await(++events).back(), "found");
    Reinstall(1, function);
    EXPECT_EQ(reported_.Await(events += 2).back(), "in sync");
    server_.Close();
    EXPECT_EQ(reported_.Await(++events).back(), "lost");
  }
}

TEST_F(ReinstallTest, NoticesADigestByAnotherHashFunction) {
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  server_.Accept();
  server_.Send(HelloFrame(kProtocolVersion, kDefaultMaxPayload, 3));
  reported_.Await(1);
  Reinstall(1, EntryHashFunction::kXxh3);
  EXPECT_EQ(log_.AwaitStart("NOT in sync"), "NOT in sync: vlan 1 with other content; reinstalling");
}

// The end of a reinstall that has not begun: the server answers it with its digests.
TEST_F(ReinstallTest, AsksForDigestsOutsideOfAReinstallOnly) {
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  hal_->AskForDigests();
  server_.AcceptAndGreet();
  reported_.Await(1);
  hal_->BeginReinstall();
  hal_->AskForDigests();
  hal_->EndReinstall();
  hal_->AskForDigests();
  EXPECT_EQ(server_.Next().type, FrameType::kBeginReinstall);
  const FakeServer::Frame end = server_.Next();
  server_.SendFrame(FrameType::kInSync, end.sequence, {});
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "in sync"));

  hal_->AskForDigests();
  const FakeServer::Frame ask = server_.Next();
  EXPECT_EQ(ask.type, FrameType::kEndReinstall);
  // Two VLANs with the sum 3.
  server_.SendFrame(FrameType::kInSync, ask.sequence,
                    {"\x0A\x11\x0A\x04vlan\x10\x02\x19\x03\0\0\0\0\0\0\0", 19});
  EXPECT_EQ(reported_.Await(3).back(), "digests vlan 2 3");
}

TEST_F(ReinstallTest, BeginsAndEndsEvenIfNothingElseIsSent) {
  SocketHalOptions options = Options();
  options.heartbeat = std::chrono::hours(1);
  StartConnected(options);
  // By then, the client's thread is nearly always asleep.
  std::this_thread::sleep_for(milliseconds(20));
  hal_->BeginReinstall();
  EXPECT_EQ(server_.Next().type, FrameType::kBeginReinstall);
  std::this_thread::sleep_for(milliseconds(20));
  hal_->EndReinstall();
  EXPECT_EQ(server_.Next().type, FrameType::kEndReinstall);
}

TEST_F(ReinstallTest, IsRepeatedThreeTimesWhenItIsNot) {
  StartConnected(Options());
  for (std::size_t i = 0; i < 3; ++i) {
    Reinstall(2);
    EXPECT_EQ(reported_.Await(2 * i + 3).back(), "found");
  }
  Reinstall(2);
  EXPECT_EQ(log_.AwaitStart("NOT in sync: vlan 1 here, 2 there; giving"),
            "NOT in sync: vlan 1 here, 2 there; giving up");
  EXPECT_THAT(log_.entries(),
              testing::Contains("NOT in sync: vlan 1 here, 2 there; reinstalling").Times(3));
  Settle(5);
  EXPECT_EQ(hal_->counters().servers_found, 4U);
}

TEST_F(ReinstallTest, ItsEndIsReportedOnce) {
  hal_ = std::make_unique<SocketHal>(Options());
  hal_->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  Reinstall(1);
  EXPECT_THAT(reported_.Await(3), ElementsAre("found", "InstallVlan 1: 0", "in sync"));
  for (std::size_t i = 0; i < 3; ++i) {
    Reinstall(2);
    EXPECT_EQ(reported_.Await(2 * i + 5).back(), "found");
  }
  Reinstall(2);
  EXPECT_EQ(reported_.Await(11).back(), "not in sync");
}

TEST_F(ReinstallTest, IsRepeatedAgainWithTheNextServer) {
  StartConnected(Options());
  for (std::size_t i = 0; i < 3; ++i) {
    Reinstall(2);
    EXPECT_EQ(reported_.Await(2 * i + 3).back(), "found");
  }
  server_.Close();
  server_.AcceptAndGreet();
  EXPECT_EQ(reported_.Await(8).back(), "found");
  Reinstall(2);
  EXPECT_THAT(reported_.Await(10), testing::SizeIs(10)) << "the result, and found once more";
  EXPECT_EQ(reported_.events().back(), "found");
  EXPECT_THAT(log_.entries(),
              testing::Contains("NOT in sync: vlan 1 here, 2 there; reinstalling").Times(4));
}

TEST_F(ReinstallTest, IsRepeatedThreeTimesWhenItsEndIsNotAnswered) {
  SocketHalOptions options = Options();
  options.deadline = milliseconds(30);
  options.heartbeat = milliseconds(5);
  options.heartbeats_missed = 1000;
  hal_ = std::make_unique<SocketHal>(options);
  hal_->Start(reported_.AllReports());
  server_.AcceptAndGreet();
  reported_.Await(1);
  const std::string reason =
      "NOT in sync: the server has not answered the end of the reinstall for 30 ms; ";
  for (std::size_t i = 1; i <= 4; ++i) {
    hal_->BeginReinstall();
    hal_->EndReinstall();
    EXPECT_EQ(reported_.Await(1 + i).back(), i < 4 ? "found" : "not in sync");
  }
  EXPECT_THAT(log_.entries(), testing::Contains(reason + "reinstalling").Times(3));
  EXPECT_THAT(log_.entries(), testing::Contains(reason + "giving up").Times(1));
  // An end without a begin says nothing about the tables.
  hal_->EndReinstall();
  EXPECT_TRUE(Eventually([this] { return hal_->counters().unfinished == 0; }));
  EXPECT_EQ(reported_.events().size(), 5U);
}

TEST_F(ReinstallTest, DoesNotMissAVlanThatWasRefused) {
  StartConnected(Options());
  hal_->BeginReinstall();
  InstallVlan(hal_.get(), 1);
  hal_->EndReinstall();
  server_.Next();
  server_.Answer(server_.Next(), static_cast<std::uint32_t>(kHalTableFull));
  server_.SendFrame(FrameType::kInSync, server_.Next().sequence, "");
  EXPECT_THAT(log_.AwaitStart("in sync"), StartsWith("in sync after "));
}

TEST_F(ReinstallTest, MissesAVrfThatWasRefused) {
  SocketHal* const hal = StartConnected(Options());
  hal->BeginReinstall();
  InstallVrf(hal, 1);
  hal->EndReinstall();
  server_.Next();
  server_.Answer(server_.Next(), 5);
  server_.SendFrame(FrameType::kInSync, server_.Next().sequence, "");
  EXPECT_EQ(log_.AwaitStart("NOT in sync"), "NOT in sync: vrf 1 here, 0 there; reinstalling");
  EXPECT_THAT(reported_.Await(2), ElementsAre("found", "found"));
}

TEST_F(ReinstallTest, IsForgottenWithItsServer) {
  SocketHal* const hal = StartConnected(Options());
  hal->BeginReinstall();
  server_.Next();
  server_.Close();
  server_.AcceptAndGreet();
  reported_.Await(2);
  hal->EndReinstall();
  const FakeServer::Frame end = server_.Next();
  server_.SendFrame(FrameType::kInSync, end.sequence, "");
  server_.SendFrame(FrameType::kInSync, end.sequence, "");
  Settle(5);
  EXPECT_THAT(log_.entries(), testing::Not(testing::Contains(testing::HasSubstr("in sync"))));
  EXPECT_EQ(hal->counters().late_results, 1U) << "the second answer to the end";
}

}  // namespace
}  // namespace reference
