/// The client's state: requests in flight, kept VRFs, reinstalls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/socket_client/client_queue.h"
#include "reference/socket_client/handler_memory.h"
#include "reference/socket_client/kept_vrfs.h"
#include "reference/socket_client/outstanding_requests.h"
#include "reference/socket_client/reinstall_check.h"

namespace reference {
namespace {

using testing::ElementsAre;

HalRequest InstallVlan(std::uint32_t id) { return {HalOperation::kInstallVlan, id, 0, {}}; }

/// Adds a request for a VLAN and returns its sequence number.
std::uint32_t Add(OutstandingRequests* requests, std::uint32_t id) {
  return requests->Add(InstallVlan(id), false, {}).sequence;
}

/// Delivers an answer. Returns its request; nothing if there is none.
std::optional<OutstandingRequest> Answer(ConnectionQueue* connection, std::uint32_t sequence) {
  std::vector<ConnectionQueue::Answered> answered;
  connection->TakeAnswered({{sequence, {}}}, {}, &answered);
  if (answered.empty()) return std::nullopt;
  connection->CountDelivery();
  return answered[0].request;
}

TEST(OutstandingRequestsTest, ASequenceInUseIsNeverAssignedAgain) {
  OutstandingRequests requests(100, 0xFFFFFE);
  std::set<std::uint32_t> sequences;
  while (!requests.full()) sequences.insert(Add(&requests, 1));
  EXPECT_EQ(sequences.size(), 100U);
  EXPECT_TRUE(sequences.count(0xFFFFFE) == 1 && sequences.count(0xFFFFFF) == 1);
  EXPECT_TRUE(sequences.count(0) == 1 && sequences.count(97) == 1);
}

TEST(OutstandingRequestsTest, AreTakenOnceInAnyOrder) {
  OutstandingRequests requests(3, 0xFFFFFF);
  EXPECT_EQ(Add(&requests, 1), 0xFFFFFFU);
  EXPECT_EQ(Add(&requests, 2), 0U);
  EXPECT_EQ(Add(&requests, 3), 1U);
  EXPECT_FALSE(requests.Take(2));
  EXPECT_FALSE(requests.Take(0xFFFFFE));
  EXPECT_EQ(requests.Take(0)->id, 2U);
  EXPECT_FALSE(requests.Take(0));
  EXPECT_TRUE(requests.full()) << "the place of the oldest request is in use";
  EXPECT_EQ(requests.Take(0xFFFFFF)->id, 1U);
  EXPECT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests.Take(1)->id, 3U);
  EXPECT_EQ(requests.size(), 0U);
  EXPECT_FALSE(requests.Take(1));
}

TEST(OutstandingRequestsTest, TheNextSequenceIsUnknownAlthoughItsPlaceIsInUse) {
  OutstandingRequests requests(4, 0);
  for (std::uint32_t id = 1; id <= 4; ++id) Add(&requests, id);
  EXPECT_FALSE(requests.Take(4)) << "the place of the oldest request";
  EXPECT_EQ(requests.size(), 4U);
}

TEST(OutstandingRequestsTest, ExpireFromTheOldestAndReleaseTheirPayload) {
  OutstandingRequests requests(3, 0);
  requests.Add({HalOperation::kInstallVrf, 1, 0, "payload"}, true, {});
  Add(&requests, 2);
  EXPECT_EQ(requests.OldestUnexpired()->id, 1U);
  EXPECT_EQ(requests.payload_bytes(), 7U);
  const HalRequest expired = requests.ExpireOldest();
  EXPECT_EQ(expired.operation, HalOperation::kInstallVrf);
  EXPECT_EQ(expired.id, 1U);
  EXPECT_EQ(expired.payload, "");
  EXPECT_EQ(requests.payload_bytes(), 0U);
  EXPECT_EQ(requests.OldestUnexpired()->id, 2U);
  requests.ExpireOldest();
  EXPECT_EQ(requests.OldestUnexpired(), nullptr);
  EXPECT_EQ(requests.size(), 2U) << "the server may still answer";
  const OutstandingRequest* const late = requests.Take(0);
  EXPECT_TRUE(late->expired);
  EXPECT_EQ(late->id, 1U);
  EXPECT_EQ(requests.size(), 1U);
  EXPECT_TRUE(requests.TakeAll().empty()) << "the outcome of the other was delivered";
}

TEST(OutstandingRequestsTest, KeepAPayloadUntilTheyAreTaken) {
  OutstandingRequests requests(3, 0);
  requests.Add({HalOperation::kInstallVrf, 1, 0, "first"}, true, {});
  requests.Add({HalOperation::kInstallVrf, 2, 5, "second", 6}, true, {});
  requests.Add({HalOperation::kInstallVlan, 3, 0, "third"}, false, {});
  EXPECT_EQ(requests.payload_bytes(), 11U) << "only VRF requests may have to be sent again";
  EXPECT_EQ(requests.Take(0)->id, 1U);
  EXPECT_EQ(requests.payload_bytes(), 6U);
  const std::vector<HalRequest> left = requests.TakeAll();
  EXPECT_EQ(requests.payload_bytes(), 0U);
  ASSERT_EQ(left.size(), 2U);
  EXPECT_EQ(left[0].operation, HalOperation::kInstallVrf);
  EXPECT_EQ(left[0].id, 2U);
  EXPECT_EQ(left[0].secondary_id, 5U);
  EXPECT_EQ(left[0].number, 6U);
  EXPECT_EQ(left[0].payload, "second");
  EXPECT_EQ(left[1].id, 3U);
  EXPECT_EQ(left[1].payload, "");
}

TEST(OutstandingRequestsTest, APlaceKeepsNothingOfItsLastRequest) {
  OutstandingRequests requests(1, 0);
  OutstandingRequest& first =
      *requests.Add({HalOperation::kInstallVrf, 1, 2, {}, 3}, false, {}).outstanding;
  first.hash = 4;
  first.reinstall = 5;
  requests.MarkWritten(1, std::chrono::steady_clock::time_point(std::chrono::seconds(6)));
  requests.OldestUnexpired();
  requests.ExpireOldest();
  const std::chrono::steady_clock::time_point time(std::chrono::seconds(7));
  requests.Add({HalOperation::kInstallVlan, 8, 9, {}, 10}, false, time);
  const OutstandingRequest& second = *requests.Take(1);
  EXPECT_EQ(second.operation, HalOperation::kInstallVlan);
  EXPECT_EQ(second.id, 8U);
  EXPECT_EQ(second.secondary_id, 9U);
  EXPECT_EQ(second.number, 10U);
  EXPECT_EQ(second.submitted, time);
  EXPECT_FALSE(second.written);
  EXPECT_EQ(second.hash, 0U);
  EXPECT_EQ(second.reinstall, 0U);
  EXPECT_FALSE(second.expired);
}

TEST(OutstandingRequestsTest, AnAnswerForgetsTheExpiredOnesBeforeIt) {
  OutstandingRequests requests(3, 0);
  for (std::uint32_t id = 1; id <= 3; ++id) Add(&requests, id);
  EXPECT_EQ(requests.OldestUnexpired()->id, 1U);
  requests.ExpireOldest();
  EXPECT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests.Take(1)->id, 2U);
  EXPECT_EQ(requests.size(), 1U);
  EXPECT_FALSE(requests.Take(0));
}

