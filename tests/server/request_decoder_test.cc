#include "reference/server/request_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "reference/wire/frame.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

std::string FrameOf(HalOperation operation, const std::string& payload) {
  std::string bytes;
  AppendFrame(static_cast<FrameType>(operation), 7, payload, &bytes);
  return bytes;
}

struct Decoded {
  HalRequest request;
  /// The message as text; nothing if the payload did not parse.
  std::optional<std::string> message;
};

Decoded Decode(HalOperation operation, const std::string& payload, RequestDecoder* decoder) {
  FrameSplitter splitter(kDefaultMaxPayload);
  splitter.Feed(FrameOf(operation, payload));
  // Nothing of an earlier request remains.
  Decoded decoded{{HalOperation::kInstallVrf, 98, 99, "earlier"}, std::nullopt};
  const google::protobuf::Message* const message =
      decoder->Decode(*splitter.Next(), &decoded.request);
  if (message == nullptr) return decoded;
  decoded.message = message->GetTypeName() + ' ' + message->ShortDebugString();
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

class RequestDecoderTest : public ::testing::TestWithParam<Case> {};

TEST_P(RequestDecoderTest, GivesIds) {
  RequestDecoder decoder;
  const Decoded decoded = Decode(GetParam().operation, GetParam().payload, &decoder);
  EXPECT_TRUE(decoded.message);
  EXPECT_EQ(decoded.request.operation, GetParam().operation);
  EXPECT_EQ(decoded.request.id, GetParam().id);
  EXPECT_EQ(decoded.request.secondary_id, GetParam().secondary_id);
  EXPECT_EQ(decoded.request.payload, "") << "the frame has it";
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, RequestDecoderTest,
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

TEST(RequestDecoder, GivesTheMessage) {
  RequestDecoder decoder;
  const Decoded decoded =
      Decode(HalOperation::kInstallEcmp, Ecmp(8, {5, 6}).SerializeAsString(), &decoder);
  EXPECT_EQ(decoded.message, "encapsulation.EcmpMessage db_id: 8 members: 5 members: 6");
}

TEST(RequestDecoder, KeepsNothingOfAnEarlierMessage) {
  encapsulation::VlanMessage large = Vlan(5, 9000);
  large.set_lim_id("abcd");
  large.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  large.add_list_values("a value");
  // And an unknown field.
  const std::string earlier = large.SerializeAsString() + "\xA0\x06\x01";
  RequestDecoder decoder;
  // A payload that parses, and one that does not.
  for (const std::string& end : {std::string(), std::string("\x08")}) {
    Decode(HalOperation::kInstallVlan, earlier + end, &decoder);
    const Decoded decoded = Decode(HalOperation::kInstallVlan, "\x18\x06", &decoder);
    EXPECT_EQ(decoded.message, "encapsulation.VlanMessage vlan_destination_id: 6");
  }
}

/// Whether the kind's wrapper parses the payload.
bool WrapperParses(HalOperation operation, const std::string& payload) {
  std::string frame = FrameOf(operation, payload);
  return VisitKind(KindOf(operation), [&frame](auto row) {
    typename decltype(row)::Wrapper wrapper;
    return wrapper.Unserialize(frame.data());
  });
}

TEST(RequestDecoder, RefusesWhatTheWrapperRefuses) {
  for (int value = 3; value <= 15; ++value) {
    const auto operation = static_cast<HalOperation>(value);
    const std::string payload = "\x18\x05\xFF";
    ASSERT_FALSE(WrapperParses(operation, payload)) << value;
    RequestDecoder decoder;
    const Decoded decoded = Decode(operation, payload, &decoder);
    EXPECT_FALSE(decoded.message) << value;
    EXPECT_EQ(decoded.request.id, 0U);
    EXPECT_EQ(decoded.request.secondary_id, 0U);
    EXPECT_EQ(decoded.request.payload, "");
  }
}

}  // namespace
}  // namespace reference
