// An allocation or the host's code fails at any point of any operation: the exception propagates,
// everything is destroyed exactly once, and the next request works.

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base_encap_message.pb.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "dest_mng.pb.h"
#include "tests/support/allocations.h"
#include "tests/support/quiet_host.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace dest_mng {
namespace {

using testing_support::AllocationCount;
using testing_support::CallsOfHost;
using testing_support::FailAllocation;
using testing_support::FailHostCall;
using testing_support::ForgetHostCalls;
using testing_support::HostCalls;
using testing_support::HostFailure;
using testing_support::LiveAllocations;
using testing_support::SetQuietTrace;

// More points than any operation here has.
constexpr std::size_t kMaxPoints = 1000;

/// Where to make one failure happen.
struct Point {
  enum class Kind { kAllocation, kAllocationsFromThere, kHostCall };
  Kind kind;
  std::size_t n;

  void Arm() const {
    if (kind == Kind::kHostCall) {
      FailHostCall(static_cast<int>(n));
    } else {
      FailAllocation(n, kind == Kind::kAllocationsFromThere);
    }
  }
};

void Disarm() {
  FailAllocation(0);
  FailHostCall(0);
}

/// Runs `operation` with the failure armed and returns whether it succeeded. Any other exception
/// propagates.
template <typename Operation>
bool Passes(const Point& point, Operation operation) {
  bool passes = false;
  point.Arm();
  try {
    operation();
    passes = true;
  } catch (const std::bad_alloc&) {
    EXPECT_NE(point.kind, Point::Kind::kHostCall);
  } catch (const HostFailure&) {
    EXPECT_EQ(point.kind, Point::Kind::kHostCall);
  }
  Disarm();
  return passes;
}

/// An operation on inputs of its own, which do not outlive it.
struct Operation {
  std::string name;
  /// Returns whether it succeeded.
  std::function<bool(const Point&)> run;
  /// How many allocations leak if it fails there; empty for none.
  std::function<std::ptrdiff_t(const Point&)> lost{};
  /// Runs only with a HAL client.
  bool needs_client = false;
};

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

// Inputs. The texts are longer than what std::string stores without allocating.

std::string LongText() { return std::string(40, 'x'); }

std::unique_ptr<DbVlanObject> NewVlan() {
  auto object = std::make_unique<DbVlanObject>();
  auto record = std::make_unique<DestVlanMessage>();
  record->set_lim_id(LongText());
  record->set_source_mac(LongText());
  record->set_name(LongText());
  record->set_vlan_dest_id(12);
  for (int count = 0; count < 9; ++count) record->add_capabilities(VLAN_CAPABILITY_ROUTED);
  object->record = std::move(record);
  object->list_attribute_name = LongText();
  auto& list = object->attribute_lists[object->list_attribute_name].second;
  for (int count = 0; count < 9; ++count) list.emplace_back(LongText());
  return object;
}

std::unique_ptr<DbHostObject> NewHost() {
  auto object = std::make_unique<DbHostObject>();
  auto record = std::make_unique<DestHostMessage>();
  record->set_dest_id(20);
  record->set_lim_id(LongText());
  record->set_dest_mac(LongText());
  for (int count = 0; count < 9; ++count) record->add_flags(ACTION_TO_CPU);
  object->record = std::move(record);
  return object;
}

std::unique_ptr<DbMplsObject> NewTunnel() {
  auto object = std::make_unique<DbMplsObject>();
  auto record = std::make_unique<DestMplsMessage>();
  record->set_mpls_dest_id(40);
  record->set_lim_id(LongText());
  record->set_dest_mac(LongText());
  record->set_label(1000);
  for (int count = 0; count < 9; ++count) record->add_capabilities(MPLS_CAPABILITY_PUSH);
  object->record = std::move(record);
  return object;
}

EcmpData Group() { return {30, {20, 21, 22, 23, 24, 25, 26, 27, 28}}; }

// The size of a message under construction, in allocations, when the translation fails. No adapter
// owns the message yet, so it leaks with its contents. Measured with a message that the test owns.
template <typename Message, typename NewObject, typename Translate>
std::ptrdiff_t LostMessage(const Point& point, NewObject new_object, Translate translate) {
  const std::ptrdiff_t before = LiveAllocations();
  Point behind_the_message = point;
  if (point.kind != Point::Kind::kHostCall && --behind_the_message.n == 0) return 0;
  auto message = std::make_unique<Message>();
  auto object = new_object();
  const bool passes = Passes(behind_the_message, [&] { translate(object.get(), message.get()); });
  object.reset();
  return passes ? 0 : LiveAllocations() - before;
}

// If its list of texts cannot grow, protobuf leaks the text that it was about to add. Adding texts
// is the last step of a VLAN translation that allocates.
std::ptrdiff_t LostByAddingTexts(Point point, std::size_t allocations_of_the_translation) {
  constexpr Point kNowhere = {Point::Kind::kAllocation, 0};
  const auto add_texts = [](const Point& at) {
    const std::vector<std::string> texts(9, LongText());
    encapsulation::VlanMessage message;
    const std::size_t before = AllocationCount();
    Passes(at, [&] {
      for (const std::string& text : texts) message.add_list_values(text);
    });
    return AllocationCount() - before;
  };
  const std::size_t before_the_texts = allocations_of_the_translation - add_texts(kNowhere);
  if (point.kind == Point::Kind::kHostCall || point.n <= before_the_texts) return 0;
  point.n -= before_the_texts;
  const std::ptrdiff_t before = LiveAllocations();
  add_texts(point);
  return LiveAllocations() - before;
}

std::vector<Operation> Operations() {
  std::vector<Operation> operations;
  const auto add = [&operations](std::string name, auto run) {
    operations.push_back({std::move(name), run});
    return &operations.back();
  };

  const auto translate_vlan = [](void* object, encapsulation::VlanMessage* message) {
    HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(object, message);
  };
  const auto translate_host = [](void* object, encapsulation::HostMessage* message) {
    HaiL3MplsEncapsulationHost().TranslateHostObjectToEncapMessage(object, message);
  };
  const auto translate_mpls = [](void* object, encapsulation::MplsMessage* message) {
    HaiL3MplsEncapsulationMpls().TranslateMplsObjectToEncapMessage(object, message);
  };
  const auto lost_vlan = [=](const Point& point) {
    return LostMessage<encapsulation::VlanMessage>(point, NewVlan, translate_vlan);
  };
  const auto lost_host = [=](const Point& point) {
    return LostMessage<encapsulation::HostMessage>(point, NewHost, translate_host);
  };
  const auto lost_mpls = [=](const Point& point) {
    return LostMessage<encapsulation::MplsMessage>(point, NewTunnel, translate_mpls);
  };

  // The adapters' operations on a destination object.
  const auto add_adapter = [&](const std::string& kind, auto* adapter_type, auto new_object,
                               auto lost) {
    using Adapter = std::remove_pointer_t<decltype(adapter_type)>;
    const std::pair<const char*, int (Adapter::*)(void*)> calls[] = {
        {"Create", &Adapter::CreateDestination},
        {"Update", &Adapter::UpdateDestination},
        {"Delete", &Adapter::DeleteDestination}};
    for (const auto& [name, call] : calls) {
      add(name + kind, [call = call, new_object](const Point& point) {
        auto object = new_object();
        Adapter adapter;
        return Passes(point, [&] { (adapter.*call)(object.get()); });
      })->lost = lost;
    }
  };
  add_adapter("Vlan", static_cast<HaiL3MplsEncapsulationVlan*>(nullptr), NewVlan, lost_vlan);
  add_adapter("Host", static_cast<HaiL3MplsEncapsulationHost*>(nullptr), NewHost, lost_host);
  add_adapter("Mpls", static_cast<HaiL3MplsEncapsulationMpls*>(nullptr), NewTunnel, lost_mpls);
  add("TranslateHost", [](const Point& point) {
    auto object = NewHost();
    return Passes(point, [&] { HaiL3MplsEncapsulationHost().TranslateMessage(object.get()); });
  })->lost = lost_host;
  add("TranslateMpls", [](const Point& point) {
    auto object = NewTunnel();
    return Passes(point, [&] { HaiL3MplsEncapsulationMpls().TranslateMessage(object.get()); });
  })->lost = lost_mpls;

  // A translation into the caller's message leaks nothing.
  const auto add_translation = [&](const char* name, auto new_object, auto* message_type,
                                   auto translate) {
    using Message = std::remove_pointer_t<decltype(message_type)>;
    add(name, [new_object, translate](const Point& point) {
      auto object = new_object();
      Message message;
      return Passes(point, [&] { translate(object.get(), &message); });
    });
  };
  add_translation("TranslateVlanToMessage", NewVlan,
                  static_cast<encapsulation::VlanMessage*>(nullptr), translate_vlan);
  operations.back().lost = [translate_vlan](const Point& point) {
    const auto object = NewVlan();
    encapsulation::VlanMessage message;
    const std::size_t before = AllocationCount();
    translate_vlan(object.get(), &message);
    return LostByAddingTexts(point, AllocationCount() - before);
  };
  add_translation("TranslateHostToMessage", NewHost,
                  static_cast<encapsulation::HostMessage*>(nullptr), translate_host);
  add_translation("TranslateMplsToMessage", NewTunnel,
                  static_cast<encapsulation::MplsMessage*>(nullptr), translate_mpls);

  add("InstallEcmp", [](const Point& point) {
    const EcmpData group = Group();
    return Passes(point, [&] { HaiL3MplsEncapsulationEcmp().InstallEcmp(group); });
  });
  add("DestroyEcmp", [](const Point& point) {
    const EcmpData group = Group();
    return Passes(point, [&] { HaiL3MplsEncapsulationEcmp().DestroyEcmp(group); });
  });
  add("InstallVrf", [](const Point& point) {
    return Passes(point, [] { HaiL3MplsEncapsulationVrf().InstallVrf({7, 1}); });
  })->needs_client = true;
  add("DestroyVrf", [](const Point& point) {
    return Passes(point, [] { HaiL3MplsEncapsulationVrf().DestroyVrf({7, 1}); });
  })->needs_client = true;

  // The results, and the server found.
  using Code = HalL3MplsEncapsulationReturnCode;
  using Callback = HaiDestClientCallback;
  const std::pair<const char*, void (Callback::*)(Code, unsigned int)> results[] = {
      {"InstallVlanResult", &Callback::InstallVlanOutgoingEncapsulationResCallback},
      {"DestroyVlanResult", &Callback::DestroyVlanOutgoingEncapsulationResCallback},
      {"ReplaceVlanResult", &Callback::ReplaceVlanOutgoingEncapsulationResCallback},
      {"InstallHostResult", &Callback::InstallHostOutgoingEncapsulationResCallback},
      {"DestroyHostResult", &Callback::DestroyHostOutgoingEncapsulationResCallback},
      {"ReplaceHostResult", &Callback::ReplaceHostOutgoingEncapsulationResCallback},
      {"InstallEcmpResult", &Callback::InstallEcmpEncapResCallback},
      {"DestroyEcmpResult", &Callback::DestroyEcmpEncapResCallback}};
  const std::pair<const char*, void (Callback::*)(Code, unsigned int, unsigned int)>
      mpls_results[] = {
          {"InstallMplsResult", &Callback::InstallMplsUnprotectedOutgoingEncapsulationResCallback},
          {"DestroyMplsResult", &Callback::DestroyMplsUnprotectedOutgoingEncapsulationResCallback},
          {"ReplaceMplsResult", &Callback::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback}};
  for (const Code code : {Code{0}, Code{1}}) {
    const std::string outcome = code == Code{0} ? "Success" : "Error";
    for (const auto& [name, call] : results) {
      add(name + outcome, [call = call, code](const Point& point) {
        return Passes(point, [&] { (Hai::GetInstance()->hal_encap_callback()->*call)(code, 5); });
      });
    }
    for (const auto& [name, call] : mpls_results) {
      add(name + outcome, [call = call, code](const Point& point) {
        return Passes(point,
                      [&] { (Hai::GetInstance()->hal_encap_callback()->*call)(code, 5, 9); });
      });
    }
  }
  add("ServerFound", [](const Point& point) {
    return Passes(point, [] { HaiDestClientCallback::HalServerFoundCallback(nullptr); });
  });
  add("GetInstance", [](const Point& point) { return Passes(point, [] { Hai::GetInstance(); }); });
  return operations;
}

// Messages with every field set.

template <typename Message>
std::unique_ptr<Message> FullMessage() {
  auto message = std::make_unique<Message>();
  const google::protobuf::Reflection& reflection = *message->GetReflection();
  const google::protobuf::Descriptor& descriptor = *message->GetDescriptor();
  using google::protobuf::FieldDescriptor;
  for (int index = 0; index < descriptor.field_count(); ++index) {
    const FieldDescriptor* const field = descriptor.field(index);
    const int times = field->is_repeated() ? 9 : 1;
    for (int time = 0; time < times; ++time) {
      const bool repeated = field->is_repeated();
      if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
        repeated ? reflection.AddString(message.get(), field, LongText())
                 : reflection.SetString(message.get(), field, LongText());
      } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_ENUM) {
        repeated ? reflection.AddEnumValue(message.get(), field, 1)
                 : reflection.SetEnumValue(message.get(), field, 1);
      } else {
        repeated ? reflection.AddUInt32(message.get(), field, 100)
                 : reflection.SetUInt32(message.get(), field, 100);
      }
    }
  }
  return message;
}

