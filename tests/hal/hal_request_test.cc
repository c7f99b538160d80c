/// Requests made from the library's messages, and their results.

#include "reference/hal/hal_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/hal/recording_results.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct OperationCase {
  HalOperation operation;
  int value;
  const char* name;
  HalKind kind;
  HalAction action;
  /// Empty for operations without a result.
  const char* result;
};

std::string CaseName(const testing::TestParamInfo<OperationCase>& test) {
  std::string name = test.param.name;
  name.erase(name.find('-'), 1);
  return name;
}

class HalOperationTest : public testing::TestWithParam<OperationCase> {};

TEST_P(HalOperationTest, HasItsNameKindAndAction) {
  const OperationCase& test = GetParam();
  EXPECT_EQ(static_cast<int>(test.operation), test.value);
  EXPECT_EQ(OperationName(test.operation), test.name);
  EXPECT_EQ(KindOf(test.operation), test.kind);
  EXPECT_EQ(ActionOf(test.operation), test.action);
}

TEST_P(HalOperationTest, ReportsToItsResultOperation) {
  const OperationCase& test = GetParam();
  std::vector<Result> results;
  RecordingResults recorder([&results](const Result& result) { results.push_back(result); });
  ReportResult(&recorder, {test.operation, 5, 9, {}}, HalReturnCode{4000000000}, "no memory");
  if (std::string(test.result).empty()) {
    EXPECT_THAT(results, IsEmpty());
    EXPECT_FALSE(HasResult(test.operation));
    return;
  }
  const std::uint32_t secondary_id = test.kind == HalKind::kMpls ? 9 : 0;
  EXPECT_THAT(results, ElementsAre(Result{test.result, 4000000000, 5, secondary_id, 4000000000,
                                          "no memory"}));
  EXPECT_TRUE(HasResult(test.operation));
  EXPECT_EQ(ReportedCode(), kHalSuccess);
}

INSTANTIATE_TEST_SUITE_P(
    All, HalOperationTest,
    testing::Values(OperationCase{HalOperation::kInstallVrf, 3, "install-vrf", HalKind::kVrf,
                                  HalAction::kInstall, ""},
                    OperationCase{HalOperation::kDestroyVrf, 4, "destroy-vrf", HalKind::kVrf,
                                  HalAction::kDestroy, ""},
                    OperationCase{HalOperation::kInstallVlan, 5, "install-vlan", HalKind::kVlan,
                                  HalAction::kInstall, "InstallVlan"},
                    OperationCase{HalOperation::kDestroyVlan, 6, "destroy-vlan", HalKind::kVlan,
                                  HalAction::kDestroy, "DestroyVlan"},
                    OperationCase{HalOperation::kReplaceVlan, 7, "replace-vlan", HalKind::kVlan,
                                  HalAction::kReplace, "ReplaceVlan"},
                    OperationCase{HalOperation::kInstallHost, 8, "install-host", HalKind::kHost,
                                  HalAction::kInstall, "InstallHost"},
                    OperationCase{HalOperation::kDestroyHost, 9, "destroy-host", HalKind::kHost,
                                  HalAction::kDestroy, "DestroyHost"},
                    OperationCase{HalOperation::kReplaceHost, 10, "replace-host", HalKind::kHost,
                                  HalAction::kReplace, "ReplaceHost"},
                    OperationCase{HalOperation::kInstallEcmp, 11, "install-ecmp", HalKind::kEcmp,
                                  HalAction::kInstall, "InstallEcmp"},
                    OperationCase{HalOperation::kDestroyEcmp, 12, "destroy-ecmp", HalKind::kEcmp,
                                  HalAction::kDestroy, "DestroyEcmp"},
                    OperationCase{HalOperation::kInstallMpls, 13, "install-mpls", HalKind::kMpls,
                                  HalAction::kInstall, "InstallMpls"},
                    OperationCase{HalOperation::kDestroyMpls, 14, "destroy-mpls", HalKind::kMpls,
                                  HalAction::kDestroy, "DestroyMpls"},
                    OperationCase{HalOperation::kReplaceMpls, 15, "replace-mpls", HalKind::kMpls,
                                  HalAction::kReplace, "ReplaceMpls"}),
    CaseName);

TEST(HalOperationValueTest, OutsideTheOperationsThrows) {
  EXPECT_THROW(OperationName(HalOperation{2}), std::out_of_range);
  EXPECT_THROW(KindOf(HalOperation{16}), std::out_of_range);
}

TEST(HalKindTest, HasItsName) {
  EXPECT_EQ(HalKindName(HalKind::kVrf), "vrf");
  EXPECT_EQ(HalKindName(HalKind::kVlan), "vlan");
  EXPECT_EQ(HalKindName(HalKind::kHost), "host");
  EXPECT_EQ(HalKindName(HalKind::kEcmp), "ecmp");
  EXPECT_EQ(HalKindName(HalKind::kMpls), "mpls");
}

