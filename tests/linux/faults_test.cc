/// A HAL server with Linux behind its tables, while the kernel refuses, answers get lost, devices
/// vanish and other programs are in the way: every request has its result, and tables and kernel
/// agree afterwards. Needs root. Uses VRFs, labels and 802.1Q where the kernel has them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "reference/data_plane/kernel_data_plane.h"
#include "reference/data_plane/linux/linux_kernel.h"
#include "reference/data_plane/linux/messages.h"
#include "reference/data_plane/translation.h"
#include "reference/server/kernel_check.h"
#include "tests/data_plane/linux/faulty_socket.h"
#include "tests/data_plane/linux/network_namespace.h"
#include "tests/hal/messages.h"
#include "tests/manager/process.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"

namespace reference {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr int kBegin = 17;
constexpr int kEnd = 18;

const InterfaceNames kInterfaces = {{1, "eth2"}, {2, "eth3"}, {3, "eth3.20"}};

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim, std::uint32_t mtu = 1500) {
  encapsulation::VlanMessage vlan = Vlan(id, mtu);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return vlan;
}

std::string Mac(std::uint32_t number) {
  return std::string("\x02\x02\x02\x02\x02", 5) + static_cast<char>(number + 1);
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan, std::uint32_t mac = 1) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac(Mac(mac));
  return host;
}

template <typename Message>
HalRequest RequestOf(HalOperation operation, std::uint32_t id, const Message& message) {
  return {operation, id, 0, message.SerializeAsString()};
}

HalRequest InstallVlan(std::uint32_t id, std::uint32_t lim) {
  return RequestOf(HalOperation::kInstallVlan, id, VlanOn(id, lim));
}
HalRequest InstallHost(std::uint32_t id, std::uint32_t vlan) {
  return RequestOf(HalOperation::kInstallHost, id, Neighbour(id, vlan));
}
HalRequest InstallGroup(std::uint32_t id, const std::vector<std::uint32_t>& members) {
  return RequestOf(HalOperation::kInstallEcmp, id, Ecmp(id, members));
}

/// What the server answered.
struct Answer {
  std::uint32_t code = 0;
  std::string reason;
};

/// A data plane on the kernel of the thread's namespace, reached through a socket with faults.
class FaultyDataPlane {
 public:
  FaultyDataPlane() : kernel_(Sockets(&socket_)) {
    kernel_.Read();
    std::set<std::string> devices;
    for (const auto& [name, mtu] : kernel_.Devices()) devices.insert(name);
    data_plane_.emplace(
        Translation(kInterfaces, std::move(devices)), Leftovers(),
        KernelAccess{
            [this](const std::vector<KernelChange>& changes) { return Write(changes); }, {}, {}},
        [this](LogLevel, const std::string& line) { lines_.push_back(line); });
  }

  DataPlane* data_plane() { return &*data_plane_; }
  // Of the server's thread, as are the lines.
  FaultySocket* socket() { return socket_; }
  std::vector<std::string>* lines() { return &lines_; }

 private:
  static NetlinkSockets Sockets(FaultySocket** socket) {
    NetlinkSockets sockets = OpenNetlinkSockets();
    auto faulty = std::make_unique<FaultySocket>(std::move(sockets.requests));
    *socket = faulty.get();
    sockets.requests = std::move(faulty);
    return sockets;
  }

  std::vector<RefusedChange> Write(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (LinuxKernel::Refusal& refusal : kernel_.Apply(changes)) {
      refused.push_back({refusal.change, std::move(refusal.text)});
    }
    return refused;
  }

  FaultySocket* socket_ = nullptr;
  LinuxKernel kernel_;
  std::vector<std::string> lines_;
  std::optional<KernelDataPlane> data_plane_;
};

/// The server and its client.
class FaultyServer {
 public:
  FaultyServer() : server_(Options(plane_.data_plane())), client_(server_.path()) {
    client_.Greet(HelloBytes('\x02'));
  }

  /// Calls the function while the server's thread is idle.
  template <typename Function>
  void WhileIdle(Function function) {
    // Each call waits for the server's thread, which sees what happened before.
    server_.Tables();
    function(plane_.socket());
    server_.Tables();
  }