template <typename Message>
std::string FullFrame() {
  const std::string payload = FullMessage<Message>()->SerializeAsString();
  std::string frame(8, '\0');
  frame[6] = static_cast<char>(payload.size() >> 8);
  frame[7] = static_cast<char>(payload.size());
  return frame + payload;
}

template <typename Wrapper, typename Message>
std::unique_ptr<Wrapper> FullWrapper() {
  if constexpr (std::is_constructible_v<Wrapper, std::unique_ptr<Message>>) {
    return std::make_unique<Wrapper>(FullMessage<Message>());
  } else {
    auto wrapper = std::make_unique<Wrapper>();
    wrapper->encap()->CopyFrom(*FullMessage<Message>());
    return wrapper;
  }
}

// What protobuf itself leaks if an allocation fails while it parses. Wrappers with a true
// `allocates` create their message first.
template <typename Message>
std::ptrdiff_t LostByParsing(Point point, const std::string& frame, bool allocates) {
  if (allocates && --point.n == 0) return 0;
  const std::ptrdiff_t before = LiveAllocations();
  {
    Message message;
    Passes(point, [&] {
      static_cast<void>(
          message.ParseFromArray(frame.data() + 8, static_cast<int>(frame.size() - 8)));
    });
  }
  return LiveAllocations() - before;
}

