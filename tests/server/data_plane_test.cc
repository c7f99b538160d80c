/// A server with a data plane: batches, answers after the commit, and refusals.

#include "reference/hal/data_plane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/hal/fake_data_plane.h"
#include "tests/hal/messages.h"
#include "tests/hal/observed.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"
#include "wire.pb.h"

namespace reference {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;

constexpr int kInstallVlan = 5;
constexpr int kDestroyVlan = 6;
constexpr int kReplaceVlan = 7;
constexpr int kInstallHost = 8;
constexpr int kBegin = 17;
constexpr int kEnd = 18;
constexpr int kHeartbeat = 20;
constexpr int kReadTables = 21;

std::string VlanFrame(int type, std::uint32_t sequence, std::uint32_t id,
                      std::uint32_t mtu = 1500) {
  return FrameBytes(type, sequence, Vlan(id, mtu).SerializeAsString());
}

std::string HostFrame(std::uint32_t sequence, std::uint32_t id, std::uint32_t vlan) {
  return FrameBytes(kInstallHost, sequence, HostOn(id, vlan).SerializeAsString());
}

class DataPlaneTest : public testing::Test {
 protected:
  DataPlaneTest() { client_.emplace(server_.path()).Greet(); }

  static HalServerOptions Options(DataPlane* data_plane) {
    HalServerOptions options;
    options.data_plane = data_plane;
    return options;
  }

  // Stops the server first, so its thread has ended.
  std::vector<std::string> Calls() {
    server_.Stop();
    return data_plane_.TakeCalls();
  }

  FakeDataPlane data_plane_;
  TestServer server_{Options(&data_plane_)};
  std::optional<RawClient> client_;
};

TEST_F(DataPlaneTest, TheRequestsOfAReadAreOneCommit) {
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + HostFrame(2, 20, 10) +
                VlanFrame(kReplaceVlan, 3, 10, 1400));
  EXPECT_THAT(client_->ReceiveFrames(3),
              ElementsAre(Result(1, 0, 10), Result(2, 0, 20), Result(3, 0, 10)));
  EXPECT_THAT(Calls(), ElementsAre("store vlan 10", "store host 20", "store vlan 10", "commit"));
}

TEST_F(DataPlaneTest, ACodeOfTheDataPlaneIsTheResult) {
  data_plane_.RefuseToStore("vlan 10", kHalNoInterface);
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + FrameBytes(kInstallVlan, 2, "\xFF"));
  EXPECT_THAT(client_->ReceiveFrames(2), ElementsAre(Result(1, 7, 10), Result(2, 6, 0)));
}

TEST_F(DataPlaneTest, OnlyTheRefusedRequestFails) {
  data_plane_.RefuseToCommit("vlan 11");
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + VlanFrame(kInstallVlan, 2, 11) +
                VlanFrame(kInstallVlan, 3, 12) + FrameBytes(kInstallVlan, 4, "\xFF"));
  EXPECT_THAT(client_->ReceiveFrames(4),
              ElementsAre(Result(1, 0, 10), Result(2, 9, 11), Result(3, 0, 12), Result(4, 6, 0)));
  EXPECT_THAT(server_.Lines(), Contains(EndsWith("install-vlan 11: no room for vlan 11")));
  const auto entries = server_.Tables().Entries(HalKind::kVlan);
  EXPECT_EQ(entries.size(), 2);
  EXPECT_EQ(entries.count(11), 0);
  Calls();
  EXPECT_EQ(data_plane_.entries().size(), 2);
  EXPECT_EQ(data_plane_.entries().count("vlan 11"), 0);
}

