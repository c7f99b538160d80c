#include "zuskux/hai_callback.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "app_framework/app_message.h"
#include "dest_mng.pb.h"
#include "tests/support/hai_test.h"
#include "tests/support/wrapped_constructor.h"
#include "zuskux/dest_app_messages.h"
#include "zuskux/hai.h"

#ifdef ZUSKUX_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace dest_mng {
namespace {

// How many records the library constructed.
int made_records = 0;

void OnConstructed(const google::protobuf::Message* /*record*/) { ++made_records; }

}  // namespace

ZUSKUX_WRAP_CONSTRUCTOR(DestVlanMessage, DestVlanMessage, "8dest_mng15DestVlanMessage")
ZUSKUX_WRAP_CONSTRUCTOR(DestHostMessage, DestHostMessage, "8dest_mng15DestHostMessage")
ZUSKUX_WRAP_CONSTRUCTOR(DestMplsMessage, DestMplsMessage, "8dest_mng15DestMplsMessage")
ZUSKUX_WRAP_CONSTRUCTOR(DestEcmpRouteMessage, DestEcmpRouteMessage,
                        "8dest_mng20DestEcmpRouteMessage")
ZUSKUX_WRAP_CONSTRUCTOR(VrfMessage, VrfMessage, "8dest_mng10VrfMessage")

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::HandledMessage;
using testing_support::LevelQueries;
using testing_support::LiveWithoutEvents;
using testing_support::MessageCalls;
using testing_support::RawRecords;
using testing_support::SetConstructionHook;
using testing_support::SetHandlerHook;
using testing_support::SetLogHook;
using testing_support::SetMessageHook;
using testing_support::SetTrace;
using testing_support::WatchDeletion;
using ReturnCode = HalL3MplsEncapsulationReturnCode;
using Callback = HaiDestClientCallback;

static_assert(std::is_base_of_v<HalL3MplsEncapsulationClientCallbackItf, Callback>);

constexpr ReturnCode kSuccess{0};
constexpr std::uint32_t kLargest = 0xFFFFFFFF;

// The behaviour of one result operation. The MPLS operations take two ids, the others one.
struct ResultOperation {
  const char* name;
  void (Callback::*one_id)(ReturnCode, unsigned int);
  void (Callback::*two_ids)(ReturnCode, unsigned int, unsigned int);
  int line;
  const char* app_message;
  const char* success;
  const char* error;
  int message_calls;

  void Call(ReturnCode code, unsigned int db_id, unsigned int secondary_id) const {
    Callback* const callback = Hai::GetInstance()->hal_encap_callback();
    if (one_id != nullptr) {
      (callback->*one_id)(code, db_id);
    } else {
      (callback->*two_ids)(code, db_id, secondary_id);
    }
  }

  std::string Trace() const {
    return std::string("log 10 src/hai/hai_callback ") + name + ":" + std::to_string(line) +
           " Entry Point";
  }

  std::string Ids(unsigned int db_id, unsigned int secondary_id) const {
    std::string ids = "db_id: " + std::to_string(db_id);
    if (two_ids != nullptr) ids += " secondary_id: " + std::to_string(secondary_id);
    return ids;
  }
};

