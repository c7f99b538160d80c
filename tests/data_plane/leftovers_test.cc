/// A server that finds objects of an earlier one in the kernel: what it writes, and what stays.

#include "reference/data_plane/leftovers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "reference/data_plane/kernel_data_plane.h"
#include "tests/data_plane/model_kernel.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kPairs = 3'000;
constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

const InterfaceNames kInterfaces = {{1, "eth0"}, {2, "eth1"}, {3, "eth1.20"}};
const std::set<std::string> kDevices = {"eth0", "eth1"};

struct Entry {
  HalKind kind{};
  std::uint32_t id = 0;
  std::shared_ptr<google::protobuf::Message> message;
};
/// In the order of a reinstall.
using Entries = std::vector<Entry>;

template <typename Message>
Entry MakeEntry(HalKind kind, std::uint32_t id, Message message) {
  return {kind, id, std::make_shared<Message>(std::move(message))};
}

Entry VlanEntry(std::uint32_t id, std::uint32_t lim, std::uint32_t mtu = 0) {
  encapsulation::VlanMessage vlan = Vlan(id, mtu);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return MakeEntry(HalKind::kVlan, id, vlan);
}

Entry WithMac(Entry vlan, const std::string& mac) {
  static_cast<encapsulation::VlanMessage&>(*vlan.message).set_source_mac_address(mac);
  return vlan;
}

Entry HostEntry(std::uint32_t id, std::uint32_t vlan, char mac = 2) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac(std::string(6, mac));
  return MakeEntry(HalKind::kHost, id, host);
}

Entry DropEntry(std::uint32_t id) {
  encapsulation::HostMessage host = Host(id);
  host.add_flags(encapsulation::ACTION_DROP);
  return MakeEntry(HalKind::kHost, id, host);
}

Entry EcmpEntry(std::uint32_t id, const std::vector<std::uint32_t>& members) {
  return MakeEntry(HalKind::kEcmp, id, Ecmp(id, members));
}

/// Successive servers on a model of the kernel.
class LeftoversTest : public testing::Test {
 protected:
  void StartServer(const std::map<std::string, std::uint32_t>& mtus = {}) {
    mtus_ = mtus;
    data_plane_ = std::make_unique<KernelDataPlane>(
        Translation(kInterfaces, kDevices), Leftovers(kernel_.objects(), mtus),
        KernelAccess{[this](const std::vector<KernelChange>& changes) { return Write(changes); },
                     [this] {
                       return KernelState{kernel_.objects(), mtus_};
                     },
                     {}},
        [this](LogLevel, const std::string& line) { lines_.push_back(line); });
  }

  void Install(const Entry& entry) {
    ASSERT_EQ(data_plane_->Store(entry.kind, entry.id, *entry.message), kHalSuccess) << entry.id;
  }

  void Commit() { EXPECT_EQ(data_plane_->Commit(), std::nullopt); }

  void InstallAll(const Entries& entries) {
    for (const Entry& entry : entries) {
      Install(entry);
      Commit();
    }
  }

  void Reinstall(const Entries& entries) {
    InstallAll(entries);
    EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  }

  std::vector<RefusedChange> Write(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (std::size_t i = 0; i < changes.size(); ++i) {
      if (refuses_ && refuses_()) {
        refused.push_back({i, "out of memory"});
      } else if (const auto refusal = kernel_.Write(changes[i])) {
        if (refused.empty()) ADD_FAILURE() << *refusal;
        refused.push_back({i, *refusal});
      }
      if (after_write_) after_write_();
    }
    return refused;
  }

  static KernelObjects Wanted(const Entries& entries) {
    Translation translation(kInterfaces, kDevices);
    for (const Entry& entry : entries) {
      EXPECT_EQ(translation.Store(entry.kind, entry.id, *entry.message), kHalSuccess);
    }
    return translation.Objects();
  }

  ModelKernel kernel_{kDevices};
  std::map<std::string, std::uint32_t> mtus_;
  std::function<bool()> refuses_;
  std::function<void()> after_write_;
  std::vector<std::string> lines_;
  std::unique_ptr<KernelDataPlane> data_plane_;
};