  /// Sends the requests at once and returns their answers.
  std::vector<Answer> Send(const std::vector<HalRequest>& requests) {
    std::string bytes;
    std::uint32_t sequence = 0;
    for (const HalRequest& request : requests) {
      bytes += FrameBytes(static_cast<int>(request.operation), sequence++, request.payload);
    }
    client_.Send(bytes);
    std::vector<Answer> answers;
    for (const RawFrame& frame : client_.ReceiveFrames(requests.size())) {
      EXPECT_EQ(frame.sequence, answers.size());
      const auto number = static_cast<unsigned char>(frame.payload.at(3));
      answers.push_back({number, frame.payload.substr(12)});
    }
    EXPECT_EQ(answers.size(), requests.size());
    answers.resize(requests.size());
    return answers;
  }

  /// Removes all entries.
  void Clear() {
    client_.Send(FrameBytes(kBegin, 0) + FrameBytes(kEnd, 1));
    EXPECT_TRUE(client_.Receive().has_value());
  }

  TableEntries Entries() { return server_.Tables().Entries(); }
  std::vector<std::string> Lines() { return server_.Lines(); }
  /// What the data plane has logged since the previous call.
  std::vector<std::string> TakeKernelLines() {
    server_.Tables();
    return std::exchange(*plane_.lines(), {});
  }

 private:
  static HalServerOptions Options(DataPlane* data_plane) {
    HalServerOptions options;
    options.data_plane = data_plane;
    return options;
  }

  FaultyDataPlane plane_;
  TestServer server_;
  RawClient client_;
};

class FaultsTest : public NetworkNamespaceTest {
 protected:
  void SetUp() override {
    NetworkNamespaceTest::SetUp();
    if (IsSkipped()) return;
    AddDevice("3");
    Restart();
  }

  /// Adds "eth2" with the number 2.
  static void AddDevice(const std::string& number) {
    Run("ip link add eth" + number + " type veth peer name far" + number);
    Run("ip link set eth" + number + " up; ip link set far" + number + " up");
    WaitUntilUp("eth" + number);
  }

  /// Starts a server in a kernel without objects of an earlier one.
  void Restart() {
    server_.reset();
    Works("ip link del group 171; ip nexthop flush proto 171");
    server_ = std::make_unique<FaultyServer>();
    model_.Clear();
  }

  /// Sends the requests, and checks the answers and the tables: what the kernel refused has changed
  /// nothing, and everything else did what tables without a kernel do.
  std::vector<Answer> Send(const std::vector<HalRequest>& requests) {
    const std::vector<Answer> answers = server_->Send(requests);
    for (std::size_t i = 0; i < requests.size(); ++i) {
      const HalReturnCode code{answers[i].code};
      if (code == kHalNotSupported || code == kHalKernelRefused) continue;
      const auto name =
          std::string(OperationName(requests[i].operation)) + ' ' + std::to_string(requests[i].id);
      EXPECT_EQ(model_.Apply(requests[i]), code) << name;
    }
    EXPECT_EQ(server_->Entries(), model_.Entries());
    return answers;
  }

  /// What is wrong in the kernel.
  std::vector<std::string> Wrong() {
    ServerContents contents;
    contents.entries = server_->Entries();
    const KernelComparison comparison = CompareWithKernel(contents, kInterfaces, "");
    std::vector<std::string> wrong;
    for (const auto& [name, state] : comparison.objects) {
      if (state != ObjectState::kAsWanted) wrong.push_back(name + ' ' + ObjectStateText(state));
    }
    return wrong;
  }

  std::unique_ptr<FaultyServer> server_;
  // What the tables must hold.
  HalTables model_{1000};
};

/// Random requests of a site that keeps changing. Each kind has a few ids of its own.
class RandomRequests {
 public:
  struct Features {
    bool vrfs = false;
    bool labels = false;
    bool tags = false;
  };

  RandomRequests(unsigned seed, const Features& features) : random_(seed), features_(features) {}

  std::vector<HalRequest> Next(std::size_t count) {
    std::vector<HalRequest> requests;
    while (requests.size() < count) requests.push_back(Next());
    return requests;
  }

 private:
  std::uint32_t Below(std::uint32_t end) {
    return std::uniform_int_distribution<std::uint32_t>(0, end - 1)(random_);
  }

