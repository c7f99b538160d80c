/// What a server tells its writer about objects whose state changes after their result.

#include "reference/server/object_states.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reference/wire/object_states.h"
#include "tests/hal/fake_data_plane.h"
#include "tests/hal/messages.h"
#include "tests/hal/observed.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"

namespace reference {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr int kInstallVlan = 5;
constexpr int kDestroyVlan = 6;
constexpr int kReplaceVlan = 7;
constexpr int kBegin = 17;
constexpr int kEnd = 18;
constexpr int kInSync = 19;
constexpr int kHeartbeat = 20;
constexpr int kObjectStates = 24;

HalObjectState Broken(std::uint32_t id, const std::string& reason = "no memory") {
  return {HalKind::kVlan, id, kHalKernelRefused, reason};
}
HalObjectState InOrder(std::uint32_t id) { return {HalKind::kVlan, id, kHalSuccess, {}}; }

TEST(ObjectStatesTest, TellsEachChangeOnce) {
  ObjectStates states;
  states.SetAll({Broken(10), Broken(11)});
  EXPECT_THAT(states.TakeNews(10), ElementsAre(Broken(10), Broken(11)));
  states.SetAll({Broken(10), Broken(11)});
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
  states.SetAll({Broken(11, "too late"), Broken(12)});
  EXPECT_THAT(states.TakeNews(10), ElementsAre(InOrder(10), Broken(11, "too late"), Broken(12)));
}

TEST(ObjectStatesTest, MergesWhatIsNotToldYet) {
  ObjectStates states;
  states.SetAll({Broken(10)});
  states.SetAll({});
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
  states.SetAll({Broken(10), Broken(11), Broken(12)});
  EXPECT_THAT(states.TakeNews(2), ElementsAre(Broken(10), Broken(11)));
  states.SetAll({Broken(12)});
  EXPECT_THAT(states.TakeNews(2), ElementsAre(InOrder(10), InOrder(11)));
  EXPECT_THAT(states.TakeNews(2), ElementsAre(Broken(12)));
  EXPECT_FALSE(states.has_news());
}

TEST(ObjectStatesTest, AResultIsFollowedByTheStateAgain) {
  ObjectStates states;
  states.SetAll({Broken(10)});
  states.TakeNews(10);
  EXPECT_TRUE(states.TellAgain(HalKind::kVlan, 10));
  EXPECT_THAT(states.TakeNews(10), ElementsAre(Broken(10)));
  EXPECT_FALSE(states.TellAgain(HalKind::kVlan, 11));
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
}

// The writer took the result for a recovery, so there is nothing to tell.
TEST(ObjectStatesTest, ARecoveryRightAfterAResultIsNoNews) {
  ObjectStates states;
  states.SetAll({Broken(10)});
  states.TakeNews(10);
  states.TellAgain(HalKind::kVlan, 10);
  states.SetAll({});
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
}

TEST(ObjectStatesTest, ARemovedObjectHasNoState) {
  ObjectStates states;
  states.SetAll({Broken(10), Broken(11)});
  states.TakeNews(10);
  states.Remove(HalKind::kVlan, 10);
  states.RemoveUnless([](HalKind, std::uint32_t id) { return id != 11; });
  states.SetAll({});
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
}

TEST(ObjectStatesTest, ARefusalIsOverWhenTheHardwareMayAcceptTheObject) {
  ObjectStates states;
  states.NoteRefusal(HalKind::kVlan, 10, kHalNoInterface, 3);
  states.NoteRefusal(HalKind::kVlan, 11, kHalKernelRefused, 3);
  states.NoteRefusal(HalKind::kVlan, 12, kHalNoInterface, 3);
  states.NoteRefusal(HalKind::kVlan, 13, kHalNoInterface, 3);
  // Its result says that it is in order.
  states.TellAgain(HalKind::kVlan, 11);
  states.SetAll({});
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
  states.TellOfRefusals();
  EXPECT_THAT(states.TakeNews(10), ElementsAre(InOrder(10), InOrder(12)));
  states.TellOfRefusals();
  EXPECT_THAT(states.TakeNews(10), IsEmpty());
}

TEST(ObjectStatesTest, ABrokenObjectIsNotInOrderBecauseARefusalIsOver) {
  ObjectStates states;
  states.SetAll({Broken(10), Broken(11)});
  states.TakeNews(10);
  states.NoteRefusal(HalKind::kVlan, 10, kHalKernelRefused, 3);
  states.TellOfRefusals();
  EXPECT_THAT(states.TakeNews(10), ElementsAre(Broken(10)));
}

TEST(ObjectStatesTest, ANewWriterIsToldEverythingThatIsNotInOrder) {
  ObjectStates states;
  states.SetAll({Broken(10), Broken(11)});
  states.TakeNews(10);
  states.Set(InOrder(11));
  states.TellAll();
  EXPECT_THAT(states.TakeNews(10), ElementsAre(Broken(10)));
}

// After any sequence of changes, a writer that follows the news knows the true state of each
// object.
TEST(ObjectStatesTest, TheWriterLearnsTheTruthInRandomSequences) {
  std::mt19937 random(17);
  ObjectStates states;
  std::map<std::uint32_t, std::string> truth;
  std::map<std::uint32_t, std::string> known;
  const auto take = [&](std::size_t limit) {
    for (const HalObjectState& state : states.TakeNews(limit)) {
      EXPECT_NE(known.count(state.id) != 0 ? known[state.id] : "", state.reason) << "no news";
      known.erase(state.id);
      if (state.code != kHalSuccess) known[state.id] = state.reason;
    }
  };
  for (int step = 0; step < 20'000; ++step) {
    const std::uint32_t id = random() % 8;
    switch (random() % 6) {
      case 0: {
        truth.clear();
        std::vector<HalObjectState> broken;
        for (std::uint32_t each = 0; each < 8; ++each) {
          if (random() % 2 == 0) continue;
          truth[each] = std::to_string(random() % 3);
          broken.push_back(Broken(each, truth[each]));
        }
        states.SetAll(broken);
        break;
      }
      case 1:
        known.erase(id);
        states.TellAgain(HalKind::kVlan, id);
        break;
      case 2:
        known.erase(id);
        truth.erase(id);
        states.Remove(HalKind::kVlan, id);
        break;
      case 3:
        if (random() % 10 != 0) break;
        known.clear();
        states.TellAll();
        break;
      default:
        take(random() % 4);
    }
    if (random() % 10 != 0) continue;
    take(100);
    EXPECT_EQ(known, truth) << "step " << step;
  }
}

std::string VlanFrame(int type, std::uint32_t sequence, std::uint32_t id,
                      std::uint32_t mtu = 1500) {
  return FrameBytes(type, sequence, Vlan(id, mtu).SerializeAsString());
}

// A frame of the server with these states.
RawFrame Told(const std::vector<HalObjectState>& states) {
  std::string frame;
  AppendObjectStates(states, &frame);
  return {kObjectStates, 0, frame.substr(8)};
}

/// A server whose data plane finds at each check what the test chooses.
class ObjectStatesServerTest : public testing::Test {
 protected:
  ObjectStatesServerTest() {
    EXPECT_EQ(pipe(pipe_.data()), 0);
    data_plane_.set_change_fd(pipe_[0]);
    HalServerOptions options;
    options.data_plane = &data_plane_;
    options.observer = &observed_;
    server_.emplace(std::move(options));
  }
  ~ObjectStatesServerTest() override {
    server_.reset();
    for (const int fd : pipe_) close(fd);
  }