TEST(OutstandingRequestsTest, ExpiredOnesMakeRoomEvenIfNothingIsAnswered) {
  OutstandingRequests requests(3, 0);
  for (std::uint32_t id = 1; id <= 3; ++id) Add(&requests, id);
  requests.Take(1);
  EXPECT_TRUE(requests.full());
  requests.OldestUnexpired();
  requests.ExpireOldest();
  EXPECT_EQ(requests.OldestUnexpired()->id, 3U);
  EXPECT_EQ(requests.places(), 1U);
  EXPECT_EQ(requests.size(), 2U);
  EXPECT_EQ(Add(&requests, 4), 3U);
  EXPECT_EQ(requests.size(), 2U);
  EXPECT_FALSE(requests.Take(0)) << "another request has its place";
  EXPECT_EQ(Add(&requests, 5), 4U);
  EXPECT_TRUE(requests.full());
  EXPECT_EQ(requests.Take(2)->id, 3U);
  EXPECT_EQ(requests.Take(3)->id, 4U);
  EXPECT_EQ(requests.Take(4)->id, 5U);
  EXPECT_EQ(requests.size(), 0U);
  EXPECT_EQ(requests.places(), 0U);
}

TEST(OutstandingRequestsTest, AreMarkedAsWritten) {
  const std::chrono::steady_clock::time_point time(std::chrono::seconds(5));
  OutstandingRequests requests(3, 0);
  Add(&requests, 1);
  Add(&requests, 2);
  const std::uint64_t two = requests.added();
  Add(&requests, 3);
  requests.MarkWritten(two, time);
  EXPECT_EQ(requests.Take(0)->written, time);
  EXPECT_EQ(requests.Take(1)->written, time);
  EXPECT_FALSE(requests.Take(2)->written);
}