const ResultOperation kOperations[] = {
    {"InstallVlanOutgoingEncapsulationResCallback",
     &Callback::InstallVlanOutgoingEncapsulationResCallback, nullptr, 23, "AppDestVlanMessage",
     "CreatedDestVlanSuccess", "CreatedDestVlanError", 1},
    {"ReplaceVlanOutgoingEncapsulationResCallback",
     &Callback::ReplaceVlanOutgoingEncapsulationResCallback, nullptr, 37, "AppDestVlanMessage",
     "UpdatedDestVlanSuccess", "UpdatedDestVlanError", 1},
    {"DestroyVlanOutgoingEncapsulationResCallback",
     &Callback::DestroyVlanOutgoingEncapsulationResCallback, nullptr, 51, "AppDestVlanMessage",
     "DeletedDestVlanSuccess", "DeletedDestVlanError", 1},
    {"InstallHostOutgoingEncapsulationResCallback",
     &Callback::InstallHostOutgoingEncapsulationResCallback, nullptr, 65, "AppDestHostMessage",
     "CreatedDestHostSuccess", "CreatedDestHostError", 1},
    {"ReplaceHostOutgoingEncapsulationResCallback",
     &Callback::ReplaceHostOutgoingEncapsulationResCallback, nullptr, 79, "AppDestHostMessage",
     "UpdatedDestHostSuccess", "UpdatedDestHostError", 1},
    {"DestroyHostOutgoingEncapsulationResCallback",
     &Callback::DestroyHostOutgoingEncapsulationResCallback, nullptr, 93, "AppDestHostMessage",
     "DeletedDestHostSuccess", "DeletedDestHostError", 1},
    {"InstallEcmpEncapResCallback", &Callback::InstallEcmpEncapResCallback, nullptr, 107,
     "AppDestEcmpMessage", "CreatedDestEcmpSuccess", "CreatedDestEcmpError", 0},
    {"DestroyEcmpEncapResCallback", &Callback::DestroyEcmpEncapResCallback, nullptr, 121,
     "AppDestEcmpMessage", "DeletedDestEcmpSuccess", "DeletedDestEcmpError", 0},
    {"InstallMplsUnprotectedOutgoingEncapsulationResCallback", nullptr,
     &Callback::InstallMplsUnprotectedOutgoingEncapsulationResCallback, 135, "AppDestMplsMessage",
     "CreatedDestMplsSuccess", "CreatedDestMplsError", 2},
    {"ReplaceMplsUnprotectedOutgoingEncapsulationResCallback", nullptr,
     &Callback::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback, 150, "AppDestMplsMessage",
     "UpdatedDestMplsSuccess", "UpdatedDestMplsError", 2},
    {"DestroyMplsUnprotectedOutgoingEncapsulationResCallback", nullptr,
     &Callback::DestroyMplsUnprotectedOutgoingEncapsulationResCallback, 165, "AppDestMplsMessage",
     "DeletedDestMplsSuccess", "DeletedDestMplsError", 2},
};

// Gives the record in the running handler a heap buffer and adds `event` when the record's
// destruction frees it: a record on the stack leaves no other trace.
void WatchRecord(const char* event) {
  google::protobuf::Message* const record = HandledMessage()->message();
  const auto* name = record->GetDescriptor()->FindFieldByName("name");
  record->GetReflection()->SetString(record, name, std::string(100, 'n'));
  std::string unused;
  WatchDeletion(record->GetReflection()->GetStringReference(*record, name, &unused).data(), event);
}

// The stack address of `object`. AddressSanitizer keeps local variables elsewhere; in that case,
// the address of the frame that the object belongs to.
const void* PlaceOnTheStack(const void* object) {
#ifdef ZUSKUX_ADDRESS_SANITIZER
  void* const frame = __asan_addr_is_in_fake_stack(__asan_get_current_fake_stack(),
                                                   const_cast<void*>(object), nullptr, nullptr);
  if (frame != nullptr) return frame;
#endif
  return object;
}

// Expects `object` on the stack, between a local variable of a caller and one of a called function.
void ExpectOnTheStack(const void* object, const void* outer, const void* inner) {
  EXPECT_TRUE(std::less<>()(PlaceOnTheStack(inner), PlaceOnTheStack(object)));
  EXPECT_TRUE(std::less<>()(PlaceOnTheStack(object), PlaceOnTheStack(outer)));
}

class ResultTest : public testing_support::HaiTest,
                   public ::testing::WithParamInterface<ResultOperation> {
 protected:
  // The expected events of one result, according to the operation's row.
  static std::vector<std::string> Expected(const char* handler, const std::string& ids) {
    return {GetParam().Trace(),
            std::string("handler ") + handler + " " + GetParam().app_message + " " + ids,
            "AppMessage destroyed", "MessageController destroyed"};
  }
};

TEST_P(ResultTest, CallsTheSuccessHandlerForCode0) {
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_THAT(Events(), ElementsAreArray(Expected(GetParam().success, GetParam().Ids(5, 9))));
}