template <typename Wrapper, typename Message>
void AddWrapper(const std::string& kind, std::vector<Operation>* operations) {
  constexpr bool kOnHeap = std::is_constructible_v<Wrapper, std::unique_ptr<Message>>;
  operations->push_back({"Unserialize" + kind,
                         [](const Point& point) {
                           std::string frame = FullFrame<Message>();
                           Wrapper wrapper;
                           return Passes(point, [&] { wrapper.Unserialize(frame.data()); });
                         },
                         [](const Point& point) {
                           const std::string frame = FullFrame<Message>();
                           return LostByParsing<Message>(point, frame, kOnHeap);
                         }});
  for (const bool full : {false, true}) {
    operations->push_back({(full ? "Render" : "RenderBriefly") + kind, [full](const Point& point) {
                             const auto wrapper = FullWrapper<Wrapper, Message>();
                             return Passes(point, [&] { wrapper->ToString(full); });
                           }});
  }
}

std::vector<Operation> AllOperations() {
  std::vector<Operation> operations = Operations();
  AddWrapper<VlanEncapsulationMessage, encapsulation::VlanMessage>("Vlan", &operations);
  AddWrapper<HostEncapsulationMessage, encapsulation::HostMessage>("Host", &operations);
  AddWrapper<MplsEncapsulationMessage, encapsulation::MplsMessage>("Mpls", &operations);
  AddWrapper<EcmpEncapsulationMessage, encapsulation::EcmpMessage>("Ecmp", &operations);
  AddWrapper<VrfEncapsulationMessage, encapsulation::VrfMessage>("Vrf", &operations);
  return operations;
}

