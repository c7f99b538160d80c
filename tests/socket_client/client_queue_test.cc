/// The queue between the host's thread and the connection's, tested without threads.

#include "reference/socket_client/client_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "reference/socket_client/socket_hal.h"
#include "reference/wire/frame.h"

namespace reference {
namespace {

using testing::ElementsAre;
using Clock = ConnectionQueue::Clock;
using Next = HostQueue::Next;

constexpr std::size_t kAnyPayload = 1'000'000;
// Ten such frames fill the queue.
constexpr std::size_t kPayloadOfATenth = 92;

class ClientQueueTest : public testing::Test {
 protected:
  static SocketHalOptions Options() {
    SocketHalOptions options;
    options.queue_entries = 20;
    options.queue_bytes = 1'000;
    return options;
  }

  static HalRequest Request(HalOperation operation, std::uint32_t id, std::size_t size = 10) {
    HalRequest request;
    request.operation = operation;
    request.id = id;
    request.payload.assign(size, 'x');
    return request;
  }

  HostQueue::Submission InstallVlan(std::uint32_t id, std::size_t size = 10) {
    return host_->Submit(Request(HalOperation::kInstallVlan, id, size));
  }

  HalReturnCode InstallVrf(std::uint32_t id, std::size_t size) {
    return host_->Submit(Request(HalOperation::kInstallVrf, id, size)).code;
  }

  // Queues requests of that size while there is room. Returns how many were accepted; all must be.
  std::size_t Fill(std::size_t size) {
    std::size_t accepted = 0;
    while (host_->HasRoom() && accepted < 100) {
      const HalReturnCode code = InstallVlan(1, size).code;
      EXPECT_EQ(code, kHalSuccess);
      if (code != kHalSuccess) break;
      ++accepted;
    }
    return accepted;
  }

  // Writes everything that waits.
  void Write() {
    std::string frames;
    ASSERT_TRUE(connection_->TakeFrames(&frames));
    connection_->ConfirmWritten();
  }

  // Delivers an answer. Returns whether it belongs to a request.
  bool Answer(std::uint32_t sequence) {
    std::vector<ConnectionQueue::Answered> answered;
    connection_->TakeAnswered({{sequence, {}}}, Clock::now(), &answered);
    return !answered.empty();
  }

  // The codes of the requests that ended without an answer.
  std::vector<HalReturnCode> Ended() {
    std::vector<ConnectionQueue::Ended> ended;
    connection_->TakeEnded(&ended);
    std::vector<HalReturnCode> codes;
    codes.reserve(ended.size());
    for (const auto& one : ended) codes.push_back(one.code);
    return codes;
  }