TEST_P(ResultTest, CallsTheErrorHandlerForEveryOtherCode) {
  for (const std::uint32_t code : {1U, 2U, 0x100U, 0x80000000U, kLargest}) {
    Events().clear();
    GetParam().Call(ReturnCode{code}, 5, 9);

    EXPECT_THAT(Events(), ElementsAreArray(Expected(GetParam().error, GetParam().Ids(5, 9))))
        << code;
  }
}

TEST_P(ResultTest, CarriesIdsOf0AsPresent) {
  for (const std::uint32_t code : {0U, 1U}) {
    Events().clear();
    GetParam().Call(ReturnCode{code}, 0, 0);

    const char* const handler = code == 0 ? GetParam().success : GetParam().error;
    EXPECT_THAT(Events(), ElementsAreArray(Expected(handler, GetParam().Ids(0, 0))));
  }
}

TEST_P(ResultTest, CarriesTheLargestIds) {
  GetParam().Call(kSuccess, kLargest, kLargest - 1);

  EXPECT_THAT(Events(), ElementsAreArray(
                            Expected(GetParam().success, GetParam().Ids(kLargest, kLargest - 1))));
}

TEST_P(ResultTest, TracesWithoutCheckingTheLevel) {
  SetTrace(false);
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_THAT(Events(), ElementsAreArray(Expected(GetParam().success, GetParam().Ids(5, 9))));
  EXPECT_EQ(LevelQueries(), 0);
}

TEST_P(ResultTest, ReachesTheRecordThroughTheController) {
  const int before = MessageCalls();
  GetParam().Call(kSuccess, 5, 9);

  // The handler itself calls `message()` once.
  EXPECT_EQ(MessageCalls() - before, GetParam().message_calls + 1);
}

// ECMP records are filled before the controller exists, the others through it.
TEST_P(ResultTest, FillsItsRecordAtTheRightTime) {
  std::string at_construction;
  SetConstructionHook([&at_construction](const AppMessage& message) {
    at_construction = message.message()->ShortDebugString();
  });
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_EQ(at_construction, GetParam().message_calls == 0 ? "db_id: 5" : "");
}

TEST_P(ResultTest, DestroysTheControllerBeforeTheRecord) {
  SetHandlerHook([](const std::string&) {
    WatchDeletion(HandledMessage(), "app message freed");
    WatchRecord("record destroyed");
  });
  GetParam().Call(kSuccess, 5, 9);

  std::vector<std::string> expected = Expected(GetParam().success, GetParam().Ids(5, 9));
  expected.insert(expected.end() - 1, "app message freed");
  expected.emplace_back("record destroyed");
  EXPECT_THAT(Events(), ElementsAreArray(expected));
}

TEST_P(ResultTest, LeavesNothingBehind) {
  const auto before = LiveWithoutEvents();
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_EQ(LiveWithoutEvents(), before);
}

TEST_P(ResultTest, DestroysEverythingOnceWhenTheHandlerThrows) {
  for (const std::uint32_t code : {0U, 1U}) {
    Events().clear();
    SetHandlerHook([](const std::string& handler) {
      WatchDeletion(HandledMessage(), "app message freed");
      WatchRecord("record destroyed");
      throw std::runtime_error(handler);
    });
    const char* const handler = code == 0 ? GetParam().success : GetParam().error;
    try {
      GetParam().Call(ReturnCode{code}, 5, 9);
      ADD_FAILURE() << "the exception of " << handler << " was not propagated";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), handler);
    }

    std::vector<std::string> expected = Expected(handler, GetParam().Ids(5, 9));
    expected.insert(expected.end() - 1, "app message freed");
    expected.emplace_back("record destroyed");
    EXPECT_THAT(Events(), ElementsAreArray(expected));
  }
}

