#include "reference/hal/message_fields.h"

#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "base_encap_message.pb.h"

namespace reference {
namespace {

const InterfaceNames kNames = {{1, "eth0"}, {2, "to core"}};

// In host byte order.
std::string LimId(std::uint32_t number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string TextOf(const google::protobuf::Message& message) {
  return FieldsText(FieldsOf(message, kNames));
}

TEST(MessageFieldsTest, ShowsAVlanReadably) {
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(LimId(1));
  vlan.set_source_mac_address(std::string("\x02\0\0\0\x04n", 6));
  vlan.set_vlan_destination_id(10);
  vlan.set_mtu(1500);
  vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  vlan.add_list_values("eth0.100");
  vlan.add_list_values("a\nb");
  EXPECT_EQ(TextOf(vlan),
            "interface: eth0 source_mac_address: 02:00:00:00:04:6e vlan_destination_id: 10 "
            "mtu: 1500 capabilities: VLAN_CAPABILITY_ROUTED "
            R"(list_values: [eth0.100, "a\\nb"])");
  EXPECT_EQ(FieldsOf(vlan, kNames)["capabilities"],
            MessageFields::array({"VLAN_CAPABILITY_ROUTED"}));
  EXPECT_EQ(FieldsOf(vlan, kNames)["mtu"], 1500);
}

TEST(MessageFieldsTest, ShowsLabelsAndAnUnknownInterface) {
  encapsulation::MplsMessage mpls;
  mpls.set_dest_id(201);
  mpls.set_lim_id(LimId(16777217));
  mpls.set_dest_mac(std::string("\xfe\xff\xab\x01\x20\x7f", 6));
  mpls.add_labels(1001);
  mpls.add_labels(16);
  EXPECT_EQ(TextOf(mpls),
            "dest_id: 201 lim_id: 16777217 dest_mac: fe:ff:ab:01:20:7f labels: [1001, 16]");
}

TEST(MessageFieldsTest, ShowsFieldsOfUnexpectedLength) {
  encapsulation::HostMessage host;
  host.set_lim_id("abc");
  host.set_dest_mac("\x01\x02");
  EXPECT_EQ(TextOf(host), R"(lim_id: abc dest_mac: "\\x01\\x02")");
}

TEST(MessageFieldsTest, QuotesAnInterfaceNameWithASpace) {
  encapsulation::HostMessage host;
  host.set_lim_id(LimId(2));
  EXPECT_EQ(TextOf(host), R"(interface: "to core")");
}

TEST(MessageFieldsTest, ShowsUnknownFieldsByNumber) {
  encapsulation::VrfMessage vrf;
  // Field 9, 300; field 10, "ab"; field 11, fixed; field 12, fixed; field 13, an empty group.
  const std::string payload(
      "\x08\x07\x48\xac\x02\x52\x02"
      "ab\x5d\x01\0\0\0\x61\x02\0\0\0\0\0\0\0\x6b\x6c",
      25);
  EXPECT_EQ(FieldsText(FieldsOf(HalKind::kVrf, payload, kNames)),
            "vrf_id: 7 #9: 300 #10: ab #11: 1 #12: 2 #13: group");
}

TEST(MessageFieldsTest, ShowsFieldsOfTypesThatTheSchemaDoesNotUse) {
  google::protobuf::SourceCodeInfo::Location location;
  location.add_path(-4);
  location.add_path(7);
  EXPECT_EQ(FieldsOf(location, kNames)["path"], MessageFields::array({"-4", "7"}));
  google::protobuf::FieldOptions options;
  options.set_packed(true);
  EXPECT_EQ(FieldsOf(options, kNames)["packed"], "true");
}

TEST(MessageFieldsTest, ShowsTheBytesOfAnInvalidPayload) {
  EXPECT_EQ(FieldsText(FieldsOf(HalKind::kVrf, "\x08", kNames)), R"(undecodable: "\\x08")");
}

TEST(MessageFieldsTest, ChangesAreTheFieldsThatDiffer) {
  encapsulation::VlanMessage from;
  from.set_lim_id(LimId(1));
  from.set_mtu(1500);
  from.add_list_values("a");
  encapsulation::VlanMessage to = from;
  to.set_mtu(9000);
  to.set_vrf(5);
  to.clear_list_values();
  const MessageFields changes = ChangedFields(FieldsOf(from, kNames), FieldsOf(to, kNames));
  EXPECT_EQ(ChangesText(changes), "mtu: 1500 -> 9000, list_values: a -> none, vrf: none -> 5");
  EXPECT_EQ(changes, MessageFields::parse(R"({"mtu": {"from": 1500, "to": 9000},
                                             "list_values": {"from": ["a"], "to": null},
                                             "vrf": {"from": null, "to": 5}})"));
}

TEST(MessageFieldsTest, TwoEncodingsOfAMessageDifferInNoField) {
  const MessageFields changes =
      ChangedFields(FieldsOf(HalKind::kVrf, "\x08\x07", kNames),
                    FieldsOf(HalKind::kVrf, std::string("\x08\x87\x00", 3), kNames));
  EXPECT_TRUE(changes.empty());
  EXPECT_EQ(ChangesText(changes), "the same fields, encoded differently");
}

TEST(MessageFieldsTest, DumpsEntriesByKindAndId) {
  std::ostringstream out;
  DumpEntries({{{HalKind::kVrf, 7}, "\x08\x07"}, {{HalKind::kVrf, 3}, "\x08\x03"}}, &out);
  EXPECT_EQ(out.str(), "vrf:3 vrf_id: 3\nvrf:7 vrf_id: 7\n");
}

}  // namespace
}  // namespace reference