TEST(OutstandingRequestsTest, AreAllTakenInOrderUnlessTheyHaveExpired) {
  OutstandingRequests requests(4, 0);
  for (const std::uint32_t id : {9U, 1U, 2U, 3U}) Add(&requests, id);
  requests.Take(2);
  requests.OldestUnexpired();
  requests.ExpireOldest();
  std::vector<std::uint32_t> ids;
  for (const HalRequest& each : requests.TakeAll()) ids.push_back(each.id);
  EXPECT_THAT(ids, ElementsAre(1, 3));
  EXPECT_TRUE(requests.TakeAll().empty());
  EXPECT_EQ(requests.size(), 0U);
  EXPECT_EQ(requests.OldestUnexpired(), nullptr);
  EXPECT_EQ(Add(&requests, 4), 4U) << "numbers go on";
}

TEST(ClientQueueTest, ARequestAnsweredDuringItsWriteIsNotQueued) {
  SocketHalOptions options;
  options.queue_entries = 2;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  for (const std::uint32_t id : {1U, 2U}) host.Submit(InstallVlan(id));
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  EXPECT_EQ(host.counters().queued, 2U);
  EXPECT_TRUE(Answer(&connection, 0));
  EXPECT_EQ(host.counters().queued, 1U);
  EXPECT_TRUE(Answer(&connection, 1));
  EXPECT_EQ(host.counters().queued, 0U);
  host.Submit(InstallVlan(3));
  EXPECT_EQ(host.counters().queued, 1U);
  EXPECT_FALSE(connection.TakeFrames(&frames)) << "the first write is not over";
  connection.ConfirmWritten();
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_EQ(host.counters().queued, 0U);
  EXPECT_FALSE(connection.TakeFrames(&frames)) << "nothing waits";
  EXPECT_EQ(host.counters().queued_peak, 2U);
}

TEST(ClientQueueTest, AnAnsweredRequestIsUnfinishedUntilItsDelivery) {
  ClientQueue queue{SocketHalOptions()};
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  for (const std::uint32_t id : {1U, 2U}) host.Submit(InstallVlan(id));
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  std::vector<ConnectionQueue::Answered> answered;
  connection.TakeAnswered({{0, {{}, 1}}, {1, {{}, 2}}}, {}, &answered);
  EXPECT_EQ(answered.size(), 2U);
  EXPECT_EQ(host.counters().unfinished, 2U);
  connection.CountDelivery();
  EXPECT_EQ(host.counters().unfinished, 1U);
  EXPECT_NE(host.Submit(InstallVlan(3)).next, HostQueue::Next::kWriteNow) << "others may follow";
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  Answer(&connection, 2);
  EXPECT_EQ(host.counters().unfinished, 0U);
  EXPECT_EQ(host.Submit(InstallVlan(4)).next, HostQueue::Next::kWriteNow);
}