TEST_P(ResultTest, BuildsNothingWhenTheLogThrows) {
  SetLogHook([] { throw std::runtime_error("log"); });
  made_records = 0;

  EXPECT_THROW(GetParam().Call(kSuccess, 5, 9), std::runtime_error);
  EXPECT_EQ(made_records, 0);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_P(ResultTest, PassesTheLogAFormatWithoutArguments) {
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_THAT(RawRecords(), ElementsAre("Entry Point"));
}

TEST_P(ResultTest, NeedsNoClient) {
  WithoutClient();
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_THAT(Events(), ElementsAreArray(Expected(GetParam().success, GetParam().Ids(5, 9))));
}

TEST_P(ResultTest, HasItsRecordOnTheStack) {
  int outer = 0;
  SetHandlerHook([&outer](const std::string&) {
    const int inner = 0;
    ExpectOnTheStack(HandledMessage()->message(), &outer, &inner);
    ++outer;
  });
  GetParam().Call(kSuccess, 5, 9);

  EXPECT_EQ(outer, 1);
}

INSTANTIATE_TEST_SUITE_P(, ResultTest, ::testing::ValuesIn(kOperations),
                         [](const auto& tested) { return std::string(tested.param.name); });

// The operations that reach their record through the controller.
std::vector<ResultOperation> OperationsWithCast() {
  std::vector<ResultOperation> operations;
  for (const ResultOperation& operation : kOperations) {
    if (operation.message_calls != 0) operations.push_back(operation);
  }
  return operations;
}

class ResultCastTest : public ResultTest {};

TEST_P(ResultCastTest, ThrowsWhenTheControllerAnswersWithAnotherRecord) {
  VrfMessage foreign_record;
  AppVrfMessage foreign(&foreign_record);
  SetMessageHook([&foreign](AppMessage*) { return &foreign; });

  EXPECT_THROW(GetParam().Call(kSuccess, 5, 9), std::bad_cast);
  EXPECT_THAT(Events(), ElementsAre(GetParam().Trace(), "AppMessage destroyed",
                                    "MessageController destroyed"));
  EXPECT_FALSE(foreign_record.has_db_id());
}

INSTANTIATE_TEST_SUITE_P(, ResultCastTest, ::testing::ValuesIn(OperationsWithCast()),
                         [](const auto& tested) { return std::string(tested.param.name); });

using HaiCallbackTest = testing_support::HaiTest;

// The contents of the MPLS record before each call of `message()`.
TEST_F(HaiCallbackTest, SetsTheMplsIdsOneAfterTheOther) {
  const auto operations = {&Callback::InstallMplsUnprotectedOutgoingEncapsulationResCallback,
                           &Callback::DestroyMplsUnprotectedOutgoingEncapsulationResCallback,
                           &Callback::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback};
  for (const auto operation : operations) {
    std::vector<std::string> records;
    SetMessageHook([&records](AppMessage* message) {
      records.push_back(message->message()->ShortDebugString());
      return message;
    });
    (Hai::GetInstance()->hal_encap_callback()->*operation)(kSuccess, 5, 9);

    EXPECT_THAT(records, ElementsAre("", "db_id: 5", "db_id: 5 secondary_id: 9"));
  }
}

TEST_F(HaiCallbackTest, IgnoresTheResultOfTheInitialisation) {
  for (const std::uint32_t code : {0U, 1U, kLargest}) {
    Hai::GetInstance()->hal_encap_callback()->InitEncapsulationModuleResCallback(ReturnCode{code});
  }

  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(LevelQueries(), 0);
}

// Server found.

constexpr char kServerFoundTrace[] =
    "log 10 src/hai/hai_callback HalServerFoundCallback:179 Entry Point";

struct Reinstall {
  const char* handler;
  const char* app_message;
  const char* app_message_freed;
  const char* record_destroyed;
};

constexpr Reinstall kReinstalls[] = {
    {"ReinstallVrf", "AppVrfMessage", "AppVrfMessage freed", "VRF record destroyed"},
    {"ReinstallDestVlan", "AppDestVlanMessage", "AppDestVlanMessage freed",
     "VLAN record destroyed"},
    {"ReinstallDestHost", "AppDestHostMessage", "AppDestHostMessage freed",
     "host record destroyed"},
    {"ReinstallDestEcmp", "AppDestEcmpMessage", "AppDestEcmpMessage freed",
     "ECMP record destroyed"},
    {"ReinstallDestMpls", "AppDestMplsMessage", "AppDestMplsMessage freed",
     "MPLS record destroyed"},
};

// The events of a server-found notification that calls only the first `count` handlers.
std::vector<std::string> ServerFoundEvents(std::size_t count) {
  std::vector<std::string> expected = {kServerFoundTrace};
  for (std::size_t i = 0; i < count; ++i) {
    expected.push_back(std::string("handler ") + kReinstalls[i].handler + " " +
                       kReinstalls[i].app_message);
  }
  for (std::size_t i = count; i-- > 0;) {
    expected.emplace_back("AppMessage destroyed");
    expected.emplace_back(kReinstalls[i].app_message_freed);
    expected.emplace_back("MessageController destroyed");
    expected.emplace_back(kReinstalls[i].record_destroyed);
  }
  return expected;
}

void WatchReinstall(const std::string& handler) {
  for (const Reinstall& reinstall : kReinstalls) {
    if (handler != reinstall.handler) continue;
    WatchDeletion(HandledMessage(), reinstall.app_message_freed);
    WatchRecord(reinstall.record_destroyed);
  }
}

class ServerFoundTest : public testing_support::HaiTest {
 protected:
  ServerFoundTest() { SetHandlerHook(WatchReinstall); }
};

TEST_F(ServerFoundTest, ReinstallsInOrderAndDestroysNewestFirst) {
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(5)));
}