TEST_F(DataPlaneTest, AClientOfMinorVersion2IsGivenTheReason) {
  data_plane_.RefuseToCommit("vlan 11");
  for (const char minor_version : {'\x01', '\x02', '\x7F'}) {
    client_.reset();
    client_.emplace(server_.path()).Greet(HelloBytes(minor_version));
    client_->Send(VlanFrame(kInstallVlan, 1, 10) + VlanFrame(kInstallVlan, 2, 11));
    const std::string reason = minor_version == 1 ? "" : "no room for vlan 11";
    EXPECT_THAT(client_->ReceiveFrames(2),
                ElementsAre(Result(1, 0, 10), Result(2, 9, 11, 0, reason)));
  }
}

TEST_F(DataPlaneTest, ACodeOfTheDataPlaneHasAReasonToo) {
  data_plane_.RefuseToStore("vlan 11", kHalNoInterface);
  data_plane_.RefuseToStore("vlan 12", kHalNotSupported);
  data_plane_.RefuseToStore("vlan 13", kHalExists);
  client_.reset();
  client_.emplace(server_.path()).Greet(HelloBytes('\x02'));
  client_->Send(VlanFrame(kInstallVlan, 1, 11) + VlanFrame(kInstallVlan, 2, 12) +
                VlanFrame(kInstallVlan, 3, 13));
  EXPECT_THAT(client_->ReceiveFrames(3),
              ElementsAre(Result(1, 7, 11, 0, "no place for vlan 11"),
                          Result(2, 8, 12, 0, "no place for vlan 12"), Result(3, 3, 13)));
}

// Each request is carried out again, and may then fail for another reason.
TEST_F(DataPlaneTest, TheReasonIsThatOfTheCode) {
  data_plane_.RefuseToStore("host 20", kHalNoInterface);
  data_plane_.RefuseToCommit("vlan 10");
  client_.reset();
  client_.emplace(server_.path()).Greet(HelloBytes('\x02'));
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + HostFrame(2, 20, 10));
  EXPECT_THAT(client_->ReceiveFrames(2),
              ElementsAre(Result(1, 9, 10, 0, "no room for vlan 10"), Result(2, 1, 20)));
}

TEST(DataPlaneObserverTest, SeesTheReason) {
  FakeDataPlane data_plane;
  data_plane.RefuseToCommit("vlan 11");
  Observed observed;
  HalServerOptions options;
  options.data_plane = &data_plane;
  options.observer = &observed;
  TestServer server(options);
  RawClient client(server.path());
  client.Greet();
  client.Send(VlanFrame(kInstallVlan, 1, 11));
  EXPECT_EQ(client.Receive(), Result(1, 9, 11));
  EXPECT_THAT(observed.lines(), Contains("#1 install-vlan 11: 9 no room for vlan 11"));
}

// It only asks for the digests.
TEST(ObserverTest, DoesNotSeeAnEndWithoutABegin) {
  Observed observed;
  HalServerOptions options;
  options.observer = &observed;
  TestServer server(options);
  RawClient client(server.path());
  client.Greet();
  client.Send(FrameBytes(kEnd, 1) + FrameBytes(kBegin, 2) + FrameBytes(kEnd, 3));
  EXPECT_EQ(client.ReceiveFrames(2).size(), 2);
  std::vector<std::string> marks;
  for (const std::string& line : observed.lines()) {
    if (line == "begin" || line == "end") marks.push_back(line);
  }
  EXPECT_THAT(marks, ElementsAre("begin", "end"));
}

TEST_F(DataPlaneTest, WhatRefersToARefusedEntryFindsItMissing) {
  data_plane_.RefuseToCommit("vlan 10");
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + HostFrame(2, 20, 10));
  EXPECT_THAT(client_->ReceiveFrames(2), ElementsAre(Result(1, 9, 10), Result(2, 1, 20)));
}