TEST_F(LeftoversTest, TheSameEntriesWriteNothing) {
  const Entries entries = {VlanEntry(10, 3),   VlanEntry(11, 1), HostEntry(20, 10),
                           HostEntry(21, 11),  DropEntry(22),    EcmpEntry(30, {20, 21, 21}),
                           EcmpEntry(31, {22})};
  StartServer();
  Reinstall(entries);
  EXPECT_NE(data_plane_->writes(), 0);
  StartServer();
  Reinstall(entries);
  EXPECT_EQ(data_plane_->writes(), 0);
  EXPECT_TRUE(kernel_.objects() == Wanted(entries));
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(LeftoversTest, OnlyWhatDiffersIsWritten) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10), HostEntry(21, 10), EcmpEntry(30, {20, 21})});
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10, 9), HostEntry(21, 10), EcmpEntry(30, {20, 21})});
  EXPECT_EQ(data_plane_->writes(), 1);
}

TEST_F(LeftoversTest, UnnamedObjectsStayUntilTheEndOfTheReinstall) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10), HostEntry(21, 10)});
  StartServer();
  InstallAll({VlanEntry(10, 1), HostEntry(20, 10)});
  EXPECT_EQ(kernel_.objects().nexthops.count(21), 1);
  EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  EXPECT_TRUE(kernel_.objects() == Wanted({VlanEntry(10, 1), HostEntry(20, 10)}));
  EXPECT_EQ(data_plane_->writes(), 2);
  EXPECT_THAT(lines_, ElementsAre("removed 2 objects of an earlier server from the kernel"));
  EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  EXPECT_EQ(data_plane_->writes(), 2);
}

TEST_F(LeftoversTest, AreRemovedInParts) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10), HostEntry(21, 10), EcmpEntry(30, {20, 21})});
  StartServer();
  // The group and a next hop, the other next hops, the neighbours, the device.
  int parts = 1;
  while (!data_plane_->RemoveLeftovers(2) && parts < 10) ++parts;
  EXPECT_EQ(parts, 4);
  EXPECT_TRUE(kernel_.objects() == KernelObjects());
}

TEST_F(LeftoversTest, ARemovalThatIsRefusedIsLogged) {
  StartServer();
  Reinstall({VlanEntry(10, 1)});
  StartServer();
  refuses_ = [] { return true; };
  EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  EXPECT_EQ(data_plane_->writes(), 0);
  EXPECT_THAT(lines_, ElementsAre("cannot remove what an earlier server left: out of memory",
                                  "cannot remove what an earlier server left: out of memory"));
}

TEST_F(LeftoversTest, AnEntryThatIsRemovedBeforeTheEndOfTheReinstallStays) {
  StartServer();
  Reinstall({VlanEntry(10, 1)});
  StartServer();
  InstallAll({VlanEntry(10, 1), VlanEntry(11, 1)});
  data_plane_->Remove(HalKind::kVlan, 10);
  data_plane_->Remove(HalKind::kVlan, 11);
  Commit();
  EXPECT_TRUE(kernel_.objects() == Wanted({VlanEntry(10, 1), VlanEntry(11, 1)}));
  EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  EXPECT_TRUE(kernel_.objects() == KernelObjects());
}

TEST_F(LeftoversTest, ARefusedBatchRemovesNothing) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10)});
  StartServer();
  Install(VlanEntry(10, 1));
  Install(VlanEntry(11, 1));
  refuses_ = [] { return true; };
  EXPECT_EQ(data_plane_->Commit(), "out of memory");
  refuses_ = nullptr;
  // The server undoes a refused batch like this.
  data_plane_->Remove(HalKind::kVlan, 11);
  data_plane_->Remove(HalKind::kVlan, 10);
  data_plane_->CommitOrLeave();
  EXPECT_TRUE(kernel_.objects() == Wanted({VlanEntry(10, 1), HostEntry(20, 10)}));
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10)});
  EXPECT_EQ(data_plane_->writes(), 0);
}

// The kernel reports the parent's MTU for a device without one of its own.
TEST_F(LeftoversTest, TheMtuOfTheParentEqualsNone) {
  StartServer();
  Reinstall({VlanEntry(10, 1, 1500), VlanEntry(11, 2, 1500)});
  StartServer({{"eth0", 1500}, {"eth1", 9000}});
  InstallAll({VlanEntry(10, 1)});
  EXPECT_EQ(data_plane_->writes(), 0);
  // The parent of 11 has another MTU.
  InstallAll({VlanEntry(11, 2)});
  EXPECT_EQ(data_plane_->writes(), 1);
}