TEST(ClientQueueTest, AnswersAfterOneThatIsNotValidAreNotTaken) {
  ClientQueue queue{SocketHalOptions()};
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  for (const std::uint32_t id : {1U, 2U, 3U}) host.Submit(InstallVlan(id));
  const std::vector<ConnectionQueue::Answer> answers = {
      {9, {}}, {0, {{}, 1}}, {1, {kHalDeadline, 2}}, {2, {{}, 3}}};
  std::vector<ConnectionQueue::Answered> answered;
  connection.TakeAnswered(answers, {}, &answered);
  ASSERT_EQ(answered.size(), 2U);
  EXPECT_TRUE(answered[0].valid());
  EXPECT_EQ(answered[0].request.id, 1U);
  EXPECT_FALSE(answered[1].valid());
  EXPECT_EQ(answered[1].request.id, 2U);
  EXPECT_EQ(answered[1].result, &answers[2].result);
  EXPECT_EQ(host.counters().late_results, 1U);
  connection.ServerLost();
  std::vector<ConnectionQueue::Ended> ended;
  connection.TakeEnded(&ended);
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].request.id, 3U);
}

TEST(ClientQueueTest, OneWakeUpIsOnItsWayAtATime) {
  ClientQueue queue{SocketHalOptions()};
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  EXPECT_FALSE(host.SubmitMark(FrameType::kBeginReinstall)) << "there is no server yet";
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  EXPECT_TRUE(host.SubmitMark(FrameType::kEndReinstall));
  EXPECT_FALSE(host.SubmitMark(FrameType::kBeginReinstall));
  // The thread wakes up for another reason before the wake-up arrives, and writes.
  connection.SuppressWakeUps();
  connection.AllowWakeUps();
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_FALSE(host.SubmitMark(FrameType::kEndReinstall)) << "the wake-up is still to come";
  connection.TakeWakeUp();
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_TRUE(host.SubmitMark(FrameType::kBeginReinstall));
  EXPECT_EQ(host.statistics().wake_ups, 2U);
}

TEST(ClientQueueTest, CountsAcceptedAndRefusedRequests) {
  SocketHalOptions options;
  options.queue_entries = 1;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  queue.connection()->ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  EXPECT_EQ(host.Submit(InstallVlan(1)).code, kHalSuccess);
  EXPECT_EQ(host.Submit(InstallVlan(2)).code, kHalQueueFull);
  EXPECT_EQ(host.counters().requests, 2U);
}

TEST(ClientQueueTest, VrfsThatAreNotAnsweredAreBoundedInBytes) {
  SocketHalOptions options;
  options.queue_bytes = 100;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  const auto submit = [&](std::uint32_t id, std::size_t size) {
    const HalRequest request = {HalOperation::kInstallVrf, id, 0, std::string(size, 'v')};
    const HalReturnCode code = host.Submit(request).code;
    // Nothing waits to be written.
    std::string frames;
    if (connection.TakeFrames(&frames)) connection.ConfirmWritten();
    return code;
  };
  EXPECT_EQ(submit(1, 60), kHalSuccess);
  EXPECT_EQ(submit(2, 41), kHalQueueFull);
  EXPECT_EQ(submit(3, 40), kHalSuccess);
  EXPECT_EQ(submit(4, 1), kHalQueueFull);
  EXPECT_TRUE(Answer(&connection, 0));
  EXPECT_EQ(submit(4, 60), kHalSuccess);
}