  void Connect(char minor_version = '\x03') {
    client_.reset();
    client_.emplace(server_->path());
    EXPECT_EQ(client_->Greet(HelloBytes(minor_version))->type, 1);
  }

  // Makes the server find that exactly these objects are broken.
  void Find(std::vector<HalObjectState> broken) {
    Repair repair;
    repair.broken = std::move(broken);
    data_plane_.SetRepair(std::move(repair));
    EXPECT_EQ(write(pipe_[1], "x", 1), 1);
  }

  // Waits until the server has checked again.
  void AwaitCheck(int checks) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (data_plane_.repairs() < checks && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GE(data_plane_.repairs(), checks);
  }

  void Install(std::uint32_t id, std::uint32_t sequence = 1) {
    client_->Send(VlanFrame(kInstallVlan, sequence, id));
    EXPECT_EQ(client_->Receive(), Result(sequence, 0, id));
  }

  // The next frame is a heartbeat, so the server has told nothing before it.
  void ExpectNothingTold() {
    client_->Send(kHeartbeat, 99);
    EXPECT_EQ(client_->Receive(), (RawFrame{kHeartbeat, 99, ""}));
  }

  std::array<int, 2> pipe_{};
  FakeDataPlane data_plane_;
  Observed observed_;
  std::optional<TestServer> server_;
  std::optional<RawClient> client_;
};

TEST_F(ObjectStatesServerTest, TheWriterIsToldWhatBreaksAndWhatRecovers) {
  Connect();
  Install(10);
  Install(11, 2);
  Find({Broken(10), Broken(11)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10), Broken(11)}));
  Find({Broken(11, "too late")});
  EXPECT_EQ(client_->Receive(), Told({InOrder(10), Broken(11, "too late")}));
  Find({});
  EXPECT_EQ(client_->Receive(), Told({InOrder(11)}));
  EXPECT_THAT(observed_.lines(), Contains("state vlan 11: 9 too late"));
  EXPECT_THAT(observed_.lines(), Contains("state vlan 11: 0"));
}

