/// How a host destination's record and attributes appear in the HAL's message.

#include <boost/throw_exception.hpp>
#include <boost/variant/get.hpp>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_host.h"

namespace dest_mng {
namespace {

using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::ThrowsMessage;
using testing_support::AllocationCount;
using testing_support::Events;

using HostObject = testing_support::TestObject<DbHostObject, DestHostMessage>;

constexpr char kBadGet[] = "boost::bad_get: failed value get using boost::get";

class HostTranslationTest : public testing_support::HaiTest {
 protected:
  /// Translates the object and returns the message as text.
  std::string Translate() {
    encapsulation::HostMessage message;
    adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
    return message.ShortDebugString();
  }

  DestHostMessage& record() { return object_.record(); }
  db::Attribute& attribute(const std::string& name) { return object_.object.attributes[name]; }

  HaiL3MplsEncapsulationHost adapter_;
  HostObject object_;
};

TEST_F(HostTranslationTest, EmptyRecordBecomesEmptyMessage) { EXPECT_EQ(Translate(), ""); }

TEST_F(HostTranslationTest, EveryFieldIsTranslated) {
  record().set_dest_id(12);
  record().set_lim_id("\x01\x00\x00\x01"s);
  record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  record().add_flags(ACTION_TO_CPU);
  record().add_flags(ACTION_DROP);
  attribute("vlan_dest_id") = db::Attribute(5);
  EXPECT_EQ(Translate(),
            R"(dest_id: 12 vlan_dest_id: 5 lim_id: "\001\000\000\001" flags: ACTION_TO_CPU )"
            R"(flags: ACTION_DROP dest_mac: "\002\000\000\000\001\013")");
}

TEST_F(HostTranslationTest, IrrelevantRecordFieldsAreIgnored) {
  record().set_ip_address("\x0a\x00\x00\x01"s);
  record().set_name("to-core");
  record().set_vrf(3);
  record().set_db_id(4);
  EXPECT_EQ(Translate(), "");
}

TEST_F(HostTranslationTest, PresentZeroDestIdIsSet) {
  record().set_dest_id(0);
  EXPECT_EQ(Translate(), "dest_id: 0");
}

TEST_F(HostTranslationTest, LargestDestIdIsSet) {
  record().set_dest_id(std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(Translate(), "dest_id: 4294967295");
}

TEST_F(HostTranslationTest, PresentEmptyBytesAreSet) {
  record().set_lim_id("");
  record().set_dest_mac("");
  EXPECT_EQ(Translate(), R"(lim_id: "" dest_mac: "")");
}

TEST_F(HostTranslationTest, BytesOfAnyLengthAreCopied) {
  record().set_lim_id("\x01\x00\x03\x04\x05\x00"s);
  record().set_dest_mac("\x02\x00"s);
  EXPECT_EQ(Translate(), R"(lim_id: "\001\000\003\004\005\000" dest_mac: "\002\000")");
}

TEST_F(HostTranslationTest, NoFieldIsCleared) {
  encapsulation::HostMessage message;
  message.set_vlan_dest_id(8);
  message.add_flags(encapsulation::ACTION_DROP);
  record().add_flags(ACTION_TO_CPU);
  adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_EQ(message.ShortDebugString(), "vlan_dest_id: 8 flags: ACTION_DROP flags: ACTION_TO_CPU");
}

TEST_F(HostTranslationTest, MissingVlanDestIdLeavesAnEmptyAttribute) {
  EXPECT_EQ(Translate(), "");
  ASSERT_THAT(object_.object.attributes, ElementsAre(Key("vlan_dest_id")));
  EXPECT_FALSE(attribute("vlan_dest_id").present);
  EXPECT_EQ(boost::get<int>(attribute("vlan_dest_id").value), 0);
  EXPECT_THAT(object_.object.attribute_lists, IsEmpty());
}

TEST_F(HostTranslationTest, PresentVlanDestIdIsUnchanged) {
  attribute("vlan_dest_id") = db::Attribute(7);
  EXPECT_EQ(Translate(), "vlan_dest_id: 7");
  ASSERT_THAT(object_.object.attributes, ElementsAre(Key("vlan_dest_id")));
  EXPECT_TRUE(attribute("vlan_dest_id").present);
  EXPECT_EQ(boost::get<int>(attribute("vlan_dest_id").value), 7);
}

TEST_F(HostTranslationTest, VlanDestIdThatIsNotPresentIsNotRead) {
  attribute("vlan_dest_id") = db::Attribute(7);
  attribute("vlan_dest_id").present = false;
  EXPECT_EQ(Translate(), "");
}

TEST_F(HostTranslationTest, OtherAttributesAreNotRead) {
  attribute("host_dest_id") = db::Attribute(9);
  attribute("vlan_dest_ids") = db::Attribute("text"s);
  EXPECT_EQ(Translate(), "");
}

struct IntegerCase {
  const char* name;
  int value;
  const char* message;
};

class HostVlanDestIdTest : public HostTranslationTest,
                           public testing::WithParamInterface<IntegerCase> {};

TEST_P(HostVlanDestIdTest, IsSetUnlessZero) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  EXPECT_EQ(Translate(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(Values, HostVlanDestIdTest,
                         testing::Values(IntegerCase{"Zero", 0, ""},
                                         IntegerCase{"Positive", 7, "vlan_dest_id: 7"},
                                         IntegerCase{"Largest", std::numeric_limits<int>::max(),
                                                     "vlan_dest_id: 2147483647"},
                                         IntegerCase{"MinusOne", -1, "vlan_dest_id: 4294967295"},
                                         IntegerCase{"MinusSeven", -7, "vlan_dest_id: 4294967289"},
                                         IntegerCase{"Smallest", std::numeric_limits<int>::min(),
                                                     "vlan_dest_id: 2147483648"}),
                         [](const auto& test) { return test.param.name; });

struct AlternativeCase {
  const char* name;
  db::Attribute::Value value;
};

class HostWrongAlternativeTest : public HostTranslationTest,
                                 public testing::WithParamInterface<AlternativeCase> {};

TEST_P(HostWrongAlternativeTest, ThrowsWhenPresent) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  EXPECT_THAT([this] { Translate(); }, ThrowsMessage<boost::wrapexcept<boost::bad_get>>(kBadGet));
}

TEST_P(HostWrongAlternativeTest, ReadsAsZeroWhenNotPresent) {
  attribute("vlan_dest_id") = db::Attribute(GetParam().value);
  attribute("vlan_dest_id").present = false;
  EXPECT_EQ(Translate(), "");
}

INSTANTIATE_TEST_SUITE_P(Alternatives, HostWrongAlternativeTest,
                         testing::Values(AlternativeCase{"String", "5"s},
                                         AlternativeCase{"Counter", std::uint64_t{5}},
                                         AlternativeCase{"Bytes", db::Attribute::Bytes{5}}),
                         [](const auto& test) { return test.param.name; });

TEST_F(HostTranslationTest, ThrowsAfterTheScalarsAndBeforeFlagsAndTrace) {
  record().set_dest_id(12);
  record().set_lim_id("\x01\x00\x00\x01"s);
  record().set_dest_mac("\x02\x00\x00\x00\x01\x0b"s);
  record().add_flags(ACTION_DROP);
  attribute("vlan_dest_id") = db::Attribute("5"s);
  encapsulation::HostMessage message;
  EXPECT_THROW(adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message),
               boost::bad_get);
  EXPECT_EQ(message.ShortDebugString(),
            R"(dest_id: 12 lim_id: "\001\000\000\001" dest_mac: "\002\000\000\000\001\013")");
  EXPECT_THAT(Events(), IsEmpty());
}

struct FlagCase {
  const char* name;
  int flag;
  encapsulation::ActionFlags encap_flag;
};

class HostFlagTest : public HostTranslationTest, public testing::WithParamInterface<FlagCase> {};

TEST_P(HostFlagTest, IsMapped) {
  EXPECT_EQ(adapter_.TranslateActionFlagsToEncapFlags(static_cast<ActionFlags>(GetParam().flag)),
            GetParam().encap_flag);
}

TEST_P(HostFlagTest, IsMappedInTheTranslation) {
  record().add_flags(static_cast<ActionFlags>(GetParam().flag));
  encapsulation::HostMessage message;
  adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_THAT(message.flags(), ElementsAre(GetParam().encap_flag));
}

INSTANTIATE_TEST_SUITE_P(Values, HostFlagTest,
                         testing::Values(FlagCase{"None", 0, encapsulation::ActionFlags{0}},
                                         FlagCase{"Drop", 1, encapsulation::ActionFlags{1}},
                                         FlagCase{"ToCpu", 2, encapsulation::ActionFlags{2}},
                                         FlagCase{"FirstUnknown", 3, encapsulation::ActionFlags{0}},
                                         FlagCase{"Largest", std::numeric_limits<int>::max(),
                                                  encapsulation::ActionFlags{0}},
                                         FlagCase{"MinusOne", -1, encapsulation::ActionFlags{0}},
                                         FlagCase{"Smallest", std::numeric_limits<int>::min(),
                                                  encapsulation::ActionFlags{0}}),
                         [](const auto& test) { return test.param.name; });

TEST_F(HostTranslationTest, FlagsKeepOrderAndDuplicates) {
  for (const int flag : {2, 1, 5, 2}) record().add_flags(static_cast<ActionFlags>(flag));
  encapsulation::HostMessage message;
  adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_THAT(message.flags(), ElementsAre(2, 1, 0, 2));
}

TEST_F(HostTranslationTest, TraceShowsTheRecord) {
  record().set_dest_id(12);
  record().set_lim_id("\x01\x00\x00\x01"s);
  record().set_name("to-core");
  for (const int flag : {2, 5}) record().add_flags(static_cast<ActionFlags>(flag));
  attribute("vlan_dest_id") = db::Attribute(5);
  Translate();
  EXPECT_THAT(
      Events(),
      ElementsAre("log 10 src/dest_host/hai/hai_dest_host TranslateHostObjectToEncapMessage:60 "
                  R"(Host Object message: lim_id: "\001\000\000\001" name: "to-core" dest_id: 12 )"
                  "flags: ACTION_TO_CPU flags: 5"));
}

TEST_F(HostTranslationTest, TraceOfAnEmptyRecord) {
  Translate();
  EXPECT_THAT(
      Events(),
      ElementsAre("log 10 src/dest_host/hai/hai_dest_host TranslateHostObjectToEncapMessage:60 "
                  "Host Object message: "));
}

TEST_F(HostTranslationTest, TraceComesLast) {
  record().set_dest_id(12);
  record().add_flags(ACTION_DROP);
  attribute("vlan_dest_id") = db::Attribute(5);
  encapsulation::HostMessage message;
  std::string at_trace;
  testing_support::SetLogHook([&] { at_trace = message.ShortDebugString(); });
  adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_EQ(at_trace, "dest_id: 12 vlan_dest_id: 5 flags: ACTION_DROP");
  EXPECT_EQ(message.ShortDebugString(), at_trace);
}

TEST_F(HostTranslationTest, WithoutTraceNothingIsLogged) {
  testing_support::SetTrace(false);
  record().set_dest_id(12);
  record().add_flags(ACTION_DROP);
  EXPECT_EQ(Translate(), "dest_id: 12 flags: ACTION_DROP");
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(HostTranslationTest, WithoutTraceTheRecordIsNotRendered) {
  record().set_dest_id(12);
  record().set_name(std::string(1000, 'n'));
  attribute("vlan_dest_id") = db::Attribute(5);
  encapsulation::HostMessage message;
  testing_support::SetTrace(false);
  const std::size_t before = AllocationCount();
  adapter_.TranslateHostObjectToEncapMessage(object_.pointer(), &message);
  EXPECT_EQ(AllocationCount(), before);
}

}  // namespace
}  // namespace dest_mng
