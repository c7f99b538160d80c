/// How an MPLS destination's record and attributes appear in the HAL's message.

#include <boost/throw_exception.hpp>
#include <boost/variant/get.hpp>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_mpls.h"

namespace dest_mng {
namespace {

using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::ThrowsMessage;
using testing_support::Events;

using MplsObject = testing_support::TestObject<DbMplsObject, DestMplsMessage>;

constexpr char kBadGet[] = "boost::bad_get: failed value get using boost::get";
constexpr char kDropTrace[] =
    "log 10 src/dest_mpls/hai/hai_dest_mpls TranslateMplsObjectToEncapMessage:70 "
    "[TX ===>] hai:mpls:No neighbor active, turn on Drop Flag";

class MplsTranslationTest : public testing_support::HaiTest {
 protected:
  /// An object with an active neighbour.
  MplsTranslationTest() { attribute("host_dest_id") = db::Attribute(9); }

  /// Translates the object and returns the message as text.
  std::string Translate() {
    encapsulation::MplsMessage message;
    adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message);
    return message.ShortDebugString();
  }

  DestMplsMessage& record() { return object_.record(); }
  db::Attribute& attribute(const std::string& name) { return object_.object.attributes[name]; }

  HaiL3MplsEncapsulationMpls adapter_;
  MplsObject object_;
};

TEST_F(MplsTranslationTest, EmptyRecordSetsTheVlanOrTunnelOnly) {
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0");
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(MplsTranslationTest, EveryFieldIsTranslated) {
  record().set_mpls_dest_id(17);
  record().set_lim_id("\x01\x00\x00\x01"s);
  record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  record().set_label(1001);
  record().set_pass_through_value(77);
  record().add_capabilities(MplsCapabilities{3});
  record().add_capabilities(MplsCapabilities{1});
  attribute("vlan_dest_id") = db::Attribute(5);
  attribute("host_dest_id") = db::Attribute(0);
  EXPECT_EQ(Translate(),
            R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "\001\000\000\001" )"
            R"(dest_mac: "\002\000\000\000\001\013" labels: 1001 )"
            "capabilities: MPLS_CAPABILITY_PUSH capabilities: MPLS_CAPABILITY_PROTECTION "
            "flag: ACTION_DROP pass_through_value: 77");
}

TEST_F(MplsTranslationTest, IrrelevantRecordFieldsAreIgnored) {
  record().set_name("lsp-7");
  record().set_tunnel_dest_id(6);
  record().set_db_id(4);
  record().set_vrf(3);
  record().set_secondary_id(2);
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0");
}

TEST_F(MplsTranslationTest, PresentZerosAreSet) {
  record().set_mpls_dest_id(0);
  record().set_label(0);
  record().set_pass_through_value(0);
  EXPECT_EQ(Translate(), "dest_id: 0 vlan_tunnel_dest_id: 0 labels: 0 pass_through_value: 0");
}

TEST_F(MplsTranslationTest, LargestValuesAreSet) {
  record().set_mpls_dest_id(std::numeric_limits<std::uint32_t>::max());
  record().set_label(std::numeric_limits<std::uint32_t>::max());
  record().set_pass_through_value(std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Translate(),
            "dest_id: 4294967295 vlan_tunnel_dest_id: 0 labels: 4294967295 "
            "pass_through_value: 4294967295");
}

TEST_F(MplsTranslationTest, PresentEmptyBytesAreSet) {
  record().set_lim_id("");
  record().set_dest_mac("");
  EXPECT_EQ(Translate(), R"(vlan_tunnel_dest_id: 0 lim_id: "" dest_mac: "")");
}

TEST_F(MplsTranslationTest, BytesOfAnyLengthAreCopied) {
  record().set_lim_id("\x01\x00\x03\x04\x05\x00"s);
  record().set_dest_mac("\x02\x00"s);
  EXPECT_EQ(Translate(),
            R"(vlan_tunnel_dest_id: 0 lim_id: "\001\000\003\004\005\000" dest_mac: "\002\000")");
}

TEST_F(MplsTranslationTest, NoFieldIsCleared) {
  encapsulation::MplsMessage message;
  message.set_dest_id(17);
  message.add_labels(1001);
  message.set_flag(encapsulation::ActionFlags{2});
  record().set_label(1002);
  adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_EQ(message.ShortDebugString(),
            "dest_id: 17 vlan_tunnel_dest_id: 0 labels: 1001 labels: 1002 flag: ACTION_TO_CPU");
}

TEST_F(MplsTranslationTest, PassThroughValueIsNotRendered) {
  record().set_pass_through_value(424242);
  const MplsEncapsulationMessage wrapper = adapter_.TranslateMessage(object_.pointer());
  EXPECT_EQ(wrapper.message()->ShortDebugString(),
            "vlan_tunnel_dest_id: 0 pass_through_value: 424242");
  EXPECT_EQ(wrapper.ToString(true),
            "MplsEncapsulationMessage(this=" + testing_support::Address(&wrapper) +
                "): MplsMessage(mpls destination id(0), vlan/tunnel destination id(0), "
                "lim id(Empty), destination mac address(Empty), labels(size=0), "
                "MPLS Capabilities(), HAL Flag(None))");
}

TEST_F(MplsTranslationTest, MissingAttributesAreLeftEmpty) {
  object_.object.attributes.clear();
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0 flag: ACTION_DROP");
  ASSERT_THAT(object_.object.attributes, ElementsAre(Key("host_dest_id"), Key("vlan_dest_id")));
  for (const char* name : {"host_dest_id", "vlan_dest_id"}) {
    EXPECT_FALSE(attribute(name).present) << name;
    EXPECT_EQ(boost::get<int>(attribute(name).value), 0) << name;
  }
  EXPECT_THAT(object_.object.attribute_lists, IsEmpty());
}

TEST_F(MplsTranslationTest, PresentAttributesAreUnchanged) {
  attribute("vlan_dest_id") = db::Attribute(5);
  Translate();
  ASSERT_THAT(object_.object.attributes, ElementsAre(Key("host_dest_id"), Key("vlan_dest_id")));
  EXPECT_EQ(boost::get<int>(attribute("vlan_dest_id").value), 5);
  EXPECT_TRUE(attribute("vlan_dest_id").present);
  EXPECT_EQ(boost::get<int>(attribute("host_dest_id").value), 9);
  EXPECT_TRUE(attribute("host_dest_id").present);
}

TEST_F(MplsTranslationTest, VlanDestIdThatIsNotPresentReadsAsZero) {
  attribute("vlan_dest_id") = db::Attribute(5);
  attribute("vlan_dest_id").present = false;
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0");
}

struct VlanDestIdCase {
  const char* name;
  int value;
  const char* message;
};

class MplsVlanDestIdTest : public MplsTranslationTest,
                           public testing::WithParamInterface<VlanDestIdCase> {};

TEST_P(MplsVlanDestIdTest, IsAlwaysSet) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  EXPECT_EQ(Translate(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Values, MplsVlanDestIdTest,
                         testing::Values(VlanDestIdCase{"Zero", 0, "vlan_tunnel_dest_id: 0"},
                                         VlanDestIdCase{"Positive", 5, "vlan_tunnel_dest_id: 5"},
                                         VlanDestIdCase{"MinusOne", -1,
                                                        "vlan_tunnel_dest_id: 4294967295"},
                                         VlanDestIdCase{"Smallest", std::numeric_limits<int>::min(),
                                                        "vlan_tunnel_dest_id: 2147483648"}),
                         [](const auto& test) { return test.param.name; });

TEST_F(MplsTranslationTest, VirtualCircuitRidesOnItsTunnel) {
  record().set_vc_label(300);
  record().set_tunnel_dest_id(6);
  attribute("vlan_dest_id") = db::Attribute(5);
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 6");
}

TEST_F(MplsTranslationTest, VirtualCircuitWithoutATunnelHasZero) {
  record().set_vc_label(0);
  attribute("vlan_dest_id") = db::Attribute(5);
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0");
}

TEST_F(MplsTranslationTest, VirtualCircuitNeverGainsAVlanDestId) {
  record().set_vc_label(300);
  object_.object.attributes.clear();
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0 flag: ACTION_DROP");
  EXPECT_THAT(object_.object.attributes, ElementsAre(Key("host_dest_id")));
}

TEST_F(MplsTranslationTest, VirtualCircuitNeverReadsItsVlanDestId) {
  record().set_vc_label(300);
  record().set_tunnel_dest_id(6);
  attribute("vlan_dest_id") = db::Attribute("5"s);
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 6");
}

struct AlternativeCase {
  const char* name;
  db::Attribute::Value value;
};

class MplsWrongAlternativeTest : public MplsTranslationTest,
                                 public testing::WithParamInterface<AlternativeCase> {};

TEST_P(MplsWrongAlternativeTest, OfVlanDestIdThrowsWhenPresent) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  EXPECT_THAT([this] { Translate(); }, ThrowsMessage<boost::wrapexcept<boost::bad_get>>(kBadGet));
}

TEST_P(MplsWrongAlternativeTest, OfVlanDestIdReadsAsZeroWhenNotPresent) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  attribute("vlan_dest_id").present = false;
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0");
}