  HalRequest Next() {
    const std::uint32_t action = Below(10);
    const auto pick = [action](HalOperation install, HalOperation replace, HalOperation destroy) {
      return action < 5 ? install : action < 8 ? replace : destroy;
    };
    switch (Below(10)) {
      case 0:
      case 1: {
        const std::uint32_t id = AnyVlan();
        return RequestOf(pick(HalOperation::kInstallVlan, HalOperation::kReplaceVlan,
                              HalOperation::kDestroyVlan),
                         id, NewVlan(id));
      }
      case 2: {
        const std::uint32_t id = 31 + Below(3);
        return RequestOf(action < 8 ? HalOperation::kInstallEcmp : HalOperation::kDestroyEcmp, id,
                         Ecmp(id, Members()));
      }
      case 3:
        if (features_.vrfs) {
          const std::uint32_t id = 1 + Below(2);
          return RequestOf(action < 6 ? HalOperation::kInstallVrf : HalOperation::kDestroyVrf, id,
                           Vrf(id));
        }
        [[fallthrough]];
      case 4:
      case 5:
        if (features_.labels) {
          const std::uint32_t id = AnyTunnel();
          return RequestOf(pick(HalOperation::kInstallMpls, HalOperation::kReplaceMpls,
                                HalOperation::kDestroyMpls),
                           id, NewTunnel(id));
        }
        [[fallthrough]];
      default: {
        const std::uint32_t id = AnyHost();
        return RequestOf(pick(HalOperation::kInstallHost, HalOperation::kReplaceHost,
                              HalOperation::kDestroyHost),
                         id, NewHost(id));
      }
    }
  }

  std::uint32_t AnyVlan() { return 1 + Below(4); }
  std::uint32_t AnyHost() { return 11 + Below(6); }
  std::uint32_t AnyTunnel() { return 21 + Below(4); }

  encapsulation::VlanMessage NewVlan(std::uint32_t id) {
    encapsulation::VlanMessage vlan =
        VlanOn(id, 1 + Below(features_.tags ? 3 : 2), 1300 + 100 * Below(3));
    if (Below(2) == 0) vlan.set_source_mac_address(Mac(10 * id + Below(3)));
    if (Below(2) == 0) vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
    if (Below(2) == 0) vlan.add_list_values("a");
    if (features_.vrfs && Below(2) == 0) vlan.set_vrf(1 + Below(2));
    return vlan;
  }

  encapsulation::HostMessage NewHost(std::uint32_t id) {
    encapsulation::HostMessage host = Neighbour(id, AnyVlan(), 100 + Below(4));
    if (Below(4) == 0) host.add_flags(encapsulation::ACTION_DROP);
    return host;
  }

  encapsulation::MplsMessage NewTunnel(std::uint32_t id) {
    encapsulation::MplsMessage mpls =
        MplsOn(id, Below(2) == 0 ? AnyVlan() : AnyTunnel(), 100 + Below(5));
    mpls.set_dest_mac(Mac(100 + Below(4)));
    return mpls;
  }

  std::vector<std::uint32_t> Members() {
    std::vector<std::uint32_t> members;
    for (std::uint32_t count = Below(4); count > 0; --count) {
      members.push_back(Below(3) == 0 ? AnyVlan() : AnyHost());
    }
    return members;
  }

  std::mt19937 random_;
  const Features features_;
};

TEST_F(FaultsTest, AThousandRandomChangesOfASite) {
  const RandomRequests::Features features = {
      Works("ip link add probe type vrf table 9 && ip link del probe"),
      Works("ip -6 nexthop add id 1 encap mpls 16 via fe80::1 dev eth2 onlink && "
            "ip nexthop del id 1"),
      Works("ip link add link eth2 name probe type vlan id 9 && ip link del probe")};
  RandomRequests random(171, features);
  int accepted = 0;
  for (int batch = 0; batch < 100; ++batch) {
    SCOPED_TRACE(batch);
    for (const Answer& answer : Send(random.Next(10))) {
      EXPECT_NE(HalReturnCode{answer.code}, kHalKernelRefused) << answer.reason;
      if (HalReturnCode{answer.code} == kHalSuccess) ++accepted;
    }
    ASSERT_THAT(Wrong(), IsEmpty());
  }
  EXPECT_GT(accepted, 400);
  EXPECT_THAT(server_->TakeKernelLines(), IsEmpty());
}

/// A fault that the test injects once.
struct Fault {
  const char* name;
  /// Makes the nth message or call from now on fail. Sets `*injected` when it has.
  void (*arm)(FaultySocket* socket, int nth, bool* injected);
};

std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.name; }

