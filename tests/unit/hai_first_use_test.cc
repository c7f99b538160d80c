// The first use of the instance. Each test runs in its own process, where the instance does not
// exist yet; nothing else in this program may use it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <new>
#include <vector>

#include "tests/support/allocations.h"
#include "tests/support/events.h"
#include "tests/support/fake_hal_client.h"
#include "tests/support/fake_log.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"

namespace dest_mng {
namespace {

using testing_support::Events;
using testing_support::FailAllocation;
using testing_support::FakeHalClient;
using testing_support::WatchDeletion;

// Ends the process; the exit status says whether an expectation failed.
[[noreturn]] void Exit() { std::exit(testing::Test::HasFailure() ? 1 : 0); }

// Requests a new instance on several threads at once.
std::vector<Hai*> UseOnManyThreads() {
  std::promise<void> start;
  const std::shared_future<void> started = start.get_future().share();
  std::vector<std::future<Hai*>> pending;
  for (int thread = 0; thread < 8; ++thread) {
    pending.push_back(std::async(std::launch::async, [started] {
      started.wait();
      return Hai::GetInstance();
    }));
  }
  start.set_value();
  std::vector<Hai*> instances;
  for (auto& instance : pending) instances.push_back(instance.get());
  return instances;
}

[[noreturn]] void FailThenRetry() {
  FailAllocation(1);
  EXPECT_THROW(Hai::GetInstance(), std::bad_alloc);
  FailAllocation(1, /*all_after=*/true);
  EXPECT_THROW(Hai::GetInstance(), std::bad_alloc);
  EXPECT_THROW(Hai::GetInstance(), std::bad_alloc);
  FailAllocation(0);

  Hai* const instance = Hai::GetInstance();
  EXPECT_NE(instance, nullptr);
  EXPECT_EQ(instance->client(), nullptr);
  EXPECT_NE(instance->hal_encap_callback(), nullptr);
  EXPECT_EQ(Hai::GetInstance(), instance);
  Exit();
}

[[noreturn]] void StartOnManyThreads() {
  EXPECT_THAT(UseOnManyThreads(), testing::Each(Hai::GetInstance()));
  Exit();
}

[[noreturn]] void LookAtAllocationsOfTheFirstUse() {
  const auto before = testing_support::AllocationCount();
  Hai::GetInstance();
  EXPECT_EQ(testing_support::AllocationCount(), before + 1) << "more than the callback object";
  Hai::GetInstance();
  EXPECT_EQ(testing_support::AllocationCount(), before + 1) << "a later use allocates too";
  Exit();
}

[[noreturn]] void LeaveWithAClient() {
  static FakeHalClient* const client = new FakeHalClient;
  Events().clear();
  // Runs after the destruction of everything constructed from here on.
  std::atexit([] {
    std::fputs("at exit:", stderr);
    for (const std::string& event : Events()) std::fprintf(stderr, " %s.", event.c_str());
    std::fputs("\n", stderr);
    WatchDeletion(nullptr);
    delete client;
  });
  Hai::GetInstance()->set_client(client);
  WatchDeletion(client, "client freed");
  WatchDeletion(Hai::GetInstance()->hal_encap_callback(), "callback freed");
  Exit();
}

// Only a request that reached the instance logs this.
constexpr char kNoClient[] =
    "log 12 src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:29 "
    "Hai has no HalL3MplsEncapsulationClient registered!!!";

[[noreturn]] void RequestFirst() {
  testing_support::SetTrace(false);
  Events().clear();
  HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {}});
  EXPECT_THAT(Events(), testing::ElementsAre(kNoClient, "AppMessage destroyed"));

  FakeHalClient client;
  Hai::GetInstance()->set_client(&client);
  Events().clear();
  HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {}});
  EXPECT_THAT(Events(), testing::ElementsAre(testing::StartsWith("hal InstallEcmpEncap "),
                                             "AppMessage destroyed"));
  Hai::GetInstance()->set_client(nullptr);
  Exit();
}

[[noreturn]] void FailWithinARequest() {
  testing_support::SetTrace(true);
  // The instance's callback object is what a request allocates after its trace.
  testing_support::SetLogHook([] { FailAllocation(1); });
  Events().clear();
  EXPECT_THROW(HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {}}), std::bad_alloc);
  FailAllocation(0);
  EXPECT_THAT(Events(), testing::ElementsAre("AppMessage destroyed"));

  testing_support::SetLogHook(nullptr);
  testing_support::SetTrace(false);
  Events().clear();
  HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {}});
  EXPECT_THAT(Events(), testing::ElementsAre(kNoClient, "AppMessage destroyed"));
  Exit();
}

TEST(HaiFirstUseTest, CanBeARequest) {
  EXPECT_EXIT(RequestFirst(), testing::ExitedWithCode(0), "");
}

TEST(HaiFirstUseTest, PropagatesAFailureThroughTheRequest) {
  EXPECT_EXIT(FailWithinARequest(), testing::ExitedWithCode(0), "");
}

TEST(HaiFirstUseTest, TriesAgainAfterAFailure) {
  EXPECT_EXIT(FailThenRetry(), testing::ExitedWithCode(0), "");
}

TEST(HaiFirstUseTest, BuildsOneInstanceForAllThreads) {
  EXPECT_EXIT(StartOnManyThreads(), testing::ExitedWithCode(0), "");
}

TEST(HaiFirstUseTest, AllocatesTheCallbackObjectOnly) {
  EXPECT_EXIT(LookAtAllocationsOfTheFirstUse(), testing::ExitedWithCode(0), "");
}

TEST(HaiFirstUseTest, DeletesTheCallbackObjectAtExitAndLeavesTheClient) {
  EXPECT_EXIT(LeaveWithAClient(), testing::ExitedWithCode(0), "at exit: callback freed\\.\n");
}

}  // namespace
}  // namespace dest_mng
