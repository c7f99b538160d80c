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

namespace reference {
namespace {

using testing::ElementsAre;
using Clock = ConnectionQueue::Clock;
using Next = HostQueue::Next;

constexpr std::size_t kAnyPayload = 1'000'000;

class ClientQueueTest : public testing::Test {
 protected:
  static SocketHalOptions Options() {
    SocketHalOptions options;
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

TEST_F(ClientQueueTest, TheServersLimitHoldsWhenItIsFound) {
  EXPECT_EQ(InstallVlan(1, 100).code, kHalSuccess);
  EXPECT_EQ(InstallVlan(2, 101).code, kHalSuccess);
  connection_->ServerFound(100, EntryHashFunction::kXxh3);
  EXPECT_THAT(Ended(), ElementsAre(kHalTooLarge));
  EXPECT_EQ(host_->counters().queued, 1U);
  EXPECT_EQ(InstallVlan(3, 100).code, kHalSuccess);
  EXPECT_EQ(InstallVlan(4, 101).code, kHalTooLarge);
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