void ExpectRequest(const HalRequest& request, HalOperation operation, std::uint32_t id,
                   std::uint32_t secondary_id, const std::string& payload) {
  EXPECT_EQ(request.operation, operation);
  EXPECT_EQ(request.id, id);
  EXPECT_EQ(request.secondary_id, secondary_id);
  EXPECT_EQ(request.payload, payload);
}

HalRequest RequestOf(HalOperation operation, const AppMessage& wrapper) {
  HalRequest request;
  MakeRequest(operation, wrapper, &request);
  return request;
}

TEST(MakeRequestTest, CopiesAVrf) {
  VrfEncapsulationMessage message;
  message.encap()->set_vrf_id(7);
  for (const auto operation : {HalOperation::kInstallVrf, HalOperation::kDestroyVrf}) {
    ExpectRequest(RequestOf(operation, message), operation, 7, 0, "\x08\x07");
  }
}

TEST(MakeRequestTest, CopiesAVlan) {
  const auto vlan = Vlan(7);
  const VlanEncapsulationMessage message(std::make_unique<encapsulation::VlanMessage>(vlan));
  for (const auto operation :
       {HalOperation::kInstallVlan, HalOperation::kDestroyVlan, HalOperation::kReplaceVlan}) {
    ExpectRequest(RequestOf(operation, message), operation, 7, 0, vlan.SerializeAsString());
  }
}

TEST(MakeRequestTest, CopiesAHost) {
  const auto host = HostOn(4294967295, 3);
  const HostEncapsulationMessage message(std::make_unique<encapsulation::HostMessage>(host));
  for (const auto operation :
       {HalOperation::kInstallHost, HalOperation::kDestroyHost, HalOperation::kReplaceHost}) {
    ExpectRequest(RequestOf(operation, message), operation, 4294967295, 0,
                  host.SerializeAsString());
  }
}

TEST(MakeRequestTest, CopiesAnEcmpGroup) {
  EcmpEncapsulationMessage message;
  *message.encap() = Ecmp(7, {1, 1, 2});
  for (const auto operation : {HalOperation::kInstallEcmp, HalOperation::kDestroyEcmp}) {
    ExpectRequest(RequestOf(operation, message), operation, 7, 0,
                  Ecmp(7, {1, 1, 2}).SerializeAsString());
  }
}

TEST(MakeRequestTest, CopiesAnMplsDestinationWithItsPassThroughValue) {
  auto mpls = MplsOn(5, 3);
  mpls.set_pass_through_value(9);
  const MplsEncapsulationMessage message(std::make_unique<encapsulation::MplsMessage>(mpls));
  for (const auto operation :
       {HalOperation::kInstallMpls, HalOperation::kDestroyMpls, HalOperation::kReplaceMpls}) {
    ExpectRequest(RequestOf(operation, message), operation, 5, 9, mpls.SerializeAsString());
  }
}

TEST(MakeRequestTest, UsesZeroForMissingIds) {
  const MplsEncapsulationMessage message(std::make_unique<encapsulation::MplsMessage>());
  ExpectRequest(RequestOf(HalOperation::kInstallMpls, message), HalOperation::kInstallMpls, 0, 0,
                "");
}

TEST(MakeRequestTest, CopiesNothingFromAWrapperWithoutAMessage) {
  const VlanEncapsulationMessage message;
  ExpectRequest(RequestOf(HalOperation::kInstallVlan, message), HalOperation::kInstallVlan, 0, 0,
                "");
}

TEST(MakeRequestTest, PutsThePayloadIntoTheMemoryOfTheOneBefore) {
  const VlanEncapsulationMessage message(std::make_unique<encapsulation::VlanMessage>(Vlan(7)));
  HalRequest request;
  request.payload.assign(100, 'x');
  const char* const place = request.payload.data();
  MakeRequest(HalOperation::kInstallVlan, message, &request);
  EXPECT_EQ(request.payload, Vlan(7).SerializeAsString());
  EXPECT_EQ(request.payload.data(), place);
}

TEST(MakeRequestTest, KeepsNothingOfTheRequestBefore) {
  HalRequest request = {HalOperation::kDestroyMpls, 5, 9, "older", 3};
  MakeRequest(HalOperation::kInstallVlan, VlanEncapsulationMessage(), &request);
  ExpectRequest(request, HalOperation::kInstallVlan, 0, 0, "");
  EXPECT_EQ(request.number, 0U);
}

TEST(MakeRequestTest, CopiesNothingFromAnotherKind) {
  const HostEncapsulationMessage message(std::make_unique<encapsulation::HostMessage>(Host(7)));
  ExpectRequest(RequestOf(HalOperation::kInstallVlan, message), HalOperation::kInstallVlan, 0, 0,
                "");
}

}  // namespace
}  // namespace reference
