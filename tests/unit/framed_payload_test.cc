#include "hai/framed_payload.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "base_encap_message.pb.h"
#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"

namespace dest_mng {
namespace {

using encapsulation::VlanMessage;
using testing_support::Frame;
using testing_support::GuardedBytes;

// Parses `frame` in memory where any read beyond its end faults.
bool Parse(const std::string& frame, VlanMessage* message) {
  return ParsePayload(FramedPayload(GuardedBytes(frame).data()), message);
}

VlanMessage Vlan12() {
  VlanMessage message;
  message.set_vlan_destination_id(12);
  return message;
}

TEST(FramedPayloadTest, ParsesThePayload) {
  VlanMessage message;

  EXPECT_TRUE(Parse(Frame(Vlan12().SerializeAsString()), &message));
  EXPECT_EQ(message.ShortDebugString(), "vlan_destination_id: 12");
}

TEST(FramedPayloadTest, ReplacesWhatTheMessageHeld) {
  VlanMessage message;
  message.set_vrf(5);

  EXPECT_TRUE(Parse(Frame(Vlan12().SerializeAsString()), &message));
  EXPECT_EQ(message.ShortDebugString(), "vlan_destination_id: 12");
}

TEST(FramedPayloadTest, ParsesAnEmptyPayload) {
  VlanMessage message = Vlan12();

  EXPECT_TRUE(Parse(std::string("\xFF\xFF\xFF\xFF\0\0\0\0", 8), &message));
  EXPECT_EQ(message.ShortDebugString(), "");
}

TEST(FramedPayloadTest, ReadsNoMoreThanTheLength) {
  const std::string payload = Vlan12().SerializeAsString();
  VlanMessage message;

  EXPECT_TRUE(
      Parse(Frame(payload + "\xFF\xFF", static_cast<std::uint32_t>(payload.size())), &message));
  EXPECT_EQ(message.ShortDebugString(), "vlan_destination_id: 12");
}

// Sizes whose big-endian bytes all differ, so that the position of each byte matters.
TEST(FramedPayloadTest, ReadsTheLengthInNetworkByteOrder) {
  for (const std::size_t size : {std::size_t{0x7F}, std::size_t{0x0102}, std::size_t{0x010203}}) {
    VlanMessage sent;
    sent.add_list_values("");
    while (sent.ByteSizeLong() < size) sent.mutable_list_values(0)->push_back('v');
    ASSERT_EQ(sent.ByteSizeLong(), size);
    std::string frame = Frame(sent.SerializeAsString());
    VlanMessage message;

    EXPECT_TRUE(ParsePayload(FramedPayload(frame.data()), &message));
    EXPECT_EQ(message.SerializeAsString(), sent.SerializeAsString()) << size;
  }
}

TEST(FramedPayloadTest, ParsesAtAnyAlignment) {
  for (std::size_t shift = 0; shift < 8; ++shift) {
    const std::string buffer = std::string(shift, '!') + Frame(Vlan12().SerializeAsString());
    VlanMessage message;

    EXPECT_TRUE(ParsePayload(FramedPayload(buffer.data() + shift), &message));
    EXPECT_EQ(message.vlan_destination_id(), 12U);
  }
}

TEST(FramedPayloadTest, DoesNotReadTheHeaderWord) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const testing_support::Mapping mapping(0, 2 * page);
  ASSERT_NE(mapping.pages(), nullptr);
  const std::string frame = Frame(Vlan12().SerializeAsString());
  char* const second_page = mapping.pages() + page;
  frame.copy(second_page, frame.size() - 4, 4);
  ASSERT_EQ(mprotect(mapping.pages(), page, PROT_NONE), 0);
  VlanMessage message;

  EXPECT_TRUE(ParsePayload(FramedPayload(second_page - 4), &message));
  EXPECT_EQ(message.vlan_destination_id(), 12U);
}

TEST(FramedPayloadTest, RefusesAPayloadThatDoesNotParse) {
  VlanMessage message;

  EXPECT_FALSE(Parse(Frame("\x0A\x05"
                           "ab"),
                     &message))
      << "cut short";
  EXPECT_FALSE(Parse(Frame("\xFF"), &message)) << "an endless tag";
  EXPECT_FALSE(Parse(Frame(std::string("\0\0", 2)), &message)) << "field number 0";
  EXPECT_FALSE(Parse(Frame(Vlan12().SerializeAsString() + "\x0A"), &message)) << "cut in field 2";
}

TEST(FramedPayloadTest, RefusesLengthsOfMoreThan31BitsWithoutReading) {
  for (const std::uint32_t length : {0x80000000U, 0x80000001U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
    VlanMessage message = Vlan12();

    EXPECT_FALSE(Parse(Frame("", length), &message)) << length;
    EXPECT_EQ(message.ShortDebugString(), "") << length;
  }
}

}  // namespace
}  // namespace dest_mng
