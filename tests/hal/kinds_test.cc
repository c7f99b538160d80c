/// The table of kinds: rows, operations, and the two bases that route all of them through one
/// function.

#include "reference/hal/kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(VisitKindTest, CallsTheFunctionWithTheRowAndReturnsItsResult) {
  std::vector<std::string> messages;
  for (const HalKind kind : kAllHalKinds) {
    messages.push_back(VisitKind(kind, [kind](auto row) {
      EXPECT_EQ(row.kKind, kind);
      return decltype(row)::Message::descriptor()->name();
    }));
  }
  EXPECT_THAT(messages, ElementsAre("VrfMessage", "VlanMessage", "HostMessage", "EcmpMessage",
                                    "MplsMessage"));
}

TEST(VisitKindTest, ThrowsForAValueThatIsNoKind) {
  EXPECT_THROW(HalKindName(HalKind{5}), std::out_of_range);
}

TEST(HalOperationsTest, AreTheValuesFrom3To15) {
  for (int value = 0; value < 256; ++value) {
    EXPECT_EQ(IsHalOperation(static_cast<std::uint8_t>(value)), value >= 3 && value <= 15) << value;
  }
}

class RequestLog : public HalClientBase {
 public:
  static constexpr HalReturnCode kAnswer{1234};

  ReturnCode InitEncapsulationModule() override { return {}; }

  std::vector<HalOperation> operations;
  AppMessage* wrapper = nullptr;

 private:
  ReturnCode OnRequest(HalOperation operation, AppMessage* carried) override {
    operations.push_back(operation);
    wrapper = carried;
    return kAnswer;
  }
};

TEST(HalClientBaseTest, PassesEachRequestOnWithItsOperation) {
  VlanEncapsulationMessage wrapper;
  for (const OperationTraits& traits : kAllHalOperations) {
    RequestLog client;
    EXPECT_EQ((client.*traits.request)(&wrapper), RequestLog::kAnswer);
    EXPECT_THAT(client.operations, ElementsAre(traits.operation)) << traits.name;
    EXPECT_EQ(client.wrapper, &wrapper);
  }
}

class ResultLog : public HalCallbackBase {
 public:
  std::vector<HalOperation> operations;
  HalReturnCode code{};
  ResultIds ids;

 private:
  void OnResult(HalOperation operation, ReturnCode reported, const ResultIds& carried) override {
    operations.push_back(operation);
    code = reported;
    ids = carried;
  }
};

TEST(HalCallbackBaseTest, PassesEachResultOnWithItsOperation) {
  for (const OperationTraits& traits : kAllHalOperations) {
    ResultLog results;
    if (!HasResult(traits.operation)) continue;
    traits.report(&results, HalReturnCode{77}, {5, 9});
    EXPECT_THAT(results.operations, ElementsAre(traits.operation)) << traits.name;
    EXPECT_EQ(results.code, HalReturnCode{77});
    EXPECT_EQ(results.ids.id, 5U);
    EXPECT_EQ(results.ids.secondary_id, traits.kind == HalKind::kMpls ? 9U : 0U);
  }
}

TEST(HalCallbackBaseTest, IgnoresTheResultOfTheInitialisation) {
  ResultLog results;
  results.InitEncapsulationModuleResCallback({});
  EXPECT_THAT(results.operations, IsEmpty());
}

}  // namespace
}  // namespace reference