TEST(ClientQueueTest, AnOverdueVrfEndsAndNeitherTakesRoomNorGoesToTheNextServer) {
  SocketHalOptions options;
  options.deadline = std::chrono::milliseconds(100);
  options.queue_bytes = 100;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  const ConnectionQueue::Clock::time_point begin = ConnectionQueue::Clock::now();
  const auto submit = [&](std::uint32_t id) {
    const HalReturnCode code =
        host.Submit({HalOperation::kInstallVrf, id, 0, std::string(60, 'v')}).code;
    std::string frames;
    if (connection.TakeFrames(&frames)) connection.ConfirmWritten();
    return code;
  };
  EXPECT_EQ(submit(7), kHalSuccess);
  EXPECT_TRUE(connection.AllowWakeUps()) << "there is a deadline to watch";
  const auto due = connection.EndOverdue(begin);
  ASSERT_TRUE(due);
  EXPECT_EQ(submit(8), kHalQueueFull);
  std::vector<ConnectionQueue::Ended> ended;
  connection.TakeEnded(&ended);
  EXPECT_EQ(ended.size(), 1U) << "the refused request";
  EXPECT_EQ(connection.EndOverdue(*due), std::nullopt);
  connection.TakeEnded(&ended);
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].request.operation, HalOperation::kInstallVrf);
  EXPECT_EQ(ended[0].request.id, 7U);
  EXPECT_EQ(ended[0].code, kHalDeadline);
  EXPECT_EQ(submit(8), kHalSuccess);
  EXPECT_TRUE(Answer(&connection, 0)->expired);
  EXPECT_EQ(submit(9), kHalQueueFull) << "its payload must be counted only once";
  connection.TakeEnded(&ended);

  connection.ServerLost();
  EXPECT_EQ(host.counters().queued, 1U) << "the request that has not ended";
}

TEST(ClientQueueTest, AReinstallIsOverdueWhenItsEndIsNotAnswered) {
  SocketHalOptions options;
  options.deadline = std::chrono::hours(1);
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  const auto later = [&] { return ConnectionQueue::Clock::now() + options.deadline; };
  host.SubmitMark(FrameType::kBeginReinstall);
  EXPECT_FALSE(connection.TakeOverdueReinstall(later())) << "it has not ended";
  host.SubmitMark(FrameType::kEndReinstall);
  EXPECT_FALSE(connection.TakeOverdueReinstall(ConnectionQueue::Clock::now()));
  const auto overdue = connection.TakeOverdueReinstall(later());
  ASSERT_TRUE(overdue);
  EXPECT_EQ(overdue->number, 1U);
  EXPECT_FALSE(connection.TakeOverdueReinstall(later()));
  EXPECT_FALSE(connection.TakeEndedReinstall(overdue->sequence));
  EXPECT_EQ(host.counters().late_results, 1U) << "the late answer";
}

TEST(ClientQueueTest, AWriteWakesAWaiterForRoom) {
  SocketHalOptions options;
  options.queue_bytes = 100;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(60, EntryHashFunction::kXxh3);
  const auto submit = [&] {
    return host.Submit({HalOperation::kInstallVlan, 1, 0, std::string(50, 'v')});
  };
  EXPECT_EQ(submit().next, HostQueue::Next::kWriteNow);
  // Rules out other reasons.
  connection.EndOverdue(ConnectionQueue::Clock::now());
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  EXPECT_FALSE(host.HasRoom()) << "during the write";
  EXPECT_FALSE(connection.TakeRoomReport());
  connection.ConfirmWritten();
  EXPECT_TRUE(host.RequestWake());
  EXPECT_FALSE(connection.AllowWakeUps());
  EXPECT_TRUE(connection.TakeRoomReport());
  EXPECT_FALSE(host.RequestWake()) << "nobody waits any more";
}

TEST(ClientQueueTest, EverythingOverdueExpiresTogether) {
  SocketHalOptions options;
  options.deadline = std::chrono::milliseconds(100);
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  for (const std::uint32_t id : {1U, 2U, 3U}) host.Submit(InstallVlan(id));
  const auto after_submission = ConnectionQueue::Clock::now();
  EXPECT_EQ(connection.EndOverdue(after_submission + options.deadline), std::nullopt);
  std::vector<ConnectionQueue::Ended> ended;
  connection.TakeEnded(&ended);
  std::vector<std::uint32_t> ids;
  for (const ConnectionQueue::Ended& each : ended) {
    EXPECT_EQ(each.code, kHalDeadline);
    ids.push_back(each.request.id);
  }
  EXPECT_THAT(ids, ElementsAre(1, 2, 3));
}