  ClientQueue queue_{Options()};
  HostQueue* const host_ = queue_.host();
  ConnectionQueue* const connection_ = queue_.connection();
};

TEST_F(ClientQueueTest, TheHostWritesOnlyWhenNothingElseIsInFlight) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  EXPECT_EQ(InstallVlan(1).next, Next::kWriteNow);
  EXPECT_NE(InstallVlan(2).next, Next::kWriteNow);
  Write();
  EXPECT_NE(InstallVlan(3).next, Next::kWriteNow);
}

TEST(BurstTest, TheHostWritesWheneverEightKibibytesMoreWait) {
  ClientQueue queue{SocketHalOptions()};
  HostQueue& host = *queue.host();
  ConnectionQueue& connection = *queue.connection();
  // Sixteen such frames have 8 KiB.
  const HalRequest request = {HalOperation::kInstallVlan, 1, 0,
                              std::string(512 - kFrameHeaderSize, 'x')};
  // Which of 40 requests the host must write.
  const auto written = [&](bool writes) {
    std::vector<int> places;
    std::string frames;
    for (int place = 1; place <= 40; ++place) {
      if (host.Submit(request).next != Next::kWriteNow) continue;
      places.push_back(place);
      if (!writes) continue;
      EXPECT_TRUE(connection.TakeFrames(&frames));
      connection.ConfirmWritten();
    }
    return places;
  };
  EXPECT_THAT(written(false), ElementsAre()) << "there is no server yet";
  connection.ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  std::string frames;
  ASSERT_TRUE(connection.TakeFrames(&frames));
  EXPECT_THAT(written(false), ElementsAre()) << "the connection writes";
  connection.ConfirmWritten();
  ASSERT_TRUE(connection.TakeFrames(&frames));
  connection.ConfirmWritten();
  EXPECT_THAT(written(true), ElementsAre(16, 32));
  ASSERT_TRUE(connection.TakeFrames(&frames));
  EXPECT_EQ(frames.size(), 8U * 512);
  connection.ConfirmWritten();
  EXPECT_THAT(written(false), ElementsAre(16, 32)) << "the host may not write now";
}

TEST_F(ClientQueueTest, TheServersLimitHoldsWhenItIsFound) {
  EXPECT_EQ(InstallVlan(1, 100).code, kHalSuccess);
  EXPECT_EQ(InstallVlan(2, 101).code, kHalSuccess);
  connection_->ServerFound(100, EntryHashFunction::kXxh3);
  EXPECT_THAT(Ended(), ElementsAre(kHalTooLarge));
  EXPECT_EQ(host_->counters().queued, 1U);
  EXPECT_EQ(InstallVlan(3, 100).code, kHalSuccess);
  EXPECT_EQ(InstallVlan(4, 101).code, kHalTooLarge);
}

// An empty queue takes a frame of up to its own size.
TEST_F(ClientQueueTest, NoPayloadExceedsTheQueue) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  EXPECT_EQ(InstallVlan(1, 993).code, kHalTooLarge);
  EXPECT_EQ(InstallVlan(2, 992).code, kHalSuccess);
}

TEST_F(ClientQueueTest, MarksHaveSequencesOfTheirOwn) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  host_->SubmitMark(FrameType::kBeginReinstall);
  host_->SubmitMark(FrameType::kEndReinstall);
  std::string bytes;
  ASSERT_TRUE(connection_->TakeFrames(&bytes));
  FrameSplitter splitter(kAnyPayload);
  splitter.Feed(bytes);
  const auto begin = splitter.Next();
  ASSERT_TRUE(begin);
  const std::uint32_t sequence = begin->header.sequence;
  const auto end = splitter.Next();
  ASSERT_TRUE(end);
  EXPECT_EQ(end->header.sequence, sequence + 1);
}

// VRF requests that wait for the next server count as well as those in flight.
TEST_F(ClientQueueTest, VrfsTakeNoMoreThanTheQueuesBytes) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  EXPECT_EQ(InstallVrf(1, 400), kHalSuccess);
  Write();
  EXPECT_EQ(InstallVrf(2, 400), kHalSuccess);
  Write();
  EXPECT_EQ(InstallVrf(3, 400), kHalQueueFull);
  connection_->ServerLost();
  EXPECT_EQ(InstallVrf(4, 400), kHalQueueFull);
  EXPECT_EQ(InstallVrf(5, 100), kHalSuccess);
}

TEST_F(ClientQueueTest, HasRoomUntilNoRequestFits) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  EXPECT_EQ(Fill(kPayloadOfATenth), 10U);
  EXPECT_EQ(InstallVlan(2, kPayloadOfATenth).code, kHalQueueFull);
  Write();
  EXPECT_EQ(Fill(kPayloadOfATenth), 10U) << "after the write";
}

TEST_F(ClientQueueTest, HasRoomUntilNoRequestFitsBeforeThereIsAServer) {
  ASSERT_TRUE(host_->HasRoom());
  EXPECT_EQ(InstallVlan(1, 500).code, kHalSuccess);
  EXPECT_FALSE(host_->HasRoom());
  EXPECT_EQ(InstallVlan(2, 500).code, kHalQueueFull);
}

// The entries run out first.
TEST_F(ClientQueueTest, HasRoomUntilAllEntriesAreTaken) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  EXPECT_EQ(Fill(10), 20U);
  Write();
  EXPECT_FALSE(host_->HasRoom()) << "nothing was answered";
  ASSERT_TRUE(Answer(0));
  EXPECT_EQ(Fill(10), 1U);
}

