#include <boost/throw_exception.hpp>
#include <boost/variant/get.hpp>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_vlan.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing_support::Events;
using testing_support::LevelQueries;
using testing_support::SetTrace;

constexpr char kTrace[] =
    "log 10 src/dest_vlan/hai/hai_dest_vlan TranslateVlanObjectToEncapMessage:52 "
    "Vlan Object message: ";

db::Attribute Text(const std::string& text) { return db::Attribute(text); }

template <typename Value>
db::Attribute Absent(const Value& value) {
  db::Attribute attribute{db::Attribute::Value(value)};
  attribute.present = false;
  return attribute;
}

class VlanTranslationTest : public testing_support::HaiTest {
 protected:
  VlanTranslationTest() { object_.object.list_attribute_name = "interfaces"; }

  DestVlanMessage& record() { return object_.record(); }

  std::vector<db::Attribute>& list() { return object_.object.attribute_lists["interfaces"].second; }

  void Translate() { adapter_.TranslateVlanObjectToEncapMessage(object_.pointer(), &message_); }

  // The message after a translation, in the order of field numbers.
  std::string Translated() {
    Translate();
    return message_.ShortDebugString();
  }

  testing_support::TestObject<DbVlanObject, DestVlanMessage> object_;
  HaiL3MplsEncapsulationVlan adapter_;
  encapsulation::VlanMessage message_;
};

// Scalars.

struct ScalarCase {
  const char* name;
  void (*set)(DestVlanMessage* record);
  const char* expected;
};

class VlanScalarTest : public VlanTranslationTest,
                       public ::testing::WithParamInterface<ScalarCase> {};

