// The bytes of the messages, the frames and a recording, written by hand. Machines on which this
// test passes can exchange requests and recordings; .ci/arm64 runs it too.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "base_encap_message.pb.h"
#include "reference/hal/hal_tables.h"
#include "reference/record/recorder.h"
#include "reference/wire/frame.h"
#include "tests/support/test_folder.h"
#include "wire.pb.h"

namespace reference {
namespace {

using ::testing::HasSubstr;

// Bytes may be zero.
template <std::size_t size>
std::string Bytes(const char (&text)[size]) {
  return {text, size - 1};
}

// Interface 16777217, MAC address, id 10, MTU 1500, routed.
const std::string& VlanBytes() {
  static const std::string bytes = Bytes(
      "\x0a\x04\x01\x00\x00\x01"
      "\x12\x06\x02\x00\x00\x00\x04\xfe"
      "\x18\x0a"
      "\x28\xdc\x0b"
      "\x30\x01");
  return bytes;
}

std::string LimIdBytes(std::uint32_t lim_id) {
  std::string bytes(sizeof lim_id, '\0');
  std::memcpy(bytes.data(), &lim_id, sizeof lim_id);
  return bytes;
}

TEST(SameBytesTest, AVlan) {
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(LimIdBytes(16777217));
  vlan.set_source_mac_address(Bytes("\x02\x00\x00\x00\x04\xfe"));
  vlan.set_vlan_destination_id(10);
  vlan.set_mtu(1500);
  vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  EXPECT_EQ(vlan.SerializeAsString(), VlanBytes());
}

TEST(SameBytesTest, AHost) {
  encapsulation::HostMessage host;
  host.set_dest_id(101);
  host.set_vlan_dest_id(10);
  host.set_lim_id(LimIdBytes(0x01020304));
  host.add_flags(encapsulation::ACTION_TO_CPU);
  host.set_dest_mac(Bytes("\x02\x00\x00\x00\xcc\x01"));
  EXPECT_EQ(host.SerializeAsString(), Bytes("\x08\x65"
                                            "\x10\x0a"
                                            "\x1a\x04\x04\x03\x02\x01"
                                            "\x20\x02"
                                            "\x2a\x06\x02\x00\x00\x00\xcc\x01"));
}

TEST(SameBytesTest, AnMpls) {
  encapsulation::MplsMessage mpls;
  mpls.set_dest_id(211);
  mpls.set_vlan_tunnel_dest_id(201);
  mpls.add_labels(5001);
  mpls.add_labels(1001);
  mpls.add_capabilities(encapsulation::MPLS_CAPABILITY_VC_LABEL);
  mpls.set_flag(encapsulation::ACTION_DROP);
  mpls.set_pass_through_value(0xFFFFFFFF);
  EXPECT_EQ(mpls.SerializeAsString(), Bytes("\x08\xd3\x01"
                                            "\x10\xc9\x01"
                                            "\x28\x89\x27\x28\xe9\x07"
                                            "\x30\x05"
                                            "\x38\x01"
                                            "\x40\xff\xff\xff\xff\x0f"));
}

TEST(SameBytesTest, AnEcmpGroup) {
  encapsulation::EcmpMessage ecmp;
  ecmp.set_db_id(301);
  ecmp.add_members(201);
  ecmp.add_members(202);
  EXPECT_EQ(ecmp.SerializeAsString(), Bytes("\x08\xad\x02"
                                            "\x10\xc9\x01\x10\xca\x01"));
}

TEST(SameBytesTest, AVrf) {
  encapsulation::VrfMessage vrf;
  vrf.set_vrf_id(10);
  EXPECT_EQ(vrf.SerializeAsString(), Bytes("\x08\x0a"));
}

TEST(SameBytesTest, AHelloAndADigest) {
  wire::Hello hello;
  hello.set_protocol_version(1);
  hello.set_generation(0x0102030405060708);
  hello.set_max_payload(65536);
  hello.set_writes(true);
  EXPECT_EQ(hello.SerializeAsString(), Bytes("\x08\x01"
                                             "\x19\x08\x07\x06\x05\x04\x03\x02\x01"
                                             "\x28\x80\x80\x04"
                                             "\x38\x01"));
  // Computed independently of this code, for id 10.
  EXPECT_EQ(EntryHash(10, VlanBytes(), EntryHashFunction::kFnv1a), 0xDBEBADDDE8C87EBCU);
  EXPECT_EQ(EntryHash(10, VlanBytes(), EntryHashFunction::kXxh3), 0x254FAE12F743C75CU);
}

TEST(SameBytesTest, ARequestAndItsResult) {
  std::string frames;
  AppendFrame(FrameType{5}, 0x010203, VlanBytes(), &frames);
  EXPECT_EQ(frames, Bytes("\x05\x01\x02\x03\x00\x00\x00\x15") + VlanBytes());
  frames.clear();
  AppendResult(7, {HalReturnCode{2}, 300, 9, std::chrono::nanoseconds(1000)}, &frames);
  EXPECT_EQ(frames, Bytes("\x10\x00\x00\x07\x00\x00\x00\x10"
                          "\x00\x00\x00\x02\x00\x00\x01\x2c\x00\x00\x00\x09\x00\x00\x03\xe8"));
}

TEST(SameBytesTest, ARecording) {
  const TestFolder folder;
  {
    Recorder recorder(folder.Path("recording"), "test");
    recorder.Request({HalOperation::kInstallVlan, 10, 0, VlanBytes()}, nullptr);
  }
  std::ifstream file(folder.Path("recording"), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // The header's first fields, then the request within its entry; the times differ.
  EXPECT_THAT(bytes, HasSubstr(Bytes("\x0a\x10zuskux recording\x10\x01\x1a\x04test\x21")));
  EXPECT_THAT(bytes, HasSubstr(Bytes("\x12\x1d\x08\x01\x10\x05\x18\x0a\x2a\x15") + VlanBytes()));
}

}  // namespace
}  // namespace reference