TEST_F(ServerFoundTest, HandlesEmptyRecords) {
  std::vector<std::size_t> sizes;
  SetHandlerHook([&sizes](const std::string&) {
    sizes.push_back(HandledMessage()->message()->ByteSizeLong());
  });
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_THAT(sizes, ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(ServerFoundTest, AcceptsAnyContext) {
  int context = 0;
  void* const dangling = &context + 1;
  for (void* given : {static_cast<void*>(&context), dangling, static_cast<void*>(&client_)}) {
    Events().clear();
    Callback::HalServerFoundCallback(given);

    EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(5)));
  }
  EXPECT_EQ(context, 0);
}

TEST_F(ServerFoundTest, TracesWithoutCheckingTheLevel) {
  SetTrace(false);
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(5)));
  EXPECT_EQ(LevelQueries(), 0);
}

TEST_F(ServerFoundTest, NeedsNoClient) {
  WithoutClient();
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(5)));
}

TEST_F(ServerFoundTest, FitsTheFunctionTypeOfANotification) {
  void (*const notification)(void*) = &Callback::HalServerFoundCallback;
  notification(nullptr);

  EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(5)));
}

TEST_F(ServerFoundTest, BuildsNothingWhenTheLogThrows) {
  SetLogHook([] { throw std::runtime_error("log"); });
  made_records = 0;

  EXPECT_THROW(Callback::HalServerFoundCallback(nullptr), std::runtime_error);
  EXPECT_EQ(made_records, 0);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(ServerFoundTest, PassesTheLogAFormatWithoutArguments) {
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_THAT(RawRecords(), ElementsAre("Entry Point"));
}

TEST_F(ServerFoundTest, HasItsRecordsOnTheStack) {
  int outer = 0;
  SetHandlerHook([&outer](const std::string&) {
    const int inner = 0;
    ExpectOnTheStack(HandledMessage()->message(), &outer, &inner);
    ++outer;
  });
  Callback::HalServerFoundCallback(nullptr);

  EXPECT_EQ(outer, 5);
}

class ServerFoundThrowTest : public ServerFoundTest,
                             public ::testing::WithParamInterface<std::size_t> {};

TEST_P(ServerFoundThrowTest, SkipsTheRestAndUnwindsNewestFirst) {
  SetHandlerHook([](const std::string& handler) {
    WatchReinstall(handler);
    if (handler == kReinstalls[GetParam()].handler) throw std::runtime_error(handler);
  });
  try {
    Callback::HalServerFoundCallback(nullptr);
    ADD_FAILURE() << "the exception was not propagated";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), kReinstalls[GetParam()].handler);
  }

  EXPECT_THAT(Events(), ElementsAreArray(ServerFoundEvents(GetParam() + 1)));
}

INSTANTIATE_TEST_SUITE_P(, ServerFoundThrowTest, ::testing::Range(std::size_t{0}, std::size_t{5}),
                         [](const auto& tested) {
                           return std::string(kReinstalls[tested.param].handler);
                         });

}  // namespace
}  // namespace dest_mng
