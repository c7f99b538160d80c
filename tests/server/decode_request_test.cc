#include "reference/server/decode_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reference/wire/frame.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

struct Decoded {
  bool understood;
  HalRequest request;
  /// The use of the message, as text.
  std::vector<std::string> used;
};

Decoded Decode(HalOperation operation, const std::string& payload) {
  std::string bytes;
  AppendFrame(static_cast<FrameType>(operation), 7, payload, &bytes);
  FrameSplitter splitter(kDefaultMaxPayload);
  splitter.Feed(bytes);
  // Nothing of an earlier request remains.
  Decoded decoded{false, {HalOperation::kInstallVrf, 98, 99, "earlier"}, {}};
  decoded.understood =
      DecodeRequest(*splitter.Next(), &decoded.request, [&decoded](const auto& message) {
        decoded.used.push_back(std::to_string(decoded.request.id) + ": " + message.GetTypeName() +
                               " " + message.ShortDebugString());
      });
  return decoded;
}

struct Case {
  const char* name;
  HalOperation operation;
  std::string payload;
  std::uint32_t id;
  std::uint32_t secondary_id;
};

encapsulation::MplsMessage MplsWithPassThrough() {
  encapsulation::MplsMessage mpls = MplsOn(9, 5);
  mpls.set_pass_through_value(0xFFFFFFFF);
  return mpls;
}

class DecodeRequestTest : public ::testing::TestWithParam<Case> {};

TEST_P(DecodeRequestTest, GivesIdsAndPayload) {
  const Decoded decoded = Decode(GetParam().operation, GetParam().payload);
  EXPECT_TRUE(decoded.understood);
  EXPECT_EQ(decoded.request.operation, GetParam().operation);
  EXPECT_EQ(decoded.request.id, GetParam().id);
  EXPECT_EQ(decoded.request.secondary_id, GetParam().secondary_id);
  EXPECT_EQ(decoded.request.payload, GetParam().payload);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DecodeRequestTest,
    ::testing::Values(
        Case{"Vrf", HalOperation::kInstallVrf, Vrf(7).SerializeAsString(), 7, 0},
        Case{"Vlan", HalOperation::kReplaceVlan, Vlan(5).SerializeAsString(), 5, 0},
        Case{"Host", HalOperation::kDestroyHost, HostOn(6, 5).SerializeAsString(), 6, 0},
        Case{"Ecmp", HalOperation::kInstallEcmp, Ecmp(8, {5, 6}).SerializeAsString(), 8, 0},
        Case{"Mpls", HalOperation::kReplaceMpls, MplsWithPassThrough().SerializeAsString(), 9,
             0xFFFFFFFF},
        Case{"Empty", HalOperation::kInstallVlan, "", 0, 0},
        // An unusual but valid encoding: the id twice, and an unknown field.
        Case{"Unusual", HalOperation::kInstallVlan, std::string("\x18\x04\x18\x05\xA0\x06\x01"), 5,
             0}),
    [](const auto& tested) { return tested.param.name; });

TEST(DecodeRequest, LetsTheMessageBeUsedOnceTheIdsAreSet) {
  const Decoded decoded = Decode(HalOperation::kInstallEcmp, Ecmp(8, {5, 6}).SerializeAsString());
  EXPECT_THAT(decoded.used, ::testing::ElementsAre(
                                "8: encapsulation.EcmpMessage db_id: 8 members: 5 members: 6"));
}

TEST(DecodeRequest, RefusesWhatTheWrapperRefuses) {
  for (int operation = 3; operation <= 15; ++operation) {
    const Decoded decoded = Decode(static_cast<HalOperation>(operation), "\x18\x05\xFF");
    EXPECT_FALSE(decoded.understood) << operation;
    EXPECT_EQ(decoded.request.id, 0U);
    EXPECT_EQ(decoded.request.secondary_id, 0U);
    EXPECT_THAT(decoded.used, ::testing::IsEmpty());
  }
}

}  // namespace
}  // namespace reference