TEST_F(ObjectStatesServerTest, AWriterOfAnOlderMinorVersionIsToldNothing) {
  for (const char minor_version : {'\x00', '\x01', '\x02'}) {
    Connect(minor_version);
    Install(10);
    const int checks = data_plane_.repairs();
    Find({Broken(10)});
    AwaitCheck(checks + 1);
    ExpectNothingTold();
    Find({});
    AwaitCheck(checks + 2);
  }
}

TEST_F(ObjectStatesServerTest, AReaderIsToldNothing) {
  RawClient reader(server_->path());
  EXPECT_EQ(reader.Greet(HelloBytes('\x03'))->type, 1);
  Connect();
  Install(10);
  Find({Broken(10)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  reader.Send(kHeartbeat, 5);
  EXPECT_EQ(reader.Receive(), (RawFrame{kHeartbeat, 5, ""}));
}

// The next manager installs everything again. Each result says success, because the tables hold the
// object, and the state follows.
TEST_F(ObjectStatesServerTest, ANewWriterLearnsWhatIsBrokenNow) {
  Connect();
  Install(10);
  Find({Broken(10)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  Connect();
  client_->Send(FrameBytes(kBegin, 1) + VlanFrame(kInstallVlan, 2, 10) + FrameBytes(kEnd, 3));
  const auto frames = client_->ReceiveFrames(3);
  ASSERT_THAT(frames, SizeIs(3));
  std::vector<RawFrame> others;
  for (const RawFrame& frame : frames) {
    if (frame.type != kInSync) others.push_back(frame);
  }
  EXPECT_THAT(others, ElementsAre(Result(2, 0, 10), Told({Broken(10)})));
}

TEST_F(ObjectStatesServerTest, AResultIsFollowedByTheStateAndTheStateByACheck) {
  Connect();
  Install(10);
  Find({Broken(10)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  // The next check would find the object in order.
  data_plane_.SetRepair({});
  client_->Send(VlanFrame(kReplaceVlan, 2, 10, 1400));
  EXPECT_EQ(client_->Receive(), Result(2, 0, 10));
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  EXPECT_EQ(client_->Receive(), Told({InOrder(10)}));
}

// The writer sends again what was refused for want of an interface.
TEST_F(ObjectStatesServerTest, ARefusalIsOverWhenAnInterfaceComes) {
  const std::map<std::uint32_t, HalReturnCode> refusals = {
      {10, kHalNoInterface}, {11, kHalNotSupported}, {12, kHalKernelRefused}};
  data_plane_.RefuseToStore("vlan 10", kHalNoInterface);
  data_plane_.RefuseToStore("vlan 11", kHalNotSupported);
  data_plane_.RefuseToCommit("vlan 12");
  Connect();
  for (const auto& [id, code] : refusals) {
    client_->Send(VlanFrame(kInstallVlan, id, id));
    const auto result = client_->Receive();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->payload.substr(0, 4), std::string({0, 0, 0, static_cast<char>(code)}));
  }
  int checks = data_plane_.repairs();
  Find({});
  AwaitCheck(checks + 1);
  ExpectNothingTold();
  Repair repair;
  repair.interfaces_came = true;
  data_plane_.SetRepair(std::move(repair));
  EXPECT_EQ(write(pipe_[1], "x", 1), 1);
  EXPECT_EQ(client_->Receive(), Told({InOrder(10), InOrder(12)}));
}

TEST_F(ObjectStatesServerTest, ADestroyedObjectIsNotToldOf) {
  Connect();
  Install(10);
  Find({Broken(10)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  client_->Send(VlanFrame(kDestroyVlan, 2, 10));
  EXPECT_EQ(client_->Receive(), Result(2, 0, 10));
  const int checks = data_plane_.repairs();
  Find({});
  AwaitCheck(checks + 1);
  ExpectNothingTold();
}

// An entry that the end of the reinstall removes has no state any more when it is installed again.
TEST_F(ObjectStatesServerTest, AStaleEntryTakesItsStateAlong) {
  Connect();
  Install(10);
  Find({Broken(10)});
  EXPECT_EQ(client_->Receive(), Told({Broken(10)}));
  client_->Send(FrameBytes(kBegin, 2) + FrameBytes(kEnd, 3));
  EXPECT_EQ(client_->Receive()->type, kInSync);
  Install(10, 4);
  ExpectNothingTold();
}

TEST_F(ObjectStatesServerTest, ManyObjectsTakeSeveralFrames) {
  Connect();
  // A request makes the client the writer.
  Install(1000);
  std::vector<HalObjectState> broken;
  for (std::uint32_t id = 1; id <= 300; ++id) broken.push_back(Broken(id));
  Find(broken);
  std::vector<HalObjectState> told;
  for (const std::size_t size : std::array<std::size_t, 3>{128, 128, 44}) {
    const auto frame = client_->Receive();
    ASSERT_TRUE(frame);
    const auto states = ParseObjectStates(frame->payload);
    ASSERT_TRUE(states);
    EXPECT_THAT(*states, SizeIs(size));
    told.insert(told.end(), states->begin(), states->end());
  }
  EXPECT_EQ(told, broken);
}

TEST_F(ObjectStatesServerTest, AChangeThatIsNotMadeLeadsToACheck) {
  server_.reset();
  data_plane_.LeaveSomething();
  data_plane_.SetRepair({});
  HalServerOptions options;
  options.data_plane = &data_plane_;
  server_.emplace(std::move(options));
  Connect();
  const int checks = data_plane_.repairs();
  client_->Send(FrameBytes(kBegin, 2) + FrameBytes(kEnd, 3));
  EXPECT_EQ(client_->Receive()->type, kInSync);
  AwaitCheck(checks + 1);
}

// The simulated server.
TEST(ObjectStateFaultTest, BreaksAnObjectForATime) {
  TestServer server(R"(fault { what: "object-state" of: "vlan" nth: 2 code: 9 ms: 1 })");
  RawClient client(server.path());
  EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
  client.Send(VlanFrame(kInstallVlan, 1, 10) + VlanFrame(kInstallVlan, 2, 11));
  EXPECT_THAT(client.ReceiveFrames(4),
              ElementsAre(Result(1, 0, 10), Result(2, 0, 11), Told({Broken(11, "a fault")}),
                          Told({InOrder(11)})));
  EXPECT_THAT(server.FaultLines(), ElementsAre("fault: object-state on install-vlan, 1 of 1"));
}

TEST(ObjectStateFaultTest, AStateDoesNotOvertakeALateResult) {
  TestServer server(
      R"(fault { what: "object-state" of: "vlan" code: 9 ms: 600000 }
         fault { what: "delay" of: "vlan" ms: 100 })");
  RawClient client(server.path());
  EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
  client.Send(VlanFrame(kInstallVlan, 1, 10));
  EXPECT_THAT(client.ReceiveFrames(2),
              ElementsAre(Result(1, 0, 10), Told({Broken(10, "a fault")})));
}

TEST(ObjectStateFaultTest, BreaksNothingThatIsDestroyed) {
  TestServer server(R"(fault { what: "object-state" of: "vlan" nth: 2 code: 9 ms: 600000 })");
  RawClient client(server.path());
  EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
  client.Send(VlanFrame(kInstallVlan, 1, 10) + VlanFrame(kDestroyVlan, 2, 10));
  EXPECT_THAT(client.ReceiveFrames(2), ElementsAre(Result(1, 0, 10), Result(2, 0, 10)));
  client.Send(kHeartbeat, 3);
  EXPECT_EQ(client.Receive(), (RawFrame{kHeartbeat, 3, ""}));
}

TEST(ObjectStateFaultTest, TheNextWriterIsToldToo) {
  TestServer server(R"(fault { what: "object-state" of: "vlan" code: 9 ms: 600000 })");
  {
    RawClient first(server.path());
    EXPECT_EQ(first.Greet(HelloBytes('\x03'))->type, 1);
    first.Send(VlanFrame(kInstallVlan, 1, 10));
    EXPECT_THAT(first.ReceiveFrames(2),
                ElementsAre(Result(1, 0, 10), Told({Broken(10, "a fault")})));
  }
  // It has connected and left.
  EXPECT_THAT(server.WaitForLines(2), SizeIs(2));
  RawClient second(server.path());
  EXPECT_EQ(second.Greet(HelloBytes('\x03'))->type, 1);
  second.Send(VlanFrame(kInstallVlan, 1, 11));
  EXPECT_THAT(second.ReceiveFrames(2),
              ElementsAre(Result(1, 0, 11), Told({Broken(10, "a fault")})));
}

TEST(ObjectStateFaultTest, EndsWithTheServer) {
  TestServer server(
      R"(fault { what: "object-state" of: "vlan" code: 9 ms: 600000 }
         fault { what: "crash-after" of: "vlan" nth: 2 })");
  {
    RawClient client(server.path());
    EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
    client.Send(VlanFrame(kInstallVlan, 1, 10));
    EXPECT_THAT(client.ReceiveFrames(2),
                ElementsAre(Result(1, 0, 10), Told({Broken(10, "a fault")})));
    client.Send(VlanFrame(kInstallVlan, 2, 11));
    EXPECT_TRUE(client.Ended());
  }
  // Waits for the end of the crash.
  server.Generation();
  RawClient client(server.path());
  EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
  client.Send(VlanFrame(kInstallVlan, 1, 12));
  EXPECT_EQ(client.Receive(), Result(1, 0, 12));
  client.Send(kHeartbeat, 3);
  EXPECT_EQ(client.Receive(), (RawFrame{kHeartbeat, 3, ""}));
}

TEST(ObjectStateFaultTest, AnObjectStaysBrokenForItsTime) {
  TestServer server(R"(fault { what: "object-state" of: "vlan" code: 9 ms: 600000 })");
  RawClient client(server.path());
  EXPECT_EQ(client.Greet(HelloBytes('\x03'))->type, 1);
  client.Send(VlanFrame(kInstallVlan, 1, 10));
  EXPECT_THAT(client.ReceiveFrames(2),
              ElementsAre(Result(1, 0, 10), Told({Broken(10, "a fault")})));
  for (std::uint32_t beat = 2; beat <= 20; ++beat) {
    client.Send(kHeartbeat, beat);
    ASSERT_EQ(client.Receive(), (RawFrame{kHeartbeat, beat, ""}));
  }
}

}  // namespace
}  // namespace reference
