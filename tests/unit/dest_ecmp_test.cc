/// Installing and destroying ECMP groups: the request, its log lines, the wrapper and its text.

#include "dest_manager/ecmp_data.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai_dest_ecmp.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;
using testing_support::Address;
using testing_support::AllocationCount;
using testing_support::Events;
using testing_support::Frame;
using testing_support::LiveAllocations;
using testing_support::LiveWithoutEvents;
using testing_support::ObjectAt;

static_assert(std::is_void_v<decltype(std::declval<HaiL3MplsEncapsulationEcmp&>().InstallEcmp(
                  std::declval<const EcmpData&>()))>);
static_assert(std::is_void_v<decltype(std::declval<HaiL3MplsEncapsulationEcmp&>().DestroyEcmp(
                  std::declval<const EcmpData&>()))>);

EcmpData Group(std::vector<unsigned int> members) { return {7, std::move(members)}; }

class EcmpGroupTest : public testing_support::HaiTest {
 protected:
  HaiL3MplsEncapsulationEcmp adapter_;
};

TEST_F(EcmpGroupTest, GroupWithoutNextHopsInstallsWithoutMembers) {
  client_.on_request = [](AppMessage* wrapper) {
    EXPECT_EQ(
        dynamic_cast<EcmpEncapsulationMessage&>(*wrapper).ToString(true),
        "EcmpEncapsulationMessage(this=" + Address(wrapper) + "): EcmpMessage(destination id(7))");
  };
  adapter_.InstallEcmp(Group({}));
  EXPECT_THAT(Events(), ElementsAre("log 10 src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:25 "
                                    "[TX ===>] hai:ecmp:Install ECMP=(db_id=7)",
                                    "hal InstallEcmpEncap EcmpEncapsulationMessage db_id: 7",
                                    "AppMessage destroyed"));
}

TEST_F(EcmpGroupTest, DbIdZeroIsSentAsPresent) {
  testing_support::SetTrace(false);
  adapter_.InstallEcmp(EcmpData{});
  adapter_.DestroyEcmp(EcmpData{});
  EXPECT_THAT(Events(), ElementsAre("hal InstallEcmpEncap EcmpEncapsulationMessage db_id: 0",
                                    "AppMessage destroyed",
                                    "hal DestroyEcmpEncap EcmpEncapsulationMessage db_id: 0",
                                    "AppMessage destroyed"));
}

TEST_F(EcmpGroupTest, LargestNumbersAreUnsigned) {
  constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
  adapter_.InstallEcmp(EcmpData{kLargest, {kLargest, 0}});
  adapter_.DestroyEcmp(EcmpData{kLargest, {}});
  EXPECT_THAT(Events(),
              ElementsAre("log 10 src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:25 "
                          "[TX ===>] hai:ecmp:Install ECMP=(db_id=4294967295)",
                          "hal InstallEcmpEncap EcmpEncapsulationMessage db_id: 4294967295 "
                          "members: 4294967295 members: 0",
                          "AppMessage destroyed",
                          "log 10 src/dest_ecmp/hai/hai_dest_ecmp DestroyEcmp:36 "
                          "[TX ===>] hai:ecmp:Delete ECMP=(db_id=4294967295)",
                          "hal DestroyEcmpEncap EcmpEncapsulationMessage db_id: 4294967295",
                          "AppMessage destroyed"));
}

TEST_F(EcmpGroupTest, ManyMembersKeepTheirOrder) {
  std::vector<unsigned int> members;
  for (unsigned int i = 0; i < 1000; ++i) members.push_back(i * 7919 % 1000);
  std::vector<unsigned int> sent;
  client_.on_request = [&](AppMessage* wrapper) {
    const auto& list = dynamic_cast<EcmpEncapsulationMessage&>(*wrapper).encap()->members();
    sent.assign(list.begin(), list.end());
  };
  adapter_.InstallEcmp(Group(members));
  EXPECT_EQ(sent, members);
}

// Adding members one at a time grows a list in steps; reserving would allocate exactly once.
TEST_F(EcmpGroupTest, MembersAreAddedOneAtATime) {
  for (const std::size_t size : {std::size_t{9}, std::size_t{100}}) {
    encapsulation::EcmpMessage by_hand;
    for (std::size_t i = 0; i < size; ++i) by_hand.add_members(12);
    int capacity = 0;
    client_.on_request = [&](AppMessage* wrapper) {
      capacity =
          dynamic_cast<EcmpEncapsulationMessage&>(*wrapper).encap()->mutable_members()->Capacity();
    };
    adapter_.InstallEcmp(Group(std::vector<unsigned int>(size, 12)));

    EXPECT_EQ(capacity, by_hand.mutable_members()->Capacity()) << size;
  }
}