TEST_P(VlanScalarTest, IsTranslated) {
  GetParam().set(&record());

  EXPECT_EQ(Translated(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    , VlanScalarTest,
    ::testing::Values(
        ScalarCase{"None", [](DestVlanMessage*) {}, R"(lim_id: "")"},
        ScalarCase{"DestId", [](DestVlanMessage* record) { record->set_vlan_dest_id(12); },
                   R"(lim_id: "" vlan_destination_id: 12)"},
        ScalarCase{"DestId0", [](DestVlanMessage* record) { record->set_vlan_dest_id(0); },
                   R"(lim_id: "" vlan_destination_id: 0)"},
        ScalarCase{"DestIdLargest",
                   [](DestVlanMessage* record) { record->set_vlan_dest_id(0xFFFFFFFF); },
                   R"(lim_id: "" vlan_destination_id: 4294967295)"},
        ScalarCase{"LimId", [](DestVlanMessage* record) { record->set_lim_id("wxyz"); },
                   R"(lim_id: "wxyz")"},
        ScalarCase{"LimIdPresentAndEmpty", [](DestVlanMessage* record) { record->set_lim_id(""); },
                   R"(lim_id: "")"},
        ScalarCase{"LimIdShort", [](DestVlanMessage* record) { record->set_lim_id("w"); },
                   R"(lim_id: "w")"},
        ScalarCase{"LimIdLong", [](DestVlanMessage* record) { record->set_lim_id("vwxyz"); },
                   R"(lim_id: "vwxyz")"},
        ScalarCase{"LimIdWithZeros",
                   [](DestVlanMessage* record) { record->set_lim_id(std::string(4, '\0')); },
                   R"(lim_id: "\000\000\000\000")"},
        ScalarCase{"Vrf", [](DestVlanMessage* record) { record->set_vrf(5); },
                   R"(lim_id: "" vrf: 5)"},
        ScalarCase{"Vrf0", [](DestVlanMessage* record) { record->set_vrf(0); },
                   R"(lim_id: "" vrf: 0)"},
        ScalarCase{"VrfLargest", [](DestVlanMessage* record) { record->set_vrf(0xFFFFFFFF); },
                   R"(lim_id: "" vrf: 4294967295)"},
        ScalarCase{"Mtu", [](DestVlanMessage* record) { record->set_mtu(1500); },
                   R"(lim_id: "" mtu: 1500)"},
        ScalarCase{"Mtu0", [](DestVlanMessage* record) { record->set_mtu(0); },
                   R"(lim_id: "" mtu: 0)"},
        ScalarCase{"MtuLargest", [](DestVlanMessage* record) { record->set_mtu(0xFFFFFFFF); },
                   R"(lim_id: "" mtu: 4294967295)"},
        ScalarCase{"SourceMac", [](DestVlanMessage* record) { record->set_source_mac("abcdef"); },
                   R"(lim_id: "" source_mac_address: "abcdef")"},
        ScalarCase{"SourceMacPresentAndEmpty",
                   [](DestVlanMessage* record) { record->set_source_mac(""); },
                   R"(lim_id: "" source_mac_address: "")"},
        ScalarCase{"SourceMacShort", [](DestVlanMessage* record) { record->set_source_mac("a"); },
                   R"(lim_id: "" source_mac_address: "a")"},
        ScalarCase{"SourceMacLong",
                   [](DestVlanMessage* record) { record->set_source_mac("abcdefgh"); },
                   R"(lim_id: "" source_mac_address: "abcdefgh")"},
        ScalarCase{"FieldsThatAreNotSent",
                   [](DestVlanMessage* record) {
                     record->set_db_id(7);
                     record->set_name("uplink");
                   },
                   R"(lim_id: "")"},
        ScalarCase{"All",
                   [](DestVlanMessage* record) {
                     record->set_lim_id("wxyz");
                     record->set_source_mac("abcdef");
                     record->set_vlan_dest_id(12);
                     record->set_vrf(5);
                     record->set_mtu(1500);
                   },
                   R"(lim_id: "wxyz" source_mac_address: "abcdef" vlan_destination_id: 12 vrf: 5 )"
                   "mtu: 1500"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(VlanTranslationTest, LeavesTheRecordAlone) {
  record().set_lim_id("wxyz");
  record().set_source_mac("abcdef");
  record().set_vlan_dest_id(12);
  const std::string before = record().SerializeAsString();
  Translate();

  EXPECT_EQ(record().SerializeAsString(), before);
}

// Capabilities.

TEST_F(VlanTranslationTest, MapsCapabilities) {
  const auto mapped = [this](int capability) {
    return static_cast<int>(adapter_.TranslateVlanCapabilityToEncapCapability(
        static_cast<VlanCapabilities>(capability)));
  };

  EXPECT_EQ(mapped(0), 0);
  EXPECT_EQ(mapped(1), 1);
  EXPECT_EQ(mapped(2), 0);
  EXPECT_EQ(mapped(7), 0);
  EXPECT_EQ(mapped(-1), 0);
  EXPECT_EQ(mapped(0x7FFFFFFF), 0);
  EXPECT_EQ(mapped(-0x7FFFFFFF - 1), 0);
}

TEST_F(VlanTranslationTest, KeepsOrderAndDuplicatesOfCapabilities) {
  for (const int capability : {1, 0, 1, 7}) {
    record().add_capabilities(static_cast<VlanCapabilities>(capability));
  }
  Translate();

  EXPECT_THAT(message_.capabilities(), ElementsAre(1, 0, 1, 0));
}

// The list.

TEST_F(VlanTranslationTest, CopiesThePresentAndNonEmptyTexts) {
  list() = {Text("a"), Text(""), Absent(std::string("b")), Text("c")};
  Translate();

  EXPECT_THAT(message_.list_values(), ElementsAre("a", "c"));
}

TEST_F(VlanTranslationTest, KeepsOrderAndDuplicatesOfTheList) {
  list() = {Text("b"), Text("a"), Text("b"), Text(std::string("z\0y", 3)), Text(" ")};
  Translate();

  EXPECT_THAT(message_.list_values(), ElementsAre("b", "a", "b", std::string("z\0y", 3), " "));
}

TEST_F(VlanTranslationTest, DoesNotReadAbsentValues) {
  list() = {Absent(7), Absent(std::uint64_t{7}), Absent(db::Attribute::Bytes{7}), Text("c")};
  Translate();

  EXPECT_THAT(message_.list_values(), ElementsAre("c"));
}

TEST_F(VlanTranslationTest, LeavesTheListAlone) {
  list() = {Text("a"), Absent(7)};
  object_.object.attribute_lists["interfaces"].first = db::AttributeType::kBytes;
  object_.object.attribute_lists["other"].second = {Text("x")};
  Translate();

  ASSERT_EQ(object_.object.attribute_lists.size(), 2U);
  const auto& [type, values] = object_.object.attribute_lists["interfaces"];
  EXPECT_EQ(type, db::AttributeType::kBytes);
  ASSERT_EQ(values.size(), 2U);
  EXPECT_EQ(boost::get<std::string>(values[0].value), "a");
  EXPECT_EQ(boost::get<int>(values[1].value), 7);
  EXPECT_THAT(message_.list_values(), ElementsAre("a"));
}

TEST_F(VlanTranslationTest, AddsAnEmptyListForAMissingOne) {
  object_.object.attribute_lists["other"].second = {Text("x")};
  Translate();

  EXPECT_THAT(message_.list_values(), IsEmpty());
  ASSERT_EQ(object_.object.attribute_lists.size(), 2U);
  const auto added = object_.object.attribute_lists.find("interfaces");
  ASSERT_NE(added, object_.object.attribute_lists.end());
  EXPECT_EQ(static_cast<int>(added->second.first), 0);
  EXPECT_THAT(added->second.second, IsEmpty());
}

TEST_F(VlanTranslationTest, UsesTheListThatTheObjectNames) {
  object_.object.list_attribute_name = "other";
  list() = {Text("a")};
  object_.object.attribute_lists["other"].second = {Text("x")};
  Translate();

  EXPECT_THAT(message_.list_values(), ElementsAre("x"));
}

TEST_F(VlanTranslationTest, AcceptsAnEmptyName) {
  object_.object.list_attribute_name = "";
  Translate();

  EXPECT_EQ(object_.object.attribute_lists.count(""), 1U);
}

TEST_F(VlanTranslationTest, ReadsNoSingleValue) {
  object_.object.attributes["interfaces"] = Text("x");
  Translate();

  EXPECT_EQ(object_.object.attributes.size(), 1U);
  EXPECT_THAT(message_.list_values(), IsEmpty());
}

struct WrongValue {
  const char* name;
  db::Attribute::Value value;
};

class VlanWrongValueTest : public VlanTranslationTest,
                           public ::testing::WithParamInterface<WrongValue> {};

TEST_P(VlanWrongValueTest, ThrowsBadGetWithTheMessagePartlyFilled) {
  record().set_vlan_dest_id(12);
  record().add_capabilities(VLAN_CAPABILITY_ROUTED);
  list() = {Text("a"), db::Attribute(GetParam().value), Text("c")};
  try {
    Translate();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const boost::bad_get& error) {
    EXPECT_STREQ(error.what(), "boost::bad_get: failed value get using boost::get");
    EXPECT_EQ(typeid(error), typeid(boost::wrapexcept<boost::bad_get>));
  }

  EXPECT_EQ(message_.ShortDebugString(),
            R"(lim_id: "" vlan_destination_id: 12 capabilities: VLAN_CAPABILITY_ROUTED )"
            R"(list_values: "a")");
  EXPECT_THAT(Events(), ElementsAre(std::string(kTrace) +
                                    "vlan_dest_id: 12 capabilities: VLAN_CAPABILITY_ROUTED"));
}

INSTANTIATE_TEST_SUITE_P(, VlanWrongValueTest,
                         ::testing::Values(WrongValue{"Integer", 7},
                                           WrongValue{"Counter", std::uint64_t{7}},
                                           WrongValue{"Bytes", db::Attribute::Bytes{7}}),
                         [](const auto& tested) { return std::string(tested.param.name); });

// The trace.

TEST_F(VlanTranslationTest, TracesTheRecord) {
  record().set_lim_id(std::string("\x01\x00\x00\x01", 4));
  record().set_source_mac(std::string("\x02\x00\x00\x00\x01\x0a", 6));
  record().set_name("uplink");
  record().set_vlan_dest_id(12);
  record().set_db_id(7);
  record().set_vrf(5);
  record().set_mtu(1500);
  record().add_capabilities(static_cast<VlanCapabilities>(7));
  Translate();

  EXPECT_THAT(Events(),
              ElementsAre(std::string(kTrace) +
                          R"(lim_id: "\001\000\000\001" source_mac: "\002\000\000\000\001\n" )"
                          R"(name: "uplink" vlan_dest_id: 12 db_id: 7 vrf: 5 mtu: 1500 )"
                          "capabilities: 7"));
  EXPECT_EQ(LevelQueries(), 1);
}

TEST_F(VlanTranslationTest, TracesAnEmptyRecord) {
  Translate();

  EXPECT_THAT(Events(), ElementsAre(kTrace));
}

TEST_F(VlanTranslationTest, TracesAPercentSignLiterally) {
  record().set_name("100%s %n");
  Translate();

  EXPECT_THAT(Events(), ElementsAre(std::string(kTrace) + R"(name: "100%s %n")"));
}

// The trace comes between the scalars and the lists.
TEST_F(VlanTranslationTest, TracesAfterTheScalars) {
  record().set_lim_id("wxyz");
  record().set_source_mac("abcdef");
  record().set_vlan_dest_id(12);
  record().set_vrf(5);
  record().set_mtu(1500);
  record().add_capabilities(VLAN_CAPABILITY_ROUTED);
  list() = {Text("a")};
  std::string at_trace;
  testing_support::SetLogHook([&] { at_trace = message_.ShortDebugString(); });
  Translate();

  EXPECT_EQ(at_trace,
            R"(lim_id: "wxyz" source_mac_address: "abcdef" vlan_destination_id: 12 vrf: 5 )"
            "mtu: 1500");
}

TEST_F(VlanTranslationTest, LooksTheListUpAfterTheTrace) {
  record().add_capabilities(VLAN_CAPABILITY_ROUTED);
  testing_support::SetLogHook([] { throw std::runtime_error("log"); });

  EXPECT_THROW(Translate(), std::runtime_error);
  EXPECT_THAT(object_.object.attribute_lists, IsEmpty());
  EXPECT_EQ(message_.capabilities_size(), 0);
}

TEST_F(VlanTranslationTest, IsSilentWithoutTrace) {
  SetTrace(false);
  record().set_vlan_dest_id(12);

  EXPECT_EQ(Translated(), R"(lim_id: "" vlan_destination_id: 12)");
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(LevelQueries(), 1);
}

// A rendering of the record would allocate.
TEST_F(VlanTranslationTest, RendersNothingWithoutTrace) {
  SetTrace(false);
  list();
  Translate();
  record().set_name(std::string(1000, 'n'));
  encapsulation::VlanMessage by_hand;
  encapsulation::VlanMessage translated;

  const auto before = testing_support::AllocationCount();
  by_hand.set_lim_id("");
  const auto needed = testing_support::AllocationCount() - before;
  adapter_.TranslateVlanObjectToEncapMessage(object_.pointer(), &translated);

  EXPECT_EQ(testing_support::AllocationCount() - before, 2 * needed);
}

TEST_F(VlanTranslationTest, SendsNothing) {
  WithoutClient();
  Translate();

  EXPECT_EQ(Events().size(), 1U);
}

}  // namespace
}  // namespace dest_mng
