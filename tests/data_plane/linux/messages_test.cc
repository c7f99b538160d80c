#include "reference/data_plane/linux/messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace reference {
namespace {

constexpr MacAddress kMac = {0x02, 0, 0, 0, 0, 0x0A};
const DeviceIndexes kIndexes = {{"eth2", 5}, {"zv7", 9}};
const std::map<int, std::string> kNames = {{5, "eth2"}, {9, "zv7"}};

// An independent decoder, which knows only the layout of messages and attributes. It shows a
// message as its type, its flags in hexadecimal, its header in words, and its attributes as
// TYPE:BYTES or TYPE{nested}.
std::string Hex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

template <typename Number>
Number At(const std::string& bytes, std::size_t place) {
  Number number{};
  std::memcpy(&number, bytes.data() + place, sizeof number);
  return number;
}

std::string ShowAttributes(const std::string& bytes) {
  std::string text;
  for (std::size_t place = 0; place < bytes.size();) {
    const auto length = At<std::uint16_t>(bytes, place);
    const unsigned type = At<std::uint16_t>(bytes, place + 2);
    const std::string value = bytes.substr(place + 4, length - 4U);
    const bool nested = (type & 0x8000U) != 0;
    if (!text.empty()) text += ' ';
    text += std::to_string(type & 0x3FFFU);
    text += nested ? '{' + ShowAttributes(value) + '}' : ':' + Hex(value);
    place += std::size_t{4} * ((length + 3U) / 4);
  }
  return text;
}

std::string Show(MessageBatch* batch, std::size_t header_size) {
  const nlmsghdr* const message = batch->message(0);
  const void* const start = message;
  const std::string bytes(static_cast<const char*>(start), message->nlmsg_len);
  const std::string flags = Hex({static_cast<char>(message->nlmsg_flags >> 8U),
                                 static_cast<char>(message->nlmsg_flags & 0xFFU)});
  std::string text = std::to_string(message->nlmsg_type) + ' ' + flags + " |";
  for (std::size_t place = 16; place < 16 + header_size; place += 4) {
    text += ' ' + Hex(bytes.substr(place, 4));
  }
  return text + " | " + ShowAttributes(bytes.substr(16 + header_size));
}

struct Case {
  std::string name;
  std::function<void(MessageBatch*)> write;
  std::size_t header_size;
  std::string expected;
};

std::ostream& operator<<(std::ostream& out, const Case& test) { return out << test.name; }

constexpr std::size_t kLink = 16;
constexpr std::size_t kNeighbour = 12;
constexpr std::size_t kNexthop = 8;

MacvlanDevice Macvlan() { return {"eth2", kMac, 1400, "zv7", true, "core"}; }

Link PresentMacvlan() {
  Link link;
  link.index = 7;
  link.name = "zd10";
  link.kind = "macvlan";
  link.group = kDeviceGroup;
  link.parent = 5;
  link.master = 9;
  link.address = kMac;
  link.mtu = 1400;
  link.alias = "core";
  link.forwards_ipv4 = true;
  link.ipv6 = Link::Ipv6{true, false, false};
  return link;
}

std::function<void(MessageBatch*)> New(const std::string& name, const KernelDevice& device) {
  return [=](MessageBatch* batch) { WriteNewDevice(name, device, kIndexes, batch); };
}

std::function<void(MessageBatch*)> Change(const std::function<void(Link*)>& differ) {
  return [=](MessageBatch* batch) {
    Link present = PresentMacvlan();
    differ(&present);
    WriteDeviceChange(present, Macvlan(), kIndexes, batch);
  };
}

std::function<void(MessageBatch*)> Nexthop(const KernelNexthop& nexthop, bool replace = false) {
  return [=](MessageBatch* batch) { WriteNexthop(101, nexthop, /*device=*/7, replace, batch); };
}

// The numbers are those of linux/rtnetlink.h, if_link.h, neighbour.h, nexthop.h and mpls.h.
const std::vector<Case> kCases = {
    {"VrfDevice", New("zv7", VrfDevice{7}), kLink,
     "16 0601 | 00000000 00000000 00000000 00000000 | 3:7a763700 27:ab000000 "
     "18{1:76726600 2{1:07000000}}"},
    {"DummyDevice", New("zcpu", DummyDevice{}), kLink,
     "16 0601 | 00000000 00000000 00000000 00000000 | 3:7a63707500 27:ab000000 "
     "18{1:64756d6d7900}"},
    {"TaggedDevice", New("eth2.20", TaggedDevice{"eth2", 20}), kLink,
     "16 0601 | 00000000 00000000 00000000 00000000 | 3:657468322e323000 27:ab000000 5:05000000 "
     "18{1:766c616e00 2{1:1400}}"},
    {"MacvlanDevice", New("zd10", Macvlan()), kLink,
     "16 0601 | 00000000 00000000 00000000 00000000 | 3:7a64313000 27:ab000000 5:05000000 "
     "1:02000000000a 4:78050000 10:09000000 18{1:6d6163766c616e00 2{1:01000000}}"},
    {"MacvlanDeviceWithTheParentsMtuAndNoVrf",
     New("zd10", MacvlanDevice{"eth2", kMac, 0, "", false, ""}), kLink,
     "16 0601 | 00000000 00000000 00000000 00000000 | 3:7a64313000 27:ab000000 5:05000000 "
     "1:02000000000a 18{1:6d6163766c616e00 2{1:01000000}}"},
    {"NothingDiffers", Change([](Link*) {}), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 26{}"},
    {"AddressDiffers", Change([](Link* link) { link->address[5] = 1; }), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 1:02000000000a 26{}"},
    {"MtuDiffers", Change([](Link* link) { link->mtu = 1500; }), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 4:78050000 26{}"},
    {"MasterDiffers", Change([](Link* link) { link->master = 0; }), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 10:09000000 26{}"},
    {"AliasDiffers", Change([](Link* link) { link->alias = "edge"; }), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 20:636f7265 26{}"},
    {"Ipv4ForwardingDiffers", Change([](Link* link) { link->forwards_ipv4 = false; }), kLink,
     "16 0001 | 00000000 07000000 00000000 00000000 | 26{2{1{1:01000000}}}"},
    {"MakesItselfAnAddress", Change([](Link* link) { link->ipv6->generates_addresses = true; }),
     kLink, "16 0001 | 00000000 07000000 00000000 00000000 | 26{10{8:01}}"},
    {"AliasMasterAndForwardingGo",
     [](MessageBatch* batch) {
       WriteDeviceChange(PresentMacvlan(), MacvlanDevice{"eth2", kMac, 0, "", false, ""}, kIndexes,
                         batch);
     },
     kLink, "16 0001 | 00000000 07000000 00000000 00000000 | 10:00000000 20: 26{2{1{1:00000000}}}"},
    {"VrfForwards",
     [](MessageBatch* batch) {
       Link present;
       present.index = 9;
       WriteDeviceChange(present, VrfDevice{7}, kIndexes, batch);
     },
     kLink, "16 0001 | 00000000 09000000 00000000 00000000 | 26{2{1{1:01000000}}}"},
    {"SubinterfacesForwardingIsLeftAlone",
     [](MessageBatch* batch) {
       Link present;
       present.index = 9;
       WriteDeviceChange(present, TaggedDevice{"eth2", 20}, kIndexes, batch);
     },
     kLink, "16 0001 | 00000000 09000000 00000000 00000000 | 26{}"},
    {"DeviceUp", [](MessageBatch* batch) { WriteDeviceUp(7, batch); }, kLink,
     "16 0001 | 00000000 07000000 01000000 01000000 | "},
    {"DeviceRemoval", [](MessageBatch* batch) { WriteDeviceRemoval(7, batch); }, kLink,
     "17 0001 | 00000000 07000000 00000000 00000000 | "},
    {"LinkQuery", [](MessageBatch* batch) { WriteLinkQuery("zd10", batch); }, kLink,
     "18 0001 | 00000000 00000000 00000000 00000000 | 3:7a64313000 29:08000000"},
    {"LinkDump", WriteLinkDump, kLink,
     "18 0001 | 00000000 00000000 00000000 00000000 | 29:08000000"},
    {"Neighbour",
     [](MessageBatch* batch) { WriteNeighbour(7, NeighbourAddress(101), kMac, batch); }, kNeighbour,
     "28 0501 | 0a000000 07000000 80000000 | 1:fe800000000000000000000000000065 2:02000000000a "
     "12:ab"},
    {"NeighbourRemoval",
     [](MessageBatch* batch) { WriteNeighbourRemoval(7, NeighbourAddress(101), batch); },
     kNeighbour, "29 0001 | 0a000000 07000000 80000000 | 1:fe800000000000000000000000000065"},
    {"NeighbourDump", WriteNeighbourDump, kNeighbour, "30 0001 | 0a000000 00000000 00000000 | "},
    {"NexthopOnADevice", Nexthop(DeviceNexthop{"zd10", {}, {}}), kNexthop,
     "104 0601 | 0a00ab00 00000000 | 1:65000000 5:07000000"},
    {"NexthopViaANeighbour", Nexthop(DeviceNexthop{"zd10", NeighbourAddress(101), {}}), kNexthop,
     "104 0601 | 0a00ab00 04000000 | 1:65000000 5:07000000 6:fe800000000000000000000000000065"},
    {"NexthopReplaced", Nexthop(DeviceNexthop{"zd10", {}, {}}, /*replace=*/true), kNexthop,
     "104 0501 | 0a00ab00 00000000 | 1:65000000 5:07000000"},
    {"NexthopWithLabels", Nexthop(DeviceNexthop{"zd10", NeighbourAddress(101), {100, 1048575}}),
     kNexthop,
     "104 0601 | 0a00ab00 04000000 | 1:65000000 5:07000000 6:fe800000000000000000000000000065 "
     "7:0100 8{1:00064000fffff100}"},
    {"Blackhole", Nexthop(BlackholeNexthop{}), kNexthop,
     "104 0601 | 0a00ab00 00000000 | 1:65000000 4:"},
    {"Group", Nexthop(NexthopGroup{{{101, 1}, {102, 256}}}), kNexthop,
     "104 0601 | 0000ab00 00000000 | 1:65000000 2:650000000000000066000000ff000000"},
    {"NexthopRemoval", [](MessageBatch* batch) { WriteNexthopRemoval(101, batch); }, kNexthop,
     "105 0001 | 00000000 00000000 | 1:65000000"},
    {"NexthopDump", WriteNexthopDump, kNexthop, "106 0001 | 00000000 00000000 | "},
};

class MessagesTest : public testing::TestWithParam<Case> {};

TEST_P(MessagesTest, HasTheseBytes) {
  MessageBatch batch;
  GetParam().write(&batch);
  ASSERT_EQ(batch.count(), 1U);
  EXPECT_EQ(Show(&batch, GetParam().header_size), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Each, MessagesTest, testing::ValuesIn(kCases),
                         [](const auto& test) { return test.param.name; });

// The kernel reports a device with the attributes that it was given.
KernelDevice WrittenAndRead(const std::string& name, const KernelDevice& device) {
  MessageBatch batch;
  WriteNewDevice(name, device, kIndexes, &batch);
  const Link link = ReadLink(*batch.message(0));
  EXPECT_EQ(link.name, name);
  return OurDevice(link, kNames).value();
}

TEST(ReadLinkTest, KnowsEachKindOfDevice) {
  EXPECT_EQ(std::get<VrfDevice>(WrittenAndRead("zv7", VrfDevice{7})).table, 7U);
  EXPECT_TRUE(std::holds_alternative<DummyDevice>(WrittenAndRead("zcpu", DummyDevice{})));
  EXPECT_EQ(std::get<TaggedDevice>(WrittenAndRead("eth2.20", TaggedDevice{"eth2", 20})),
            (TaggedDevice{"eth2", 20}));
  MacvlanDevice expected = Macvlan();
  // The creation of a device does not set these.
  expected.forwarding = false;
  expected.alias.clear();
  EXPECT_EQ(std::get<MacvlanDevice>(WrittenAndRead("zd10", Macvlan())), expected);
}

TEST(ReadLinkTest, TheDevicesOfOthersAreNotOurs) {
  Link link = PresentMacvlan();
  EXPECT_TRUE(OurDevice(link, kNames).has_value());
  link.kind = "bridge";
  EXPECT_FALSE(OurDevice(link, kNames).has_value());
  link = PresentMacvlan();
  link.group = 0;
  EXPECT_FALSE(OurDevice(link, kNames).has_value());
}

TEST(ReadLinkTest, ForwardsOnlyIfItForwardsBothFamilies) {
  Link link = PresentMacvlan();
  EXPECT_TRUE(std::get<MacvlanDevice>(*OurDevice(link, kNames)).forwarding);
  link.ipv6->forwards = false;
  EXPECT_FALSE(std::get<MacvlanDevice>(*OurDevice(link, kNames)).forwarding);
  link.ipv6.reset();
  EXPECT_FALSE(std::get<MacvlanDevice>(*OurDevice(link, kNames)).forwarding);
  link = PresentMacvlan();
  link.forwards_ipv4 = false;
  EXPECT_FALSE(std::get<MacvlanDevice>(*OurDevice(link, kNames)).forwarding);
}

TEST(ReadNeighbourTest, KnowsOursByTheirMark) {
  MessageBatch batch;
  WriteNeighbour(7, NeighbourAddress(101), kMac, &batch);
  const NeighbourEntry entry = ReadNeighbour(*batch.message(0)).value();
  EXPECT_EQ(entry.device, 7);
  EXPECT_EQ(entry.address, NeighbourAddress(101));
  EXPECT_EQ(entry.mac, kMac);
  EXPECT_TRUE(entry.permanent);

  WriteNeighbourRemoval(7, NeighbourAddress(101), &batch);
  EXPECT_FALSE(ReadNeighbour(*batch.message(1)).has_value());
}

NexthopEntry WrittenAndRead(const KernelNexthop& nexthop) {
  MessageBatch batch;
  WriteNexthop(101, nexthop, /*device=*/7, /*replace=*/false, &batch);
  NexthopEntry entry = ReadNexthop(*batch.message(0));
  EXPECT_EQ(entry.id, 101U);
  EXPECT_EQ(entry.protocol, kRoutingProtocol);
  return entry;
}

TEST(ReadNexthopTest, KnowsEachKindOfNexthop) {
  DeviceNexthop via{"", NeighbourAddress(101), {}};
  for (std::uint32_t label = 16; label < 16 + kMaxLabels; ++label) via.labels.push_back(label);
  EXPECT_EQ(WrittenAndRead(via).nexthop, KernelNexthop(via));
  EXPECT_EQ(WrittenAndRead(via).device, 7);
  const KernelNexthop alone = DeviceNexthop{"", {}, {}};
  EXPECT_EQ(WrittenAndRead(alone).nexthop, alone);
  EXPECT_EQ(WrittenAndRead(BlackholeNexthop{}).nexthop, KernelNexthop(BlackholeNexthop{}));
}

TEST(ReadNexthopTest, KnowsTheLargestGroup) {
  NexthopGroup group;
  for (std::uint32_t id = 1; id <= kMaxMembers; ++id) {
    group.members.emplace_back(id, 1 + id % kMaxWeight);
  }
  EXPECT_EQ(WrittenAndRead(group).nexthop, KernelNexthop(group));
}

TEST(ReadTest, AMessageWithoutAttributesIsAccepted) {
  MessageBatch batch;
  batch.Start(16, 0);
  EXPECT_EQ(ReadLink(*batch.message(0)).name, "");
  EXPECT_FALSE(ReadNeighbour(*batch.message(0)).has_value());
  EXPECT_EQ(ReadNexthop(*batch.message(0)).id, 0U);
}

}  // namespace
}  // namespace reference