// The next hops are returned by value, which allocates.

TEST_F(EcmpGroupTest, DestroyDoesNotReadTheNextHops) {
  testing_support::SetTrace(false);
  WithoutClient();
  testing_support::SetLogHook([] {});
  const auto allocations_of_destroy = [this](const EcmpData& group) {
    std::vector<std::string>().swap(Events());
    const std::size_t before = AllocationCount();
    adapter_.DestroyEcmp(group);
    return AllocationCount() - before;
  };
  const EcmpData empty = Group({});
  const EcmpData full = Group({12, 15});
  EXPECT_EQ(allocations_of_destroy(full), allocations_of_destroy(empty));
}

TEST_F(EcmpGroupTest, FailureToReadTheNextHopsPropagatesBeforeAnythingElse) {
  const EcmpData group = Group({12, 15});
  const std::ptrdiff_t before = LiveWithoutEvents();
  testing_support::FailAllocation(1);
  EXPECT_THROW(adapter_.InstallEcmp(group), std::bad_alloc);
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(LiveAllocations(), before);
}

TEST_F(EcmpGroupTest, FailureToGrowTheMembersDestroysTheWrapperAndTheNextHops) {
  const EcmpData group = Group({12, 15});
  const std::ptrdiff_t before = LiveWithoutEvents();
  // The first allocation is the list of next hops.
  testing_support::FailAllocation(2);
  EXPECT_THROW(adapter_.InstallEcmp(group), std::bad_alloc);
  EXPECT_THAT(Events(), ElementsAre("AppMessage destroyed"));
  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_F(EcmpGroupTest, MembersAreInTheMessageBeforeTheTrace) {
  WithoutClient();
  std::size_t allocations[2] = {};
  std::size_t records = 0;
  testing_support::SetLogHook([&] { allocations[records++] = AllocationCount(); });
  adapter_.InstallEcmp(Group({12, 15}));
  EXPECT_EQ(records, 2U);
  EXPECT_EQ(allocations[0], allocations[1]);
}

constexpr std::uintptr_t kExampleAddress = 0x0000557612340040;
constexpr char kTaken[] = "the address is taken in this process; run again";

void FillExample(encapsulation::EcmpMessage* message) {
  message->set_db_id(7);
  message->add_members(12);
  message->add_members(15);
}

using EcmpRenderingTest = testing_support::HaiTest;

TEST_F(EcmpRenderingTest, ExampleAtItsAddress) {
  const ObjectAt<EcmpEncapsulationMessage> wrapper(kExampleAddress);
  ASSERT_NE(wrapper.get(), nullptr) << kTaken;
  FillExample(wrapper.get()->encap());
  EXPECT_EQ(wrapper.get()->ToString(true),
            "EcmpEncapsulationMessage(this=0x0000557612340040): "
            "EcmpMessage(destination id(7) EcmpMembers[ 12 15 ])");
}

TEST_F(EcmpRenderingTest, ExampleNotFull) {
  const ObjectAt<EcmpEncapsulationMessage> wrapper(kExampleAddress);
  ASSERT_NE(wrapper.get(), nullptr) << kTaken;
  FillExample(wrapper.get()->encap());
  EXPECT_EQ(wrapper.get()->ToString(false), "EcmpEncapsulationMessage(this=0x0000557612340040)");
}

TEST_F(EcmpRenderingTest, ExampleWithoutMembers) {
  const ObjectAt<EcmpEncapsulationMessage> wrapper(kExampleAddress);
  ASSERT_NE(wrapper.get(), nullptr) << kTaken;
  wrapper.get()->encap()->set_db_id(7);
  EXPECT_EQ(wrapper.get()->ToString(true),
            "EcmpEncapsulationMessage(this=0x0000557612340040): EcmpMessage(destination id(7))");
}

TEST_F(EcmpRenderingTest, AbsentDbIdReadsAsZero) {
  EcmpEncapsulationMessage wrapper;
  EXPECT_EQ(wrapper.ToString(true), "EcmpEncapsulationMessage(this=" + Address(&wrapper) +
                                        "): EcmpMessage(destination id(0))");
  wrapper.encap()->add_members(12);
  EXPECT_EQ(wrapper.ToString(true), "EcmpEncapsulationMessage(this=" + Address(&wrapper) +
                                        "): EcmpMessage(destination id(0) EcmpMembers[ 12 ])");
}

TEST_F(EcmpRenderingTest, NumbersAreUnsignedAndRepeated) {
  EcmpEncapsulationMessage wrapper;
  constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
  wrapper.encap()->set_db_id(kLargest);
  for (const std::uint32_t member : {kLargest, 0U, kLargest}) wrapper.encap()->add_members(member);
  EXPECT_EQ(wrapper.ToString(true), "EcmpEncapsulationMessage(this=" + Address(&wrapper) +
                                        "): EcmpMessage(destination id(4294967295) "
                                        "EcmpMembers[ 4294967295 0 4294967295 ])");
}

TEST_F(EcmpRenderingTest, LongListOfMembersIsShownInFull) {
  EcmpEncapsulationMessage wrapper;
  std::string members;
  for (std::uint32_t member = 0; member < 1000; ++member) {
    wrapper.encap()->add_members(member);
    members += std::to_string(member) + " ";
  }
  EXPECT_EQ(wrapper.ToString(true), "EcmpEncapsulationMessage(this=" + Address(&wrapper) +
                                        "): EcmpMessage(destination id(0) EcmpMembers[ " + members +
                                        "])");
}

TEST_F(EcmpRenderingTest, ShowsTheWholeObjectThroughThePrintableBase) {
  EcmpEncapsulationMessage wrapper;
  FillExample(wrapper.encap());
  const HalL3MplsEncapsulationPrintable& printable = wrapper;
  ASSERT_NE(static_cast<const void*>(&printable), static_cast<const void*>(&wrapper));
  EXPECT_EQ(printable.ToString(false), "EcmpEncapsulationMessage(this=" + Address(&wrapper) + ")");
  EXPECT_EQ(printable.ToString(true), wrapper.ToString(true));
}

class EcmpWrapperTest : public testing_support::HaiTest {
 protected:
  /// The held message as text.
  std::string Held() { return wrapper_.encap()->ShortDebugString(); }

  EcmpEncapsulationMessage wrapper_;
};

TEST_F(EcmpWrapperTest, HoldsItsMessageByValue) {
  EXPECT_EQ(wrapper_.message(), wrapper_.encap());
  const void* held = wrapper_.encap();
  EXPECT_TRUE(std::less<>()(static_cast<const void*>(&wrapper_), held));
  EXPECT_TRUE(std::less<>()(held, static_cast<const void*>(&wrapper_ + 1)));
}

TEST_F(EcmpWrapperTest, ConstructionAllocatesNothing) {
  const std::size_t before = AllocationCount();
  const EcmpEncapsulationMessage wrapper;
  EXPECT_EQ(AllocationCount(), before);
}

TEST_F(EcmpWrapperTest, UnserializeFillsTheHeldMessage) {
  encapsulation::EcmpMessage sent;
  FillExample(&sent);
  std::string frame = Frame(sent.SerializeAsString());
  const google::protobuf::Message* message = wrapper_.message();
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "db_id: 7 members: 12 members: 15");
  EXPECT_EQ(wrapper_.message(), message);
}