bool IsDump(const nlmsghdr& header) { return (header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP; }

// Refuses the nth message.
void ArmRefusal(FaultySocket* socket, int nth, bool* injected) {
  socket->before_send = [nth, injected](std::string* bytes) mutable {
    RefuseMessages(bytes, [&nth, injected](const nlmsghdr& header, const std::string&) {
      if (IsDump(header) || nth-- != 0) return false;
      *injected = true;
      return true;
    });
  };
}

constexpr Fault kFaults[] = {
    {"Refused", ArmRefusal},
    {"NoMemory",
     [](FaultySocket* socket, int nth, bool* injected) {
       ArmRefusal(socket, nth, injected);
       socket->refusal = ENOMEM;
     }},
    {"SendFails",
     [](FaultySocket* socket, int nth, bool* injected) {
       socket->before_send = [nth, injected](std::string* /*bytes*/) mutable {
         if (nth-- != 0) return;
         *injected = true;
         Throw(ENOMEM);
       };
     }},
    {"AnswerLost", [](FaultySocket* socket, int nth, bool* injected) {
       socket->before_send = [socket, nth, injected](std::string* /*bytes*/) mutable {
         if (nth-- != 0) return;
         *injected = true;
         socket->drops_answers = true;
       };
     }}};

void Disarm(FaultySocket* socket) {
  socket->before_send = nullptr;
  socket->refusal = 0;
}

class OneFaultTest : public FaultsTest, public testing::WithParamInterface<Fault> {};

INSTANTIATE_TEST_SUITE_P(Each, OneFaultTest, testing::ValuesIn(kFaults),
                         [](const auto& test) { return std::string(test.param.name); });

// A batch with a fault is undone, and its requests are carried out one by one. The fault does not
// occur again, so they succeed or fail as they would have without it.
TEST_P(OneFaultTest, AtEachStepOfARandomBatch) {
  RandomRequests random(5, {});
  const std::vector<HalRequest> before = random.Next(20);
  // Also needs a new device, which takes several calls.
  std::vector<HalRequest> batch = {InstallVlan(5, 2), InstallHost(17, 5),
                                   InstallGroup(34, {5, 17})};
  for (HalRequest& request : random.Next(9)) batch.push_back(std::move(request));
  bool injected = true;
  int steps = 0;
  for (; injected && steps < 200; ++steps) {
    SCOPED_TRACE(steps);
    server_->Clear();
    model_.Clear();
    Send(before);
    injected = false;
    server_->WhileIdle([&](FaultySocket* socket) { GetParam().arm(socket, steps, &injected); });
    for (const Answer& answer : Send(batch)) {
      EXPECT_NE(HalReturnCode{answer.code}, kHalKernelRefused) << answer.reason;
    }
    server_->WhileIdle(Disarm);
    ASSERT_THAT(Wrong(), IsEmpty());
    ASSERT_THAT(server_->TakeKernelLines(), IsEmpty());
  }
  EXPECT_FALSE(injected);
  EXPECT_GE(steps, 5);
}

TEST_F(FaultsTest, ManyRefusalsInRandomBatches) {
  RandomRequests random(6, {});
  std::mt19937 chance(7);
  int refused = 0;
  for (int batch = 0; batch < 60; ++batch) {
    SCOPED_TRACE(batch);
    server_->WhileIdle([&chance](FaultySocket* socket) {
      socket->before_send = [&chance](std::string* bytes) {
        RefuseMessages(bytes, [&chance](const nlmsghdr& header, const std::string&) {
          // Otherwise a device that cannot be set up stays.
          const bool removes = header.nlmsg_type == RTM_DELLINK;
          return !IsDump(header) && !removes && chance() % 8 == 0;
        });
      };
    });
    for (const Answer& answer : Send(random.Next(10))) {
      if (HalReturnCode{answer.code} == kHalKernelRefused) ++refused;
    }
    server_->WhileIdle(Disarm);
    // If a change cannot be undone either, the server says so.
    if (!server_->TakeKernelLines().empty()) {
      Restart();
    } else {
      ASSERT_THAT(Wrong(), IsEmpty());
    }
  }
  EXPECT_GT(refused, 20);
}

TEST_F(FaultsTest, OnlyTheRequestWithoutMemoryFails) {
  server_->WhileIdle([](FaultySocket* socket) {
    socket->refusal = ENOMEM;
    socket->before_send = [](std::string* bytes) {
      RefuseMessages(bytes, [](const nlmsghdr& header, const std::string& message) {
        const void* const data = message.data();
        return header.nlmsg_type == RTM_NEWNEXTHOP &&
               ReadNexthop(*static_cast<const nlmsghdr*>(data)).id == 20;
      });
    };
  });
  const auto answers = Send({InstallVlan(10, 1), InstallHost(20, 10), InstallHost(21, 10),
                             InstallGroup(30, {20, 21}), InstallGroup(31, {21})});
  EXPECT_EQ(HalReturnCode{answers[0].code}, kHalSuccess);
  EXPECT_EQ(HalReturnCode{answers[1].code}, kHalKernelRefused);
  EXPECT_EQ(answers[1].reason, "Cannot allocate memory");
  EXPECT_EQ(HalReturnCode{answers[2].code}, kHalSuccess);
  EXPECT_EQ(HalReturnCode{answers[3].code}, kHalMissingReference);
  EXPECT_EQ(HalReturnCode{answers[4].code}, kHalSuccess);
  EXPECT_THAT(Wrong(), IsEmpty());
  EXPECT_THAT(server_->Lines(), Contains(EndsWith("install-host 20: Cannot allocate memory")));
}

// The device below those that a batch makes goes away before each of the batch's sends in turn.
TEST_F(FaultsTest, AnInterfaceThatDisappearsInTheMiddle) {
  Send({InstallVlan(10, 2), InstallHost(20, 10)});
  bool injected = true;
  int sends = 0;
  int refused = 0;
  for (; injected && sends < 100; ++sends) {
    SCOPED_TRACE(sends);
    injected = false;
    int countdown = sends;
    server_->WhileIdle([&](FaultySocket* socket) {
      socket->before_send = [&](std::string* /*bytes*/) {
        if (countdown-- != 0) return;
        injected = true;
        Run("ip link del eth2");
      };
    });
    const auto answers = Send({InstallVlan(11, 1), InstallHost(21, 11), InstallHost(22, 10),
                               InstallGroup(30, {21, 22}), InstallGroup(31, {22})});
    server_->WhileIdle(Disarm);
    if (HalReturnCode{answers[0].code} == kHalKernelRefused) {
      ++refused;
      EXPECT_THAT(answers[0].reason, HasSubstr("eth2"));
    }
    EXPECT_EQ(HalReturnCode{answers[2].code}, kHalSuccess);
    EXPECT_EQ(HalReturnCode{answers[4].code}, kHalSuccess);
    ASSERT_THAT(Wrong(), IsEmpty());
    server_->Clear();
    model_.Clear();
    if (injected) AddDevice("2");
    Send({InstallVlan(10, 2), InstallHost(20, 10)});
    ASSERT_THAT(Wrong(), IsEmpty());
  }
  EXPECT_FALSE(injected);
  EXPECT_GE(refused, 3);
}

TEST_F(FaultsTest, TheNextHopOfAnotherProgramIsKept) {
  Run("ip nexthop add id 20 blackhole");
  const auto answers =
      Send({InstallVlan(10, 1), InstallHost(20, 10), InstallHost(21, 10), InstallGroup(30, {21})});
  EXPECT_EQ(HalReturnCode{answers[0].code}, kHalSuccess);
  EXPECT_EQ(HalReturnCode{answers[1].code}, kHalKernelRefused);
  const std::string reason =
      "another program has a next hop 20; remove it first: ip nexthop del id 20";
  EXPECT_EQ(answers[1].reason, reason);
  EXPECT_EQ(HalReturnCode{answers[2].code}, kHalSuccess);
  EXPECT_EQ(HalReturnCode{answers[3].code}, kHalSuccess);
  EXPECT_THAT(server_->Lines(), Contains(EndsWith("install-host 20: " + reason)));
  EXPECT_THAT(Output("ip -N nexthop show id 20"), Not(HasSubstr("proto 171")));
  EXPECT_THAT(Wrong(), IsEmpty());

  Run("ip nexthop del id 20");
  EXPECT_EQ(HalReturnCode{Send({InstallHost(20, 10)})[0].code}, kHalSuccess);
  EXPECT_THAT(Wrong(), IsEmpty());
}

TEST_F(FaultsTest, TheDeviceOfAnotherProgramIsKept) {
  Run("ip link add link eth2 name zd10 type macvlan mode bridge");
  const std::string before = Output("ip -d link show zd10");
  const auto answers = Send({InstallVlan(10, 1), InstallVlan(11, 1), InstallHost(20, 10)});
  EXPECT_EQ(HalReturnCode{answers[0].code}, kHalKernelRefused);
  EXPECT_EQ(answers[0].reason, "another program has a device zd10; remove it first");
  EXPECT_EQ(HalReturnCode{answers[1].code}, kHalSuccess);
  EXPECT_EQ(HalReturnCode{answers[2].code}, kHalMissingReference);
  EXPECT_EQ(Output("ip -d link show zd10"), before);
  EXPECT_THAT(Wrong(), IsEmpty());
}

// The kernel's extended acknowledgement.
TEST_F(FaultsTest, TheKernelsErrorTextReachesTheClientAndTheLog) {
  Run("ip link set far2 down");
  const auto answers = Send({InstallVlan(10, 1), InstallVlan(11, 2)});
  EXPECT_EQ(HalReturnCode{answers[0].code}, kHalKernelRefused);
  EXPECT_EQ(answers[0].reason, "Carrier for nexthop device is down");
  EXPECT_EQ(HalReturnCode{answers[1].code}, kHalSuccess);
  EXPECT_THAT(server_->Lines(),
              Contains(EndsWith("install-vlan 10: Carrier for nexthop device is down")));
  EXPECT_THAT(Wrong(), IsEmpty());
}

TEST_F(FaultsTest, TheManagerExplainsWithTheKernelsErrorText) {
  server_.reset();
  Run("ip nexthop add id 101 blackhole");
  const ScratchDirectory files{};
  const std::string site = files.Write("site", R"(
      interface { name: "eth2" lim_id: 1 type: 1 ifindex: 1 }
      vlan { id: 10 name: "port" interface: "eth2" source_mac: "02:00:00:00:01:01" }
      host { id: 101 name: "other" interface: "eth2" mac: "02:00:00:00:02:01" ip: "192.0.2.1"
             vlan: "port" }
      host { id: 102 name: "ours" interface: "eth2" mac: "02:00:00:00:02:02" ip: "192.0.2.2"
             vlan: "port" })");
  const std::string socket = files.File("hal.sock");
  const Process hal(
      {ZUSKUX_HAL, "--socket", socket, "--data-plane", "linux", "--interfaces", site});
  ASSERT_TRUE(hal.WaitForError("listening on ")) << hal.err();
  const auto explained =
      Execute({ZUSKUX_MANAGER, site, "--hal", "unix:" + socket, "--explain", "host:101"});
  EXPECT_EQ(explained.status, 3);
  EXPECT_EQ(explained.out,
            "host:101 \"other\" failed: refused by the kernel: another program has a next hop 101; "
            "remove it first: ip nexthop del id 101\n");
  EXPECT_TRUE(hal.WaitForError("install-host 101: another program has a next hop 101"))
      << hal.err();
  const auto tables = Execute({ZUSKUX_HAL, "tables", "--socket", socket, "--interfaces", site});
  EXPECT_EQ(tables.status, 0) << tables.err;
  EXPECT_THAT(tables.out, HasSubstr("  in the kernel: next hop 102 as wanted, zd10 as wanted, "
                                    "neighbour fe80::66 on zd10 as wanted\n"));
  const auto json =
      Execute({ZUSKUX_HAL, "tables", "--socket", socket, "--interfaces", site, "--json"});
  EXPECT_EQ(json.status, 0) << json.err;
  EXPECT_THAT(json.out, HasSubstr("\"next hop 102\": \"as wanted\""));
}

/// Both programs, with a device that comes and goes.
class UnpluggedTest : public FaultsTest {
 protected:
  void SetUp() override {
    FaultsTest::SetUp();
    if (IsSkipped()) return;
    server_.reset();
    site_ = files_.Write("site", R"(
        interface { name: "eth2" lim_id: 1 type: 1 ifindex: 1 }
        vlan { id: 10 name: "port" interface: "eth2" source_mac: "02:00:00:00:01:01" }
        host { id: 101 name: "a" interface: "eth2" mac: "02:00:00:00:02:01" ip: "192.0.2.1"
               vlan: "port" })");
    StartServer();
    StartManager();
    ASSERT_TRUE(manager_->WaitForError(kSettled)) << manager_->err();
  }

  void StartServer() {
    hal_.emplace(std::vector<std::string>{ZUSKUX_HAL, "--socket", socket_, "--data-plane", "linux",
                                          "--interfaces", site_});
    ASSERT_TRUE(hal_->WaitForError("listening on ")) << hal_->err();
  }

  void StartManager() {
    manager_.emplace(std::vector<std::string>{ZUSKUX_MANAGER, site_, "--hal", "unix:" + socket_,
                                              "--stay", "--control", control_});
  }

  static constexpr char kSettled[] = "INFO zuskux-manager: settled: 2 objects: 2 installed";

  // What the manager's command says, with its exit status.
  std::string Ask(const std::string& command, const std::string& argument = {}) const {
    std::vector<std::string> words = {ZUSKUX_MANAGER, command, "--control", control_};
    if (!argument.empty()) words.push_back(argument);
    const auto answer = Execute(words);
    return answer.out + answer.err + "status " + std::to_string(answer.status) + '\n';
  }

  const ScratchDirectory files_{};
  const std::string socket_ = files_.File("hal.sock");
  const std::string control_ = files_.File("manager.sock");
  std::string site_;
  std::optional<Process> hal_;
  std::optional<Process> manager_;
};

TEST_F(UnpluggedTest, TheObjectsFailUntilTheDeviceIsPluggedInAgain) {
  const std::string before = Output("ip nexthop; ip -6 neigh show nud permanent");
  Run("ip link del eth2");
  ASSERT_TRUE(manager_->WaitForError("NOT settled: 2 objects: 2 failed")) << manager_->err();
  EXPECT_EQ(Ask("explain", "host:101"),
            "host:101 \"a\" was installed but does not work: no such interface: there is no device "
            "eth2\nstatus 3\n");
  EXPECT_THAT(Ask("objects", "--failed"), HasSubstr("there is no device eth2"));
  EXPECT_THAT(Ask("status"), EndsWith("status 3\n"));

  AddDevice("2");
  ASSERT_TRUE(manager_->WaitForError(kSettled, 2)) << manager_->err();
  EXPECT_EQ(Output("ip nexthop; ip -6 neigh show nud permanent"), before);
  EXPECT_THAT(Ask("status"), EndsWith("status 0\n"));
}

TEST_F(UnpluggedTest, ADeviceThatTheServerHasNeverSeenIsUsedWhenItComes) {
  const std::string before = Output("ip nexthop; ip -6 neigh show nud permanent");
  manager_.reset();
  hal_.reset();
  Run("ip link del eth2");
  StartServer();
  StartManager();
  ASSERT_TRUE(manager_->WaitForError("NOT settled: 2 objects: 2 failed")) << manager_->err();
  EXPECT_THAT(Ask("explain", "vlan:10"), HasSubstr("no such interface: there is no device eth2"));
  AddDevice("2");
  ASSERT_TRUE(manager_->WaitForError(kSettled)) << manager_->err();
  EXPECT_EQ(Output("ip nexthop; ip -6 neigh show nud permanent"), before);
}

TEST_F(UnpluggedTest, WhatIsRefusedWithoutACarrierIsInstalledWhenItComes) {
  const std::string before = Output("ip nexthop; ip -6 neigh show nud permanent");
  manager_.reset();
  hal_.reset();
  Run("ip link del group 171; ip link set far2 down");
  StartServer();
  StartManager();
  ASSERT_TRUE(manager_->WaitForError("NOT settled: 2 objects: 2 failed")) << manager_->err();
  EXPECT_THAT(Ask("explain", "vlan:10"), HasSubstr("refused by the kernel"));
  Run("ip link set far2 up");
  ASSERT_TRUE(manager_->WaitForError(kSettled)) << manager_->err();
  EXPECT_EQ(Output("ip nexthop; ip -6 neigh show nud permanent"), before);
}

TEST_F(UnpluggedTest, ANewManagerLearnsThatTheLinkIsDown) {
  Run("ip link set far2 down");
  ASSERT_TRUE(manager_->WaitForError("NOT settled: 2 objects: 2 failed")) << manager_->err();
  manager_.reset();
  const auto explained =
      Execute({ZUSKUX_MANAGER, site_, "--hal", "unix:" + socket_, "--explain", "host:101"});
  EXPECT_EQ(explained.status, 3);
  EXPECT_EQ(explained.out,
            "host:101 \"a\" was installed but does not work: refused by the kernel: Carrier for "
            "nexthop device is down\n");
  Run("ip link set far2 up");
}

}  // namespace
}  // namespace reference