TEST(ClientQueueTest, ThereIsNoRoomWhileTooManyEndedRequestsWait) {
  SocketHalOptions options;
  options.queue_entries = 2;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerLost();
  EXPECT_EQ(host.Submit(InstallVlan(1)).code, kHalNoServer);
  EXPECT_TRUE(host.HasRoom());
  EXPECT_EQ(host.Submit(InstallVlan(2)).code, kHalNoServer);
  EXPECT_FALSE(host.HasRoom());
  EXPECT_FALSE(connection.TakeRoomReport()) << "nothing was reported";
  std::vector<ConnectionQueue::Ended> ended;
  connection.TakeEnded(&ended);
  EXPECT_EQ(ended.size(), 2U);
  EXPECT_TRUE(connection.TakeRoomReport());
}

TEST(ClientQueueTest, ReportsRoomOnceHalfOfTheEntriesAreFree) {
  SocketHalOptions options;
  options.queue_entries = 4;
  ClientQueue queue(options);
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  for (std::uint32_t id = 1; id <= 4; ++id) host.Submit(InstallVlan(id));
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_FALSE(host.HasRoom());
  ASSERT_TRUE(Answer(&connection, 0));
  EXPECT_FALSE(connection.TakeRoomReport());
  ASSERT_TRUE(Answer(&connection, 1));
  EXPECT_TRUE(connection.TakeRoomReport());
}

TEST(ClientQueueTest, NothingOfALostServerGoesToTheNext) {
  ClientQueue queue{SocketHalOptions()};
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  queue.host()->Submit(InstallVlan(1));
  connection.AddHeartbeat();
  connection.ServerLost();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  std::string frames;
  EXPECT_FALSE(connection.TakeFrames(&frames));
}

TEST(ClientQueueTest, AHeartbeatAloneIsNoWriteOfRequests) {
  ClientQueue queue{SocketHalOptions()};
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  connection.ServerFound(kDefaultMaxPayload, EntryHashFunction::kXxh3);
  std::string frames;
  connection.AddHeartbeat();
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_EQ(host.statistics().writes, 0U);
  connection.AddHeartbeat();
  host.Submit(InstallVlan(1));
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_EQ(host.statistics().writes, 1U);
}

TEST(KeptVrfsTest, TheNewestOfEachInOrder) {
  KeptVrfs kept;
  kept.Keep({HalOperation::kInstallVrf, 1, 0, "aa"});
  kept.Keep({HalOperation::kInstallVrf, 2, 0, "bbb"});
  kept.Keep({HalOperation::kDestroyVrf, 1, 0, "c"});
  EXPECT_EQ(kept.size(), 2U);
  EXPECT_EQ(kept.bytes(), 4U);
  std::vector<std::string> released;
  kept.Release([&released](const HalRequest& request) {
    released.push_back(std::string(OperationName(request.operation)) + ' ' + request.payload);
  });
  EXPECT_THAT(released, ElementsAre("install-vrf bbb", "destroy-vrf c"));
  EXPECT_EQ(kept.size(), 0U);
  EXPECT_EQ(kept.bytes(), 0U);
  EXPECT_FALSE(kept.Contains(1));
}

/// A summary of the tables; those not named in `tables` are empty.
wire::TableSummary Summary(const HalTables& tables) {
  wire::TableSummary summary;
  for (std::size_t i = 0; i < kHalKinds; ++i) {
    const auto kind = static_cast<HalKind>(i);
    wire::KindSummary* const entry = summary.add_kinds();
    entry->set_kind(std::string(HalKindName(kind)));
    entry->set_count(tables.digest(kind).count);
    entry->set_digest(tables.digest(kind).sum);
  }
  return summary;
}