TEST_F(EcmpWrapperTest, UnserializeAllocatesNothingOfItsOwn) {
  encapsulation::EcmpMessage sent;
  sent.set_db_id(7);
  std::string frame = Frame(sent.SerializeAsString());
  const std::size_t before = AllocationCount();
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(AllocationCount(), before);
  EXPECT_EQ(Held(), "db_id: 7");
}

TEST_F(EcmpWrapperTest, UnserializeReplacesWhatWasHeld) {
  FillExample(wrapper_.encap());
  encapsulation::EcmpMessage sent;
  sent.add_members(3);
  std::string frame = Frame(sent.SerializeAsString());
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "members: 3");
}

TEST_F(EcmpWrapperTest, UnserializeOfAnEmptyPayloadClears) {
  FillExample(wrapper_.encap());
  std::string frame = Frame("");
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "");
}

TEST_F(EcmpWrapperTest, UnserializeReadsNoFurtherThanTheLength) {
  encapsulation::EcmpMessage sent;
  sent.set_db_id(7);
  const std::string payload = sent.SerializeAsString();
  std::string frame = Frame(payload + "\xff\xff", static_cast<std::uint32_t>(payload.size()));
  EXPECT_TRUE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "db_id: 7");
}

TEST_F(EcmpWrapperTest, UnserializeOfABadPayloadFails) {
  FillExample(wrapper_.encap());
  std::string frame = Frame("\x07");
  EXPECT_FALSE(wrapper_.Unserialize(frame.data()));
  EXPECT_EQ(Held(), "");
}

TEST_F(EcmpWrapperTest, UnserializeOfAnOverlongLengthFailsAndClears) {
  for (const std::uint32_t length : {0x80000000U, 0xFFFFFFFFU}) {
    wrapper_.encap()->Clear();
    FillExample(wrapper_.encap());
    std::string frame = Frame("", length);
    EXPECT_FALSE(wrapper_.Unserialize(frame.data())) << length;
    EXPECT_EQ(Held(), "") << length;
  }
}

}  // namespace
}  // namespace dest_mng