TEST_F(LeftoversTest, AWantedMtuThatTheParentHasTooWritesNothing) {
  StartServer();
  Reinstall({VlanEntry(10, 1, 1500)});
  StartServer({{"eth0", 1500}});
  Reinstall({VlanEntry(10, 1, 1500)});
  EXPECT_EQ(data_plane_->writes(), 0);
}

// Two devices on a parent cannot have the same address.
TEST_F(LeftoversTest, ADeviceMakesRoomForOneWithItsAddress) {
  const std::string mac(6, 4);
  StartServer();
  Reinstall({WithMac(VlanEntry(10, 1), mac), HostEntry(20, 10), HostEntry(21, 10),
             EcmpEntry(30, {20, 21})});
  StartServer();
  InstallAll({WithMac(VlanEntry(11, 1), mac)});
  const KernelObjects& present = kernel_.objects();
  EXPECT_EQ(present.devices.count("zd10"), 0);
  EXPECT_EQ(present.devices.count("zd11"), 1);
  // Their routes stay.
  EXPECT_TRUE(present.nexthops.at(20) == KernelNexthop(BlackholeNexthop{}));
  EXPECT_TRUE(present.nexthops.at(30) == KernelNexthop(NexthopGroup{{{kDropNexthop, 1}}}));
  const Entries after = {WithMac(VlanEntry(11, 1), mac), HostEntry(20, 11), HostEntry(21, 11),
                         EcmpEntry(30, {20, 21})};
  Reinstall(after);
  EXPECT_TRUE(kernel_.objects() == Wanted(after));
}

TEST_F(LeftoversTest, AGroupStaysWhenAMemberOfItsTurnsIntoABlackhole) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10), HostEntry(21, 10), EcmpEntry(30, {20, 21})});
  StartServer();
  InstallAll({VlanEntry(10, 1), DropEntry(20)});
  EXPECT_TRUE(kernel_.objects().nexthops.at(30) == KernelNexthop(NexthopGroup{{{21, 1}}}));
}

TEST_F(LeftoversTest, NeighboursComeBackWhenTheAddressOfTheirDeviceChanges) {
  StartServer();
  Reinstall({VlanEntry(10, 1), HostEntry(20, 10)});
  StartServer();
  InstallAll({WithMac(VlanEntry(10, 1), std::string(6, 4))});
  EXPECT_EQ(kernel_.objects().neighbours.count({"zd10", NeighbourAddress(20)}), 1);
}

TEST_F(LeftoversTest, ARepairKeepsThem) {
  const Entries entries = {VlanEntry(10, 1), HostEntry(20, 10), HostEntry(21, 10)};
  StartServer();
  Reinstall(entries);
  StartServer();
  InstallAll({VlanEntry(10, 1), HostEntry(20, 10)});
  KernelObjects present = kernel_.objects();
  Apply(RemoveNexthop{20}, &present);
  kernel_.set_objects(present);
  const Repair repair = data_plane_->MakeAsWanted();
  EXPECT_EQ(repair.differences, 1);
  EXPECT_EQ(repair.text, "next hop 20 missing");
  EXPECT_TRUE(kernel_.objects() == Wanted(entries));
  EXPECT_EQ(data_plane_->writes(), 1);
  EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
  EXPECT_TRUE(kernel_.objects() == Wanted({VlanEntry(10, 1), HostEntry(20, 10)}));
}