HalRequest Vrf(HalOperation operation, std::uint32_t id, std::uint32_t encoded_size = 2) {
  // Field 1, a number; in VRF messages, the id.
  std::string payload = {'\x08', static_cast<char>(id)};
  while (payload.size() < encoded_size) payload += payload.substr(0, 2);
  return {operation, id, 0, payload};
}

void Acknowledge(ReinstallCheck* check, std::uint32_t reinstall, const HalRequest& request) {
  check->Acknowledge(reinstall, request, EntryHash(request.id, request.payload));
}

TEST(ReinstallCheckTest, AgreesWithTheTables) {
  HalTables tables(10);
  ReinstallCheck check;
  for (const auto& request :
       {Vrf(HalOperation::kInstallVrf, 1), Vrf(HalOperation::kInstallVrf, 2),
        Vrf(HalOperation::kInstallVrf, 2, 4), Vrf(HalOperation::kDestroyVrf, 1)}) {
    ASSERT_EQ(tables.Apply(request), kHalSuccess);
    Acknowledge(&check, 1, request);
  }
  EXPECT_EQ(check.End(1, Summary(tables)), std::nullopt);
}

TEST(ReinstallCheckTest, NamesWhatDiffers) {
  HalTables tables(10);
  ASSERT_EQ(tables.Apply(Vrf(HalOperation::kInstallVrf, 1)), kHalSuccess);
  ReinstallCheck check;
  Acknowledge(&check, 1, Vrf(HalOperation::kInstallVrf, 1, 4));
  check.Acknowledge(1, {HalOperation::kInstallHost, 7, 0, {}}, 99);
  EXPECT_EQ(check.End(1, Summary(tables)), "vrf 1 with other content; host 1 here, 0 there");
}

TEST(ReinstallCheckTest, AReinstallStartsOver) {
  HalTables tables(10);
  ReinstallCheck check;
  Acknowledge(&check, 1, Vrf(HalOperation::kInstallVrf, 1));
  EXPECT_EQ(check.End(2, Summary(tables)), std::nullopt) << "nothing of the second one";
  Acknowledge(&check, 3, Vrf(HalOperation::kInstallVrf, 1));
  Acknowledge(&check, 4, Vrf(HalOperation::kInstallVrf, 2));
  Acknowledge(&check, 3, Vrf(HalOperation::kInstallVrf, 3));
  ASSERT_EQ(tables.Apply(Vrf(HalOperation::kInstallVrf, 2)), kHalSuccess);
  EXPECT_EQ(check.End(4, Summary(tables)), std::nullopt);
}

TEST(ReinstallCheckTest, TextOfASummary) {
  HalTables tables(10);
  ASSERT_EQ(tables.Apply(Vrf(HalOperation::kInstallVrf, 1)), kHalSuccess);
  wire::TableSummary summary = Summary(tables);
  summary.set_removed(3);
  EXPECT_EQ(SummaryText(summary), "vrf 1, vlan 0, host 0, ecmp 0, mpls 0 (3 removed)");
}

TEST(HandlerMemoryTest, HoldsOneHandlerAtATime) {
  HandlerMemory memory;
  void* const first = memory.Allocate(64);
  void* const second = memory.Allocate(64);
  EXPECT_NE(second, first);
  memory.Free(first);
  EXPECT_EQ(memory.Allocate(64), first);
  memory.Free(second);
  memory.Free(first);
}

TEST(HandlerMemoryTest, AllocatesALargeHandlerOnTheHeap) {
  HandlerMemory memory;
  void* const small = memory.Allocate(1);
  memory.Free(small);
  void* const large = memory.Allocate(4096);
  EXPECT_NE(large, small);
  EXPECT_EQ(memory.Allocate(1), small);
  memory.Free(large);
}

}  // namespace
}  // namespace reference
