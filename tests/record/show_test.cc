#include "reference/record/show.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "interface_ids/interface_table.h"
#include "reference/hal/hal_request.h"
#include "reference/record/recorder.h"
#include "reference/text/protobuf_log.h"
#include "tests/hal/messages.h"
#include "tests/record/recordings.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace reference {
namespace {

using ::testing::HasSubstr;

class Show : public ::testing::Test {
 protected:
  Show() { interface_ids::InterfaceTable::Global().Clear(); }
  ~Show() override { interface_ids::InterfaceTable::Global().Clear(); }

  static std::string Text(const std::string& bytes) {
    RecordingReader recording = ReaderOf(bytes);
    std::ostringstream out;
    ShowRecording(&recording, &out);
    return out.str();
  }
};

record::Entry StateEntry(std::uint32_t kind, std::uint32_t id, HalReturnCode code,
                         const std::string& reason) {
  record::Entry entry;
  record::ObjectState* const state = entry.mutable_object_state();
  state->set_kind(kind);
  state->set_id(id);
  state->set_code(static_cast<std::uint32_t>(code));
  state->set_reason(reason);
  return entry;
}

constexpr const char* kHead = "recorded by test 1 from 2009-02-13T23:31:30.000000042Z\n";

std::string LimId(std::uint32_t id) { return {reinterpret_cast<const char*>(&id), sizeof id}; }

record::Entry InterfaceEntry(std::uint32_t lim_id, std::uint32_t ifindex) {
  record::Entry entry;
  entry.mutable_interface()->set_lim_id(lim_id);
  entry.mutable_interface()->set_name("eth3");
  entry.mutable_interface()->set_type(2);
  entry.mutable_interface()->set_ifindex(ifindex);
  return entry;
}

record::Entry AtAddress(std::uint64_t address, record::Entry entry) {
  entry.mutable_request()->set_wrapper(address);
  return entry;
}

TEST_F(Show, PrintsEveryEntryOnALine) {
  encapsulation::VlanMessage vlan = Vlan(12);
  vlan.set_lim_id(LimId(3));
  vlan.set_vrf(5);
  vlan.set_source_mac_address("\x00\x11\x22\x33\x44\x55", 6);
  encapsulation::HostMessage host = HostOn(12, 5);
  host.set_lim_id(LimId(4));
  host.add_flags(encapsulation::ACTION_DROP);
  host.add_flags(encapsulation::ACTION_TO_CPU);
  encapsulation::MplsMessage mpls = MplsOn(17, 5, 1001);
  mpls.set_lim_id(LimId(4));
  mpls.add_capabilities(encapsulation::MPLS_CAPABILITY_PUSH);
  mpls.add_capabilities(encapsulation::MPLS_CAPABILITY_PROTECTION);
  mpls.set_flag(encapsulation::ACTION_DROP);
  mpls.set_pass_through_value(99);
  record::Entry begin;
  begin.mutable_begin_reinstall();
  record::Entry end;
  end.mutable_end_reinstall();
  record::Entry mpls_result = ResultEntry(4, HalOperation::kReplaceMpls, 17, kHalSuccess);
  mpls_result.mutable_result()->set_secondary_id(99);
  record::Entry refused = ResultEntry(5, HalOperation::kInstallEcmp, 7, kHalKernelRefused);
  refused.mutable_result()->set_reason("no memory");

  std::vector<record::Entry> entries = {
      InterfaceEntry(3, 0x01000103),
      InterfaceEntry(4, 0x01000107),
      ServerFoundEntry(),
      begin,
      RequestEntry(1, HalOperation::kInstallVrf, Vrf(5)),
      AtAddress(0x00007FFC1A2B3C40, RequestEntry(2, HalOperation::kInstallVlan, vlan)),
      AtAddress(0x000055D0C8A41E20, RequestEntry(3, HalOperation::kInstallHost, host)),
      AtAddress(0x000055D0C8A41E20, RequestEntry(4, HalOperation::kReplaceMpls, mpls)),
      AtAddress(0x0000557612340040, RequestEntry(5, HalOperation::kInstallEcmp, Ecmp(7, {12, 15}))),
      end,
      ResultEntry(2, HalOperation::kInstallVlan, 12, kHalSuccess),
      ResultEntry(3, HalOperation::kInstallHost, 12, kHalMissingReference),
      mpls_result,
      ResultEntry(5, HalOperation::kInstallEcmp, 7, HalReturnCode{77}),
      refused,
      EventEntry("in sync after 120 ms"),
      StateEntry(static_cast<std::uint32_t>(HalKind::kHost), 12, kHalKernelRefused, "no memory"),
      StateEntry(static_cast<std::uint32_t>(HalKind::kHost), 12, kHalSuccess, ""),
      StateEntry(9, 12, kHalNoInterface, ""),
  };
  std::uint64_t time = 0;
  for (record::Entry& entry : entries) entry.set_time_ns(time += 400'000'001);

  EXPECT_EQ(
      Text(RecordingBytes(TestHeader(), entries)),
      std::string(kHead) +
          "0.400000001 ---- interface lim_id=3 name=eth3 type=2 ifindex=16777475\n"
          "0.800000002 ---- interface lim_id=4 name=eth3 type=2 ifindex=16777479\n"
          "1.200000003 <=== server-found\n"
          "1.600000004 ===> begin-reinstall\n"
          "2.000000005 ===> #1 install-vrf VrfEncapsulationMessage(VRF id(5))\n"
          "2.400000006 ===> #2 install-vlan VlanEncapsulationMessage(this=0x00007FFC1A2B3C40): "
          "VlanMessage(vlan destination id(12), lim id(name=eth3, type=0x02, value=0x000103), "
          "vrf=5, mtu=1500, source mac address(00:11:22:33:44:55))\n"
          "2.800000007 ===> #3 install-host HostEncapsulationMessage(this=0x000055D0C8A41E20): "
          "HostMessage(host destination id(12), vlan destination id(5), lim id(name=eth3, "
          "type=0x02, value=0x000107), HAL Flags(Drop Packet, To CPU), destination mac "
          "address(Empty))\n"
          "3.200000008 ===> #4 replace-mpls MplsEncapsulationMessage(this=0x000055D0C8A41E20): "
          "MplsMessage(mpls destination id(17), vlan/tunnel destination id(5), lim id(name=eth3, "
          "type=0x02, value=0x000107), destination mac address(Empty), labels(size=1, "
          "label(1001)), MPLS Capabilities(Push, Protection), HAL Flag(Drop Packet))\n"
          "3.600000009 ===> #5 install-ecmp EcmpEncapsulationMessage(this=0x0000557612340040): "
          "EcmpMessage(destination id(7) EcmpMembers[ 12 15 ])\n"
          "4.000000010 ===> end-reinstall\n"
          "4.400000011 <=== #2 install-vlan id=12 code=0 success\n"
          "4.800000012 <=== #3 install-host id=12 code=1 a destination that it refers to does not "
          "exist in the HAL\n"
          "5.200000013 <=== #4 replace-mpls id=17 secondary_id=99 code=0 success\n"
          "5.600000014 <=== #5 install-ecmp id=7 code=77 code 77\n"
          "6.000000015 <=== #5 install-ecmp id=7 code=9 refused by the kernel: no memory\n"
          "6.400000016 ---- in sync after 120 ms\n"
          "6.800000017 <=== object-state host id=12 code=9 refused by the kernel: no memory\n"
          "7.200000018 <=== object-state host id=12 code=0 success\n"
          "7.600000019 <=== object-state kind 9 id=12 code=7 no such interface\n");
}

TEST_F(Show, RendersWhatTheRecordedMessageRendered) {
  interface_ids::InterfaceTable::Global().Set(3, {"eth3", 2, 0x01000103});
  auto message = std::make_unique<encapsulation::VlanMessage>(Vlan(12));
  message->set_lim_id(LimId(3));
  message->add_list_values("not rendered");
  const VlanEncapsulationMessage wrapper(std::move(message));
  const std::string rendering = wrapper.ToString(true);

  const TestFolder folder;
  {
    Recorder recorder(folder.Path("recording"), "test 1");
    recorder.Interface(3, "eth3", 2, 0x01000103);
    HalRequest request;
    MakeRequest(HalOperation::kInstallVlan, wrapper, &request);
    recorder.Request(request, &wrapper);
  }
  interface_ids::InterfaceTable::Global().Clear();
  EXPECT_THAT(Text(ReadFile(folder.Path("recording"))),
              HasSubstr(" ===> #1 install-vlan " + rendering + "\n"));
}

TEST_F(Show, RendersMessagesWithoutAnAddressOrContent) {
  const encapsulation::MplsMessage empty;
  record::Entry omitted = RequestEntry(2, HalOperation::kInstallHost, empty);
  omitted.mutable_request()->set_omitted_payload_bytes(2'000'000);
  record::Entry undecodable = RequestEntry(3, HalOperation::kInstallHost, empty);
  undecodable.mutable_request()->set_payload("\xFF\xFF");
  EXPECT_EQ(
      Text(RecordingBytes(TestHeader(), {RequestEntry(1, HalOperation::kDestroyMpls, empty),
                                         omitted, undecodable})),
      std::string(kHead) +
          "0.000000000 ===> #1 destroy-mpls MplsEncapsulationMessage(this=unknown): "
          "MplsMessage(mpls destination id(0), vlan/tunnel destination id(Empty), lim "
          "id(Empty), destination mac address(Empty), labels(size=0), MPLS Capabilities(), HAL "
          "Flag(None))\n"
          "0.000000000 ===> #2 install-host (a message of 2000000 bytes, too long to be "
          "recorded)\n"
          "0.000000000 ===> #3 install-host HostMessage{2 bytes that do not decode}\n");
}

TEST_F(Show, KeepsEachEntryOnItsLine) {
  EXPECT_EQ(
      Text(RecordingBytes(TestHeader(), {EventEntry("two\nlines\x1B[0m\x7F\xC2\x9B, \xC3\xA4")})),
      std::string(kHead) + "0.000000000 ---- two\\nlines\\x1b[0m\\x7f\\u009b, \xC3\xA4\n");
}

// A message of VLAN destination 12, written by a schema with one more field.
encapsulation::VlanMessage VlanWithColour() {
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(12);
  vlan.GetReflection()->MutableUnknownFields(&vlan)->AddVarint(8, 7);
  return vlan;
}

TEST_F(Show, PrintsByTheSchemaOfTheRecordingWhatItsOwnDoesNotKnow) {
  record::Header header = TestHeader();
  google::protobuf::FileDescriptorProto* const file = header.mutable_schema()->mutable_file(0);
  google::protobuf::DescriptorProto* const vlan = file->mutable_message_type(0);
  ASSERT_EQ(vlan->name(), "VlanMessage");
  google::protobuf::FieldDescriptorProto* const colour = vlan->add_field();
  colour->set_name("colour");
  colour->set_number(8);
  colour->set_type(google::protobuf::FieldDescriptorProto::TYPE_UINT32);
  colour->set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
  google::protobuf::EnumDescriptorProto* const flags = file->mutable_enum_type(0);
  ASSERT_EQ(flags->name(), "ActionFlags");
  google::protobuf::EnumValueDescriptorProto* const mirror = flags->add_value();
  mirror->set_name("ACTION_MIRROR");
  mirror->set_number(9);
  google::protobuf::DescriptorProto* const ecmp = file->mutable_message_type(3);
  ASSERT_EQ(ecmp->name(), "EcmpMessage");
  ecmp->mutable_field(1)->set_name("next_hops");

  encapsulation::HostMessage mirrored = Host(4);
  mirrored.GetReflection()->MutableUnknownFields(&mirrored)->AddVarint(4, 9);
  EXPECT_EQ(
      Text(RecordingBytes(header, {RequestEntry(1, HalOperation::kInstallVlan, VlanWithColour()),
                                   RequestEntry(2, HalOperation::kInstallVlan, Vlan(13)),
                                   RequestEntry(3, HalOperation::kInstallHost, mirrored),
                                   RequestEntry(4, HalOperation::kInstallEcmp, Ecmp(7, {12})),
                                   RequestEntry(5, HalOperation::kDestroyEcmp, Ecmp(7, {}))})),
      std::string(kHead) +
          "0.000000000 ===> #1 install-vlan VlanMessage{vlan_destination_id: 12 colour: 7}\n"
          "0.000000000 ===> #2 install-vlan VlanEncapsulationMessage(this=unknown): "
          "VlanMessage(vlan destination id(13), lim id(Empty), vrf=Empty, mtu=1500, source source "
          "mac address(Empty))\n"
          "0.000000000 ===> #3 install-host HostMessage{dest_id: 4 flags: ACTION_MIRROR}\n"
          "0.000000000 ===> #4 install-ecmp EcmpMessage{db_id: 7 next_hops: 12}\n"
          "0.000000000 ===> #5 destroy-ecmp EcmpEncapsulationMessage(this=unknown): "
          "EcmpMessage(destination id(7))\n");
}

TEST_F(Show, PrintsWhatPrecedesDamage) {
  const std::string valid = RecordingBytes(TestHeader(), {EventEntry("before")});
  const std::string bytes = valid + std::string("\x01\xFF", 2);
  RecordingReader recording = ReaderOf(bytes);
  std::ostringstream out;
  EXPECT_THROW(ShowRecording(&recording, &out), RecordingError);
  EXPECT_EQ(out.str(), std::string(kHead) + "0.000000000 ---- before\n");
}

TEST_F(Show, SurvivesDamagedRecordings) {
  const std::string whole =
      RecordingBytes(TestHeader(), {InterfaceEntry(3, 1),
                                    RequestEntry(1, HalOperation::kInstallVlan, VlanWithColour()),
                                    RequestEntry(2, HalOperation::kInstallMpls, MplsOn(1, 2, 3)),
                                    ResultEntry(2, HalOperation::kInstallMpls, 1, kHalSuccess)});
  SilenceProtobufLog();
  std::mt19937 random(3);
  int shown = 0;
  for (int round = 0; round < 5'000; ++round) {
    std::string bytes = whole;
    bytes[random() % bytes.size()] = static_cast<char>(random());
    std::string text;
    if (ErrorOf([&] { text = Text(bytes); }).empty()) {
      ++shown;
      EXPECT_THAT(text, HasSubstr("recorded by "));
    }
  }
  EXPECT_GT(shown, 0);
}

}  // namespace
}  // namespace reference