class FailureTest : public ::testing::TestWithParam<Operation> {
 protected:
  FailureTest() {
    testing_support::StartQuietHost();
    // Allocates what the libraries keep from their first use.
    GetParam().run(kNowhere);
    GetParam().run(kNowhere);
  }
  ~FailureTest() override {
    Disarm();
    Hai::GetInstance()->set_client(nullptr);
  }

  // The host calls of a run without a failure.
  static HostCalls UndisturbedCalls() {
    ForgetHostCalls();
    EXPECT_TRUE(GetParam().run(kNowhere));
    return CallsOfHost();
  }

  // Fails at the first point of the kind, then at the second, and so on until the operation
  // succeeds. Returns the number of points.
  static std::size_t FailAtEachPoint(Point::Kind kind) {
    const HostCalls undisturbed = UndisturbedCalls();
    for (std::size_t n = 1; n <= kMaxPoints; ++n) {
      const Point point = {kind, n};
      SCOPED_TRACE(n);
      const std::ptrdiff_t lost = GetParam().lost ? GetParam().lost(point) : 0;

      ForgetHostCalls();
      const std::ptrdiff_t before = LiveAllocations();
      if (GetParam().run(point)) {
        EXPECT_EQ(CallsOfHost(), undisturbed);
        EXPECT_EQ(LiveAllocations(), before);
        return n - 1;
      }
      EXPECT_EQ(LiveAllocations() - before, lost);
      // Nothing allocates after the request or the single handler call.
      if (kind != Point::Kind::kHostCall && GetParam().name != "ServerFound") {
        EXPECT_EQ(CallsOfHost().requests, 0);
        EXPECT_EQ(CallsOfHost().notifications, 0);
      }
      EXPECT_EQ(UndisturbedCalls(), undisturbed) << "the next operation";
    }
    ADD_FAILURE() << "the operation never succeeds";
    return kMaxPoints;
  }

