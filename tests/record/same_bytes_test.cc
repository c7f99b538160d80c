// The bytes of a message, a frame and a recording, written by hand. Processors that pass this test
// understand one another's HALs and recordings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "base_encap_message.pb.h"
#include "reference/record/recorder.h"
#include "reference/wire/frame.h"
#include "tests/support/test_folder.h"

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

TEST(SameBytesTest, AMessage) {
  constexpr std::uint32_t kLimId = 16777217;
  std::string lim_id(sizeof kLimId, '\0');
  std::memcpy(lim_id.data(), &kLimId, sizeof kLimId);
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(lim_id);
  vlan.set_source_mac_address(Bytes("\x02\x00\x00\x00\x04\xfe"));
  vlan.set_vlan_destination_id(10);
  vlan.set_mtu(1500);
  vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  EXPECT_EQ(vlan.SerializeAsString(), VlanBytes());
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