// Whichever takes the room that was left for one request.
TEST_F(ClientQueueTest, MarksAndHeartbeatsTakeRoomToo) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  const auto fill_but_one = [this] {
    for (int i = 0; i < 9; ++i) ASSERT_EQ(InstallVlan(1, kPayloadOfATenth).code, kHalSuccess);
    ASSERT_TRUE(host_->HasRoom());
  };
  fill_but_one();
  host_->SubmitMark(FrameType::kBeginReinstall);
  EXPECT_FALSE(host_->HasRoom()) << "after a mark";
  Write();
  fill_but_one();
  connection_->AddHeartbeat();
  EXPECT_FALSE(host_->HasRoom()) << "after a heartbeat";
}

TEST_F(ClientQueueTest, RefusedRequestsTakeRoomUntilTheyAreReported) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  ASSERT_TRUE(host_->HasRoom());
  for (std::uint32_t id = 1; id <= 20; ++id) {
    ASSERT_EQ(InstallVlan(id, kPayloadOfATenth + 1).code, kHalTooLarge);
  }
  EXPECT_FALSE(host_->HasRoom());
  EXPECT_EQ(Ended().size(), 20U);
  EXPECT_TRUE(host_->HasRoom());
}

// They wait for the next server.
TEST_F(ClientQueueTest, VrfsTakeRoomWithoutAServer) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  ASSERT_TRUE(host_->HasRoom());
  connection_->ServerLost();
  for (std::uint32_t id = 1; id <= 20; ++id) ASSERT_EQ(InstallVrf(id, 10), kHalSuccess);
  EXPECT_FALSE(host_->HasRoom());
  EXPECT_EQ(InstallVrf(21, 10), kHalQueueFull);
}

// A VRF request keeps its room after it was written.
TEST_F(ClientQueueTest, HasRoomUntilNoVrfFits) {
  connection_->ServerFound(kPayloadOfATenth, EntryHashFunction::kXxh3);
  std::uint32_t id = 0;
  for (; host_->HasRoom() && id < 20; ++id) {
    ASSERT_EQ(InstallVrf(id, kPayloadOfATenth), kHalSuccess);
    if (id != 4) continue;
    host_->SubmitMark(FrameType::kBeginReinstall);
    Write();
  }
  EXPECT_EQ(id, 10U);
}

// A late answer also shows that no earlier one will come.
TEST_F(ClientQueueTest, ALateAnswerForgetsWhatExpiredBeforeIt) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  for (const std::uint32_t id : {1U, 2U, 3U}) InstallVlan(id);
  Write();
  connection_->EndOverdue(Clock::now() + std::chrono::hours(1));
  EXPECT_TRUE(Answer(1));
  EXPECT_FALSE(Answer(0));
  EXPECT_TRUE(Answer(2));
}

TEST_F(ClientQueueTest, AnAnswerToWhatHasNotBeenWrittenLeavesItQueued) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  InstallVlan(1);
  ASSERT_TRUE(Answer(0));
  EXPECT_EQ(host_->counters().queued, 1U);
  Write();
  EXPECT_EQ(host_->counters().queued, 0U);
}

TEST_F(ClientQueueTest, AnAnswerDoesNotCountAsWrittenWhatIsStillBeingWritten) {
  connection_->ServerFound(kAnyPayload, EntryHashFunction::kXxh3);
  InstallVlan(1);
  Write();
  InstallVlan(2);
  std::string frames;
  ASSERT_TRUE(connection_->TakeFrames(&frames));
  EXPECT_EQ(host_->counters().queued, 1U);
  ASSERT_TRUE(Answer(0));
  EXPECT_EQ(host_->counters().queued, 1U);
  // The answer came before the write was confirmed.
  ASSERT_TRUE(Answer(1));
  EXPECT_EQ(host_->counters().queued, 0U);
  connection_->ConfirmWritten();
  EXPECT_EQ(host_->counters().queued, 0U);
  EXPECT_EQ(host_->counters().late_results, 0U);
  EXPECT_FALSE(Answer(1));
  EXPECT_EQ(host_->counters().late_results, 1U);
}

}  // namespace
}  // namespace reference
