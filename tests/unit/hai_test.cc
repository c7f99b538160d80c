#include "zuskux/hai.h"

#include <cstring>
#include <future>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "tests/support/hai_test.h"
#include "zuskux/hai_callback.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::FailAllocation;
using testing_support::FakeHalClient;
using testing_support::LiveAllocations;
using testing_support::WatchDeletion;
using HaiTest = testing_support::HaiTest;

static_assert(!std::is_copy_constructible_v<Hai> && !std::is_copy_assignable_v<Hai>);
static_assert(!std::is_move_constructible_v<Hai> && !std::is_move_assignable_v<Hai>);
static_assert(std::has_virtual_destructor_v<Hai>);

TEST_F(HaiTest, HasOneInstance) {
  Hai* const instance = Hai::GetInstance();

  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(Hai::GetInstance(), instance);
}

TEST_F(HaiTest, HasOneInstanceForAllThreads) {
  std::promise<void> start;
  const std::shared_future<void> started = start.get_future().share();
  std::vector<std::future<Hai*>> instances;
  for (int thread = 0; thread < 8; ++thread) {
    instances.push_back(std::async(std::launch::async, [started] {
      started.wait();
      return Hai::GetInstance();
    }));
  }
  start.set_value();

  for (auto& instance : instances) EXPECT_EQ(instance.get(), Hai::GetInstance());
}

TEST_F(HaiTest, ReturnsTheSameCallbackObjectEachTime) {
  HaiDestClientCallback* const callback = Hai::GetInstance()->hal_encap_callback();

  ASSERT_NE(callback, nullptr);
  EXPECT_EQ(Hai::GetInstance()->hal_encap_callback(), callback);
}

TEST_F(HaiTest, KeepsTheCallbackObjectWhenTheClientChanges) {
  HaiDestClientCallback* const callback = Hai::GetInstance()->hal_encap_callback();

  Hai::GetInstance()->set_client(nullptr);

  EXPECT_EQ(Hai::GetInstance()->hal_encap_callback(), callback);
}

// Dirty memory reveals whether the client is initialised.
TEST_F(HaiTest, StartsWithoutClient) {
  alignas(Hai) unsigned char storage[sizeof(Hai)];
  std::memset(storage, 0xFF, sizeof storage);
  const Hai* const hai = new (storage) Hai;

  EXPECT_EQ(hai->client(), nullptr);
  EXPECT_NE(hai->hal_encap_callback(), nullptr);
  hai->~Hai();
}

TEST_F(HaiTest, HasItsOwnCallbackObjectInEachInstance) {
  const Hai hai;

  EXPECT_NE(hai.hal_encap_callback(), Hai::GetInstance()->hal_encap_callback());
}

TEST_F(HaiTest, ReturnsTheLastRegisteredClient) {
  FakeHalClient second;
  Hai hai;

  hai.set_client(&client_);
  EXPECT_EQ(hai.client(), &client_);
  hai.set_client(&second);
  EXPECT_EQ(hai.client(), &second);
  hai.set_client(nullptr);
  EXPECT_EQ(hai.client(), nullptr);
}

TEST_F(HaiTest, DoesNotTouchTheClientsItReplaces) {
  const auto client = std::make_unique<FakeHalClient>();
  WatchDeletion(client.get(), "client freed");

  Hai hai;
  hai.set_client(client.get());
  hai.set_client(&client_);
  hai.set_client(client.get());
  hai.set_client(nullptr);

  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(HaiTest, DeletesItsCallbackObjectOnceAndNeverTheClient) {
  const auto client = std::make_unique<FakeHalClient>();
  WatchDeletion(client.get(), "client freed");
  const auto before = LiveAllocations();
  {
    Hai hai;
    EXPECT_EQ(LiveAllocations(), before + 1);
    hai.set_client(client.get());
    WatchDeletion(hai.hal_encap_callback(), "callback freed");
    EXPECT_THAT(Events(), IsEmpty());
  }

  EXPECT_THAT(Events(), ElementsAre("callback freed"));
}

TEST_F(HaiTest, PropagatesTheFailureToAllocateTheCallbackObject) {
  const auto before = LiveAllocations();

  FailAllocation(1);
  EXPECT_THROW(Hai(), std::bad_alloc);
  FailAllocation(0);

  EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(HaiTest, IsNotAllocated) {
  FailAllocation(1, /*all_after=*/true);
  Hai* const instance = Hai::GetInstance();
  FailAllocation(0);

  EXPECT_NE(instance, nullptr);
}

}  // namespace
}  // namespace dest_mng