TEST_P(MplsWrongAlternativeTest, OfHostDestIdThrowsWhenPresent) {
  attribute("host_dest_id") = db::Attribute(GetParam().value);
  EXPECT_THAT([this] { Translate(); }, ThrowsMessage<boost::wrapexcept<boost::bad_get>>(kBadGet));
}

TEST_P(MplsWrongAlternativeTest, OfHostDestIdReadsAsZeroWhenNotPresent) {
  attribute("host_dest_id") = db::Attribute(GetParam().value);
  attribute("host_dest_id").present = false;
  EXPECT_EQ(Translate(), "vlan_tunnel_dest_id: 0 flag: ACTION_DROP");
}

INSTANTIATE_TEST_SUITE_P(Alternatives, MplsWrongAlternativeTest,
                         testing::Values(AlternativeCase{"String", "5"s},
                                         AlternativeCase{"Counter", std::uint64_t{5}},
                                         AlternativeCase{"Bytes", db::Attribute::Bytes{5}}),
                         [](const auto& test) { return test.param.name; });

/// Fills every translated field of a record.
void FillRecord(DestMplsMessage* record) {
  record->set_mpls_dest_id(17);
  record->set_lim_id("\x01\x00\x00\x01"s);
  record->set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  record->set_label(1001);
  record->set_pass_through_value(77);
  record->add_capabilities(MplsCapabilities{2});
}