TEST_F(DataPlaneTest, ARefusedReplaceLeavesTheEntryAsItWas) {
  client_->Send(VlanFrame(kInstallVlan, 1, 10));
  EXPECT_EQ(client_->Receive(), Result(1, 0, 10));
  data_plane_.RefuseToCommit("vlan 10");
  client_->Send(VlanFrame(kReplaceVlan, 2, 10, 1400));
  EXPECT_EQ(client_->Receive(), Result(2, 9, 10));
  EXPECT_EQ(server_.Tables().Entries(HalKind::kVlan).at(10), Vlan(10).SerializeAsString());
  EXPECT_THAT(Calls(), ElementsAre("store vlan 10", "commit", "store vlan 10", "commit",
                                   "store vlan 10", "commit or leave", "store vlan 10", "commit",
                                   "store vlan 10", "commit or leave"));
}

TEST_F(DataPlaneTest, OtherFramesWaitForTheRequestsBeforeThem) {
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + FrameBytes(kHeartbeat, 2) +
                VlanFrame(kDestroyVlan, 3, 10));
  EXPECT_THAT(client_->ReceiveFrames(3),
              ElementsAre(Result(1, 0, 10), RawFrame{kHeartbeat, 2, ""}, Result(3, 0, 10)));
  EXPECT_THAT(Calls(), ElementsAre("store vlan 10", "commit", "remove vlan 10", "commit"));
}

TEST_F(DataPlaneTest, WhatComesBeforeAProtocolErrorIsCommitted) {
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + FrameBytes(99, 2));
  EXPECT_EQ(client_->Receive(), Result(1, 0, 10));
  EXPECT_THAT(Calls(), ElementsAre("store vlan 10", "commit"));
}

TEST_F(DataPlaneTest, TheEndOfAReinstallIsCommitted) {
  client_->Send(VlanFrame(kInstallVlan, 1, 10) + FrameBytes(kBegin, 2) +
                VlanFrame(kInstallVlan, 3, 11) + FrameBytes(kEnd, 4));
  EXPECT_EQ(client_->ReceiveFrames(3).size(), 3);
  EXPECT_THAT(Calls(), ElementsAre("store vlan 10", "commit", "store vlan 11", "commit",
                                   "remove vlan 10", "commit or leave", "remove leftovers"));
}

TEST_F(DataPlaneTest, AReinstallEndsWhenNothingIsLeftOver) {
  data_plane_.LeaveParts(3);
  client_->Send(FrameBytes(kBegin, 1) + FrameBytes(kEnd, 2));
  EXPECT_EQ(client_->ReceiveFrames(1).size(), 1);
  EXPECT_THAT(Calls(), ElementsAre("commit or leave", "remove leftovers", "commit or leave",
                                   "remove leftovers", "commit or leave", "remove leftovers"));
}

TEST_F(DataPlaneTest, TheStatusCountsTheWrites) {
  data_plane_.set_writes(7);
  client_->Send(FrameBytes(kReadTables, 1));
  const auto end = client_->Receive();
  ASSERT_TRUE(end.has_value());
  wire::ServerStatus status;
  ASSERT_TRUE(status.ParseFromString(end->payload));
  EXPECT_TRUE(status.has_data_plane_writes());
  EXPECT_EQ(status.data_plane_writes(), 7);
  EXPECT_TRUE(status.has_data_plane_differences());
}

TEST_F(DataPlaneTest, TheEndOfALargeReinstallIsCommittedInSteps) {
  constexpr std::uint32_t kCount = 40'000;
  std::string requests;
  for (std::uint32_t id = 1; id <= kCount; ++id) requests += VlanFrame(kInstallVlan, id, id);
  std::thread sender([&] { client_->Send(requests); });
  EXPECT_THAT(client_->ReceiveFrames(kCount), testing::SizeIs(kCount));
  sender.join();
  client_->Send(FrameBytes(kBegin, 1) + FrameBytes(kEnd, 2));
  EXPECT_TRUE(client_->Receive());
  const std::vector<std::string> calls = Calls();
  EXPECT_GE(std::count(calls.begin(), calls.end(), "commit or leave"), 3);
  EXPECT_EQ(calls.back(), "remove leftovers");
}

}  // namespace
}  // namespace reference
