// Presence bits and enumerations of the schemas: the agreement between generated code and the
// library beyond names.

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "base_encap_message.pb.h"
#include "dest_mng.pb.h"
#include "tests/support/hai_test.h"

namespace {

#ifdef NDEBUG
#error The assertions in the generated setters are part of the behaviour.
#endif

using ::testing::ElementsAre;

// The has-bits word of `message`: the generated class's first member.
std::uint32_t HasBits(const google::protobuf::Message& message) {
  std::uint32_t bits = 0;
  const auto* const base = reinterpret_cast<const char*>(&message);
  std::memcpy(&bits, base + sizeof(google::protobuf::Message), sizeof bits);
  return bits;
}

// The has-bits word of a message in which only `field` is present.
std::uint32_t HasBitsWith(const google::protobuf::Message& prototype, const std::string& field) {
  const std::unique_ptr<google::protobuf::Message> message(prototype.New());
  const auto* const descriptor = message->GetDescriptor()->FindFieldByName(field);
  const auto* const reflection = message->GetReflection();
  if (descriptor->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_STRING) {
    reflection->SetString(message.get(), descriptor, "");
  } else {
    reflection->SetUInt32(message.get(), descriptor, 0);
  }
  return HasBits(*message);
}

struct PresenceBit {
  const char* name;
  const google::protobuf::Message* message;
  const char* field;
  std::uint32_t mask;
};

class PresenceBitTest : public ::testing::TestWithParam<PresenceBit> {};

TEST_P(PresenceBitTest, IsWhereItMustBe) {
  EXPECT_EQ(HasBitsWith(*GetParam().message, GetParam().field), GetParam().mask);
}

TEST_P(PresenceBitTest, IsNotSetInAnEmptyMessage) { EXPECT_EQ(HasBits(*GetParam().message), 0U); }

template <typename Message>
const google::protobuf::Message* Empty() {
  return &Message::default_instance();
}

INSTANTIATE_TEST_SUITE_P(
    , PresenceBitTest,
    ::testing::Values(
        PresenceBit{"DestVlanDbId", Empty<dest_mng::DestVlanMessage>(), "db_id", 0x10},
        PresenceBit{"DestHostDbId", Empty<dest_mng::DestHostMessage>(), "db_id", 0x40},
        PresenceBit{"DestEcmpDbId", Empty<dest_mng::DestEcmpRouteMessage>(), "db_id", 0x4},
        PresenceBit{"DestMplsDbId", Empty<dest_mng::DestMplsMessage>(), "db_id", 0x40},
        PresenceBit{"DestMplsSecondaryId", Empty<dest_mng::DestMplsMessage>(), "secondary_id",
                    0x400},
        PresenceBit{"VlanLimId", Empty<encapsulation::VlanMessage>(), "lim_id", 0x1},
        PresenceBit{"VlanSourceMac", Empty<encapsulation::VlanMessage>(), "source_mac_address",
                    0x2},
        PresenceBit{"VlanDestinationId", Empty<encapsulation::VlanMessage>(), "vlan_destination_id",
                    0x4},
        PresenceBit{"VlanVrf", Empty<encapsulation::VlanMessage>(), "vrf", 0x8},
        PresenceBit{"VlanMtu", Empty<encapsulation::VlanMessage>(), "mtu", 0x10},
        PresenceBit{"EcmpDbId", Empty<encapsulation::EcmpMessage>(), "db_id", 0x1},
        PresenceBit{"VrfVrfId", Empty<encapsulation::VrfMessage>(), "vrf_id", 0x1}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(HalSchemaTest, KnowsTheVlanCapabilities0And1) {
  EXPECT_TRUE(encapsulation::VlanCapabilities_IsValid(0));
  EXPECT_TRUE(encapsulation::VlanCapabilities_IsValid(1));
  EXPECT_FALSE(encapsulation::VlanCapabilities_IsValid(2));
  EXPECT_FALSE(encapsulation::VlanCapabilities_IsValid(-1));
}

TEST(HalSchemaTest, KnowsTheActionFlags0To2) {
  for (const int value : {0, 1, 2}) EXPECT_TRUE(encapsulation::ActionFlags_IsValid(value));
  for (const int value : {-1, 3}) EXPECT_FALSE(encapsulation::ActionFlags_IsValid(value));
}

TEST(HalSchemaTest, KnowsTheMplsCapabilities0To5) {
  for (const int value : {0, 1, 2, 3, 4, 5}) {
    EXPECT_TRUE(encapsulation::MplsCapabilities_IsValid(value));
  }
  for (const int value : {-1, 6}) EXPECT_FALSE(encapsulation::MplsCapabilities_IsValid(value));
}

// From a peer with a newer schema: the value is kept, but it is not a capability here.
TEST(HalSchemaTest, KeepsAReceivedUnknownCapabilityAsAnUnknownField) {
  dest_mng::DestVlanMessage newer;  // Only its wire format is used: field 8 is a list of numbers.
  newer.add_capabilities(static_cast<dest_mng::VlanCapabilities>(1));
  newer.add_capabilities(static_cast<dest_mng::VlanCapabilities>(7));
  std::string wire = newer.SerializeAsString();
  ASSERT_EQ(wire, std::string("\x42\x02\x01\x07"));
  wire[0] = 6 << 3 | 2;  // Field 6 of the HAL's message.

  encapsulation::VlanMessage message;
  ASSERT_TRUE(message.ParseFromString(wire));
  EXPECT_THAT(message.capabilities(), ElementsAre(1));
  const auto& unknown = message.GetReflection()->GetUnknownFields(message);
  ASSERT_EQ(unknown.field_count(), 1);
  EXPECT_EQ(unknown.field(0).number(), 6);
  EXPECT_EQ(unknown.field(0).varint(), 7U);
}

TEST(DestManagerSchemaTest, KeepsAnUnknownCapabilityInTheRecord) {
  dest_mng::DestVlanMessage record;
  for (const int value : {1, 0, 1, 7}) {
    record.add_capabilities(static_cast<dest_mng::VlanCapabilities>(value));
  }
  dest_mng::DestVlanMessage parsed;

  ASSERT_TRUE(parsed.ParseFromString(record.SerializeAsString()));
  EXPECT_THAT(parsed.capabilities(), ElementsAre(1, 0, 1, 7));
}

TEST(DestManagerSchemaTest, SetsPresenceWhateverTheValue) {
  dest_mng::DestMplsMessage record;
  EXPECT_FALSE(record.has_db_id());
  EXPECT_FALSE(record.has_secondary_id());
  record.set_db_id(0);
  record.set_secondary_id(0);

  EXPECT_TRUE(record.has_db_id());
  EXPECT_TRUE(record.has_secondary_id());
}

}  // namespace