// The whole message except for the flag.
constexpr char kMessageWithoutFlag[] =
    R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "\001\000\000\001" )"
    R"(dest_mac: "\002\000\000\000\001\013" labels: 1001 capabilities: MPLS_CAPABILITY_SWAP )"
    "pass_through_value: 77";

TEST_F(MplsTranslationTest, BadVlanDestIdThrowsAfterTheFirstStep) {
  FillRecord(&record());
  object_.object.attributes.clear();
  attribute("vlan_dest_id") = db::Attribute("5"s);
  encapsulation::MplsMessage message;
  EXPECT_THROW(adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message),
               boost::bad_get);
  EXPECT_EQ(message.ShortDebugString(), "dest_id: 17");
  EXPECT_THAT(object_.object.attributes, ElementsAre(Key("vlan_dest_id")));
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(MplsTranslationTest, BadHostDestIdThrowsAfterAllButTheFlag) {
  FillRecord(&record());
  attribute("vlan_dest_id") = db::Attribute(5);
  attribute("host_dest_id") = db::Attribute("9"s);
  encapsulation::MplsMessage message;
  EXPECT_THROW(adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message),
               boost::bad_get);
  EXPECT_EQ(message.ShortDebugString(), kMessageWithoutFlag);
  EXPECT_THAT(Events(), IsEmpty());
}

struct CapabilityCase {
  const char* name;
  int capability;
  encapsulation::MplsCapabilities encap_capability;
  const char* text;
};

class MplsCapabilityTest : public MplsTranslationTest,
                           public testing::WithParamInterface<CapabilityCase> {};

TEST_P(MplsCapabilityTest, IsMapped) {
  EXPECT_EQ(adapter_.TranslateMplsCapabilityToEncapCapability(
                static_cast<MplsCapabilities>(GetParam().capability)),
            GetParam().encap_capability);
}

TEST_P(MplsCapabilityTest, IsMappedInTheTranslationAndRendered) {
  record().add_capabilities(static_cast<MplsCapabilities>(GetParam().capability));
  const MplsEncapsulationMessage wrapper = adapter_.TranslateMessage(object_.pointer());
  EXPECT_THAT(static_cast<encapsulation::MplsMessage&>(*wrapper.message()).capabilities(),
              ElementsAre(GetParam().encap_capability));
  EXPECT_THAT(wrapper.ToString(true), EndsWith(", labels(size=0), MPLS Capabilities("s +
                                               GetParam().text + "), HAL Flag(None))"));
}

INSTANTIATE_TEST_SUITE_P(
    Values, MplsCapabilityTest,
    testing::Values(CapabilityCase{"One", 1, encapsulation::MplsCapabilities{1}, "Protection"},
                    CapabilityCase{"Two", 2, encapsulation::MplsCapabilities{2}, "Swap"},
                    CapabilityCase{"Three", 3, encapsulation::MplsCapabilities{4}, "Push"},
                    CapabilityCase{"Four", 4, encapsulation::MplsCapabilities{3}, "Forward"},
                    CapabilityCase{"Five", 5, encapsulation::MplsCapabilities{5}, "VCLabel"},
                    CapabilityCase{"Zero", 0, encapsulation::MplsCapabilities{3}, "Forward"},
                    CapabilityCase{"FirstUnknown", 6, encapsulation::MplsCapabilities{3},
                                   "Forward"},
                    CapabilityCase{"Largest", std::numeric_limits<int>::max(),
                                   encapsulation::MplsCapabilities{3}, "Forward"},
                    CapabilityCase{"MinusOne", -1, encapsulation::MplsCapabilities{3}, "Forward"},
                    CapabilityCase{"Smallest", std::numeric_limits<int>::min(),
                                   encapsulation::MplsCapabilities{3}, "Forward"}),
    [](const auto& test) { return test.param.name; });