  static constexpr Point kNowhere = {Point::Kind::kAllocation, 0};
};

TEST_P(FailureTest, PropagatesAllocationFailures) {
  const std::size_t points = FailAtEachPoint(Point::Kind::kAllocation);

  EXPECT_EQ(FailAtEachPoint(Point::Kind::kAllocationsFromThere), points);
  RecordProperty("points", static_cast<int>(points));
}

TEST_P(FailureTest, PropagatesAllocationFailuresWithoutTraces) {
  SetQuietTrace(false);
  const std::size_t points = FailAtEachPoint(Point::Kind::kAllocation);

  EXPECT_EQ(FailAtEachPoint(Point::Kind::kAllocationsFromThere), points);
  RecordProperty("points", static_cast<int>(points));
}

TEST_P(FailureTest, PropagatesWhatTheHostThrows) {
  const HostCalls calls = UndisturbedCalls();

  const int points = calls.log_lines + calls.requests + calls.notifications;
  EXPECT_EQ(FailAtEachPoint(Point::Kind::kHostCall), static_cast<std::size_t>(points));
  RecordProperty("points", points);
}

// Logging the missing client is a host call too. VRFs are not programmed without a client.
class FailureWithoutClientTest : public FailureTest {};

TEST_P(FailureWithoutClientTest, PropagatesWhatTheHostThrows) {
  Hai::GetInstance()->set_client(nullptr);
  const HostCalls calls = UndisturbedCalls();

  EXPECT_EQ(calls.requests, 0);
  const int points = calls.log_lines + calls.notifications;
  EXPECT_EQ(FailAtEachPoint(Point::Kind::kHostCall), static_cast<std::size_t>(points));
  RecordProperty("points", points);
}

INSTANTIATE_TEST_SUITE_P(, FailureTest, ::testing::ValuesIn(AllOperations()),
                         [](const auto& tested) { return tested.param.name; });

std::vector<Operation> OperationsWithoutClient() {
  std::vector<Operation> operations = Operations();
  operations.erase(std::remove_if(operations.begin(), operations.end(),
                                  [](const Operation& one) { return one.needs_client; }),
                   operations.end());
  return operations;
}

INSTANTIATE_TEST_SUITE_P(, FailureWithoutClientTest, ::testing::ValuesIn(OperationsWithoutClient()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace dest_mng