/// A random site. Ids and interfaces are few, so that two sites overlap, and an id may move to
/// another kind.
Entries AnySite(std::mt19937* random) {
  const auto below = [random](std::uint32_t bound) {
    return static_cast<std::uint32_t>((*random)() % bound);
  };
  std::map<HalKind, Entries> kinds;
  std::vector<std::uint32_t> vlans;
  std::vector<std::uint32_t> members;
  std::vector<std::uint32_t> groups;
  for (std::uint32_t id = 1; id <= 9; ++id) {
    // Most ids keep their kind.
    const std::uint32_t usual = (id - 1) / 3;
    const std::uint32_t kind = below(8) == 0 ? below(3) : usual;
    if (below(4) == 0) continue;
    if (kind == 0) {
      Entry vlan = VlanEntry(id, 1 + below(3), below(2) * 1400);
      if (below(3) == 0) vlan = WithMac(vlan, std::string(5, 2) + static_cast<char>(id));
      static_cast<encapsulation::VlanMessage&>(*vlan.message).set_vrf(below(3));
      kinds[HalKind::kVlan].push_back(vlan);
      vlans.push_back(id);
    } else if (kind == 1) {
      members.push_back(id);
    } else {
      groups.push_back(id);
    }
  }
  for (const std::uint32_t id : members) {
    const std::uint32_t chosen = below(4);
    const std::uint32_t vlan =
        vlans.empty() ? 0 : vlans[below(static_cast<std::uint32_t>(vlans.size()))];
    kinds[HalKind::kHost].push_back(chosen == 0 ? DropEntry(id)
                                                : HostEntry(id, vlan, static_cast<char>(chosen)));
  }
  for (const std::uint32_t id : groups) {
    std::vector<std::uint32_t> chosen;
    for (const std::uint32_t member : members) chosen.insert(chosen.end(), below(3), member);
    kinds[HalKind::kEcmp].push_back(EcmpEntry(id, chosen));
  }
  Entries site;
  for (const HalKind kind : {HalKind::kVlan, HalKind::kHost, HalKind::kEcmp}) {
    site.insert(site.end(), kinds[kind].begin(), kinds[kind].end());
  }
  return site;
}

bool IsGroup(const KernelNexthop& nexthop) { return std::holds_alternative<NexthopGroup>(nexthop); }

// Removing a next hop removes its routes.
TEST_F(LeftoversTest, AnyReinstallAfterAnyOtherKeepsTheRoutesOfBoth) {
  std::mt19937 random(11);
  const auto below = [&random](std::uint32_t bound) {
    return static_cast<std::uint32_t>(random() % bound);
  };
  int unchanged = 0;
  int refusals = 0;
  for (int pair = 0; pair < kPairs; ++pair) {
    SCOPED_TRACE("pair " + std::to_string(pair));
    kernel_ = ModelKernel(kDevices);
    after_write_ = nullptr;
    const Entries first = AnySite(&random);
    StartServer();
    Reinstall(first);

    const bool same = below(10) == 0;
    const Entries second = same ? first : AnySite(&random);
    // A crash in the middle of a batch.
    KernelObjects present = kernel_.objects();
    for (int i = 0; !same && i < 3 && !present.nexthops.empty(); ++i) {
      const auto next = std::next(present.nexthops.begin(),
                                  below(static_cast<std::uint32_t>(present.nexthops.size())));
      if (below(2) == 0) Apply(RemoveNexthop{next->first}, &present);
    }
    kernel_.set_objects(present);

    const KernelObjects wanted = Wanted(second);
    std::set<std::uint32_t> routed;
    for (const auto& [id, nexthop] : present.nexthops) {
      const auto next = wanted.nexthops.find(id);
      if (next != wanted.nexthops.end() && IsGroup(next->second) == IsGroup(nexthop)) {
        routed.insert(id);
      }
    }
    after_write_ = [&] {
      for (const std::uint32_t id : routed) {
        ASSERT_EQ(kernel_.objects().nexthops.count(id), 1) << "next hop " << id;
      }
    };
    StartServer();
    const bool may_refuse = !same && below(2) == 0;
    for (std::size_t i = 0; i < second.size();) {
      const std::size_t begin = i;
      for (; i < second.size() && (i == begin || below(3) != 0); ++i) Install(second[i]);
      if (may_refuse) refuses_ = [&below] { return below(12) == 0; };
      const bool refused = data_plane_->Commit().has_value();
      refuses_ = nullptr;
      if (!refused) continue;
      // Like the server, undoes the batch and repeats its requests one by one.
      ++refusals;
      for (std::size_t back = i; back-- != begin;) {
        data_plane_->Remove(second[back].kind, second[back].id);
      }
      data_plane_->CommitOrLeave();
      for (std::size_t again = begin; again < i; ++again) {
        Install(second[again]);
        Commit();
      }
    }
    EXPECT_TRUE(data_plane_->RemoveLeftovers(kAll));
    ASSERT_TRUE(kernel_.objects() == wanted);
    if (same) {
      EXPECT_EQ(data_plane_->writes(), 0);
      ++unchanged;
    }
    if (HasFailure()) return;
  }
  EXPECT_GT(unchanged, 100);
  EXPECT_GT(refusals, 100);
}

}  // namespace
}  // namespace reference