TEST_F(MplsTranslationTest, CapabilitiesKeepOrderAndDuplicates) {
  for (const int capability : {3, 4, 9}) {
    record().add_capabilities(static_cast<MplsCapabilities>(capability));
  }
  const MplsEncapsulationMessage wrapper = adapter_.TranslateMessage(object_.pointer());
  EXPECT_THAT(static_cast<encapsulation::MplsMessage&>(*wrapper.message()).capabilities(),
              ElementsAre(4, 3, 3));
  EXPECT_THAT(wrapper.ToString(true), EndsWith(", labels(size=0), MPLS Capabilities(Push, Forward, "
                                               "Forward), HAL Flag(None))"));
}

struct NeighborCase {
  const char* name;
  std::optional<db::Attribute> host_dest_id;
  bool active;
};

class MplsNeighborTest : public MplsTranslationTest,
                         public testing::WithParamInterface<NeighborCase> {
 protected:
  MplsNeighborTest() {
    FillRecord(&record());
    object_.object.attributes.clear();
    attribute("vlan_dest_id") = db::Attribute(5);
    if (GetParam().host_dest_id) attribute("host_dest_id") = *GetParam().host_dest_id;
  }

  /// The message without the flag; an active neighbour's id does not appear in it.
  void ExpectTranslation() {
    encapsulation::MplsMessage message;
    adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message);
    EXPECT_EQ(message.has_flag(), !GetParam().active);
    EXPECT_EQ(static_cast<int>(message.flag()), GetParam().active ? 0 : 1);
    message.clear_flag();
    EXPECT_EQ(message.ShortDebugString(), kMessageWithoutFlag);
  }
};

TEST_P(MplsNeighborTest, DecidesTheDropFlagAndItsTrace) {
  ExpectTranslation();
  if (GetParam().active) {
    EXPECT_THAT(Events(), IsEmpty());
  } else {
    EXPECT_THAT(Events(), ElementsAre(kDropTrace));
  }
}

TEST_P(MplsNeighborTest, DecidesTheDropFlagOfAVirtualCircuit) {
  record().set_vc_label(300);
  record().set_tunnel_dest_id(5);
  object_.object.attributes.erase("vlan_dest_id");
  ExpectTranslation();
  EXPECT_EQ(object_.object.attributes.count("vlan_dest_id"), 0U);
  if (GetParam().active) {
    EXPECT_THAT(Events(), IsEmpty());
  } else {
    EXPECT_THAT(Events(), ElementsAre(kDropTrace));
  }
}

TEST_P(MplsNeighborTest, DecidesTheDropFlagWithoutTrace) {
  testing_support::SetTrace(false);
  ExpectTranslation();
  EXPECT_THAT(Events(), IsEmpty());
}

db::Attribute NotPresent(db::Attribute::Value value) {
  db::Attribute attribute(std::move(value));
  attribute.present = false;
  return attribute;
}

INSTANTIATE_TEST_SUITE_P(
    HostDestId, MplsNeighborTest,
    testing::Values(NeighborCase{"Missing", std::nullopt, false},
                    NeighborCase{"Empty", db::Attribute(), false},
                    NeighborCase{"NotPresent", NotPresent(9), false},
                    NeighborCase{"Zero", db::Attribute(0), false},
                    NeighborCase{"One", db::Attribute(1), true},
                    NeighborCase{"Large", db::Attribute(std::numeric_limits<int>::max()), true},
                    NeighborCase{"MinusOne", db::Attribute(-1), true},
                    NeighborCase{"Smallest", db::Attribute(std::numeric_limits<int>::min()), true}),
    [](const auto& test) { return test.param.name; });

TEST_F(MplsTranslationTest, DropFlagIsTracedBeforeItIsSet) {
  FillRecord(&record());
  attribute("vlan_dest_id") = db::Attribute(5);
  attribute("host_dest_id") = db::Attribute(0);
  encapsulation::MplsMessage message;
  testing_support::SetLogHook([] { throw std::runtime_error("log"); });
  EXPECT_THAT([&] { adapter_.TranslateMplsObjectToEncapMessage(object_.pointer(), &message); },
              ThrowsMessage<std::runtime_error>("log"));
  EXPECT_EQ(message.ShortDebugString(), kMessageWithoutFlag);
}

}  // namespace
}  // namespace dest_mng
