/// Repairs of what other programs have changed: the same as after a full comparison, but without
/// reading everything.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "reference/data_plane/kernel_data_plane.h"
#include "reference/hal/hal_tables.h"
#include "tests/data_plane/model_kernel.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const InterfaceNames kInterfaces = {{1, "eth0"}, {2, "eth1"}, {3, "eth1.20"}};
const std::set<std::string> kDevices = {"eth0", "eth1"};

template <typename Message>
HalRequest Request(HalOperation operation, const Message& message) {
  return {operation, 0, 0, message.SerializeAsString()};
}

HalRequest VlanOn(std::uint32_t id, std::uint32_t lim) {
  encapsulation::VlanMessage vlan = Vlan(id);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return Request(HalOperation::kInstallVlan, vlan);
}

HalRequest Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac("\x02\x02\x02\x02\x02\x02");
  return Request(HalOperation::kInstallHost, host);
}

HalRequest GroupOf(std::uint32_t id, const std::vector<std::uint32_t>& members) {
  return Request(HalOperation::kInstallEcmp, Ecmp(id, members));
}

template <typename Map>
void AddChanged(const Map& before, const Map& after, std::set<typename Map::key_type>* keys) {
  for (const auto& [key, object] : before) {
    const auto* const now = Find(after, key);
    if (now == nullptr || !(*now == object)) keys->insert(key);
  }
  for (const auto& [key, object] : after) {
    if (before.count(key) == 0) keys->insert(key);
  }
}

template <typename Map>
Map Select(const Map& objects, const std::set<typename Map::key_type>& keys) {
  Map selected;
  for (const auto& [key, object] : objects) {
    if (keys.count(key) != 0) selected.emplace(key, object);
  }
  return selected;
}

// Tables, and a kernel that counts how often it is read.
class System {
 public:
  void Apply(const HalRequest& request) { EXPECT_EQ(TryToApply(request), kHalSuccess); }
  HalReturnCode TryToApply(const HalRequest& request) {
    const HalReturnCode code = tables_.Apply(request);
    EXPECT_EQ(data_plane_.Commit(), std::nullopt);
    return code;
  }

  // Another program changes the kernel, which notifies of each object.
  void Damage(const KernelObjects& damaged) {
    const KernelObjects& before = kernel_.objects();
    AddChanged(before.neighbours, damaged.neighbours, &noticed_.objects.neighbours);
    AddChanged(before.nexthops, damaged.nexthops, &noticed_.objects.nexthops);
    kernel_.set_objects(damaged);
  }
  void Delete(std::uint32_t nexthop) {
    KernelObjects damaged = kernel_.objects();
    reference::Apply(RemoveNexthop{nexthop}, &damaged);
    Damage(damaged);
  }

  const KernelObjects& present() const { return kernel_.objects(); }
  KernelDataPlane* data_plane() { return &data_plane_; }
  // What the next `TakeChanges` takes.
  ForeignChanges* noticed() { return &noticed_; }
  // The kernel cannot read objects one by one.
  void set_reads_all_or_nothing() { reads_all_or_nothing_ = true; }
  // The next hops that the kernel refuses.
  void set_refused(std::set<std::uint32_t> refused) { refused_ = std::move(refused); }
  int full_reads() const { return full_reads_; }
  // The keys that were read one by one, the last time.
  const ObjectKeys& keys_read() const { return keys_read_; }

 private:
  std::vector<RefusedChange> Write(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (std::size_t i = 0; i < changes.size(); ++i) {
      const auto* const put = std::get_if<PutNexthop>(&changes[i]);
      const bool refuses = put != nullptr && refused_.count(put->id) != 0;
      const auto refusal = refuses ? "out of memory" : kernel_.Write(changes[i]);
      if (!refuses && refusal && refused.empty()) ADD_FAILURE() << *refusal;
      if (refusal) refused.push_back({i, *refusal});
    }
    return refused;
  }

  KernelState Read() {
    ++full_reads_;
    return {kernel_.objects(), {{"eth0", 1500}, {"eth1", 1500}}};
  }

  std::optional<KernelObjects> ReadSome(const ObjectKeys& keys) {
    keys_read_ = keys;
    if (reads_all_or_nothing_) return std::nullopt;
    return KernelObjects{{},
                         Select(kernel_.objects().neighbours, keys.neighbours),
                         Select(kernel_.objects().nexthops, keys.nexthops)};
  }

  ModelKernel kernel_{kDevices};
  ForeignChanges noticed_;
  bool reads_all_or_nothing_ = false;
  std::set<std::uint32_t> refused_;
  int full_reads_ = 0;
  ObjectKeys keys_read_;
  KernelDataPlane data_plane_{
      Translation(kInterfaces, kDevices), Leftovers(),
      KernelAccess{[this](const std::vector<KernelChange>& changes) { return Write(changes); },
                   [this] { return Read(); }, [this] { return std::exchange(noticed_, {}); }, -1,
                   nullptr, [this](const ObjectKeys& keys) { return ReadSome(keys); }},
      LogFunction()};
  HalTables tables_{100, &data_plane_};
};

class RepairChangesTest : public testing::Test {
 protected:
  RepairChangesTest() {
    system_.Apply(VlanOn(10, 1));
    system_.Apply(Neighbour(20, 10));
    system_.Apply(Neighbour(21, 10));
    system_.Apply(GroupOf(30, {20, 21}));
    system_.Apply(GroupOf(31, {20}));
    wanted_ = system_.present();
  }

  Repair Repaired() {
    EXPECT_TRUE(system_.data_plane()->TakeChanges());
    return system_.data_plane()->RepairChanges();
  }

  System system_;
  KernelObjects wanted_;
};

TEST_F(RepairChangesTest, ReadsOnlyWhatHasChanged) {
  system_.Delete(20);
  const Repair repair = Repaired();
  EXPECT_EQ(repair.differences, 3U);
  EXPECT_EQ(repair.text, "next hop 20 missing, next hop 30 different, next hop 31 missing");
  EXPECT_TRUE(system_.present() == wanted_);
  EXPECT_EQ(system_.full_reads(), 0);
  EXPECT_THAT(system_.keys_read().nexthops, ElementsAre(20, 30, 31, kDropNexthop));
  EXPECT_THAT(system_.keys_read().neighbours, IsEmpty());
}

TEST_F(RepairChangesTest, ChangesAddUpUntilTheRepair) {
  KernelObjects damaged = system_.present();
  damaged.neighbours.erase({"zd10", NeighbourAddress(21)});
  system_.Damage(damaged);
  EXPECT_TRUE(system_.data_plane()->TakeChanges());
  system_.Delete(31);
  EXPECT_EQ(Repaired().differences, 2U);
  EXPECT_TRUE(system_.present() == wanted_);
  EXPECT_EQ(system_.full_reads(), 0);
}

TEST_F(RepairChangesTest, AChangeIsReadOnce) {
  system_.Delete(31);
  EXPECT_EQ(Repaired().differences, 1U);
  EXPECT_FALSE(system_.data_plane()->TakeChanges());
  EXPECT_EQ(system_.data_plane()->RepairChanges().differences, 0U);
  EXPECT_THAT(system_.keys_read().nexthops, ElementsAre(kDropNexthop));
}

TEST_F(RepairChangesTest, AFullComparisonIncludesTheChanges) {
  system_.Delete(20);
  EXPECT_TRUE(system_.data_plane()->TakeChanges());
  EXPECT_EQ(system_.data_plane()->MakeAsWanted().differences, 3U);
  EXPECT_EQ(system_.data_plane()->RepairChanges().differences, 0U);
  EXPECT_THAT(system_.keys_read().nexthops, ElementsAre(kDropNexthop));
}

TEST_F(RepairChangesTest, ReadsEverythingIfAnythingMayHaveChanged) {
  system_.Delete(20);
  system_.noticed()->any_object = true;
  EXPECT_TRUE(system_.data_plane()->TakeChanges());
  // Still so after another change.
  system_.Delete(21);
  EXPECT_EQ(Repaired().differences, 4U);
  EXPECT_EQ(system_.full_reads(), 1);
  // But not for the next repair.
  system_.Delete(31);
  EXPECT_EQ(Repaired().differences, 1U);
  EXPECT_EQ(system_.full_reads(), 1);
}

TEST_F(RepairChangesTest, ReadsEverythingAfterMoreThanAThousandChanges) {
  const auto notice = [this](std::uint32_t count) {
    system_.Delete(31);
    for (std::uint32_t id = 1'000; system_.noticed()->objects.size() < count; ++id) {
      system_.noticed()->objects.nexthops.insert(id);
    }
  };
  notice(1'000);
  EXPECT_EQ(Repaired().differences, 1U);
  EXPECT_EQ(system_.full_reads(), 0);
  notice(1'001);
  EXPECT_EQ(Repaired().differences, 1U);
  EXPECT_EQ(system_.full_reads(), 1);
  EXPECT_TRUE(system_.present() == wanted_);
}

TEST_F(RepairChangesTest, ReadsEverythingIfItCannotReadSome) {
  system_.set_reads_all_or_nothing();
  system_.Delete(20);
  EXPECT_EQ(Repaired().differences, 3U);
  EXPECT_EQ(system_.full_reads(), 1);
  EXPECT_TRUE(system_.present() == wanted_);
}

// Also one whose object was not among the changes.
TEST_F(RepairChangesTest, NamesAllBrokenEntriesAfterARefusal) {
  system_.set_refused({20});
  KernelObjects damaged = system_.present();
  damaged.nexthops[20] = BlackholeNexthop{};
  damaged.neighbours.erase({"zd10", NeighbourAddress(21)});
  damaged.nexthops[30] = NexthopGroup{{{21, 1}}};
  system_.Damage(damaged);
  // Noticed only later.
  system_.noticed()->objects.neighbours.clear();
  const Repair repair = Repaired();
  EXPECT_EQ(repair.text, "next hop 20 different, next hop 30 different");
  EXPECT_THAT(repair.refusals,
              ElementsAre("out of memory", "next hop 30: a blackhole in a group of several"));
  EXPECT_THAT(repair.broken,
              ElementsAre(HalObjectState{HalKind::kHost, 20, kHalKernelRefused, "out of memory"},
                          HalObjectState{HalKind::kHost, 21, kHalKernelRefused, ""},
                          HalObjectState{HalKind::kEcmp, 30, kHalKernelRefused,
                                         "next hop 30: a blackhole in a group of several"}));
}

// Leftovers are removed only at the end of the reinstall, so a comparison has to know them.
TEST(RepairChangesWhileAdoptingTest, ReadsEverything) {
  ModelKernel kernel{kDevices};
  KernelObjects left;
  left.nexthops[99] = BlackholeNexthop{};
  kernel.set_objects(left);
  ForeignChanges noticed;
  noticed.objects.nexthops = {99};
  int full_reads = 0;
  KernelDataPlane data_plane(
      Translation(kInterfaces, kDevices), Leftovers(left, {}),
      KernelAccess{[&kernel](const std::vector<KernelChange>& changes) {
                     EXPECT_EQ(WriteAll(changes, &kernel), std::nullopt);
                     return std::vector<RefusedChange>();
                   },
                   [&] {
                     ++full_reads;
                     return KernelState{kernel.objects(), {}};
                   },
                   [&noticed] { return noticed; }, -1, nullptr,
                   [&kernel](const ObjectKeys& keys) {
                     return KernelObjects{{}, {}, Select(kernel.objects().nexthops, keys.nexthops)};
                   }},
      LogFunction());
  EXPECT_TRUE(data_plane.TakeChanges());
  EXPECT_EQ(data_plane.RepairChanges().differences, 0U);
  EXPECT_EQ(full_reads, 1);
  EXPECT_TRUE(kernel.objects() == left);
  // Without leftovers, the next hop is not wanted.
  EXPECT_TRUE(data_plane.RemoveLeftovers(100));
  kernel.set_objects(left);
  EXPECT_TRUE(data_plane.TakeChanges());
  EXPECT_EQ(data_plane.RepairChanges().text, "next hop 99 not wanted");
  EXPECT_EQ(full_reads, 1);
  EXPECT_THAT(kernel.objects().nexthops, IsEmpty());
}

// Changes neighbours and next hops as other programs may: the kernel keeps its objects consistent.
class OtherProgram {
 public:
  explicit OtherProgram(std::mt19937* random) : random_(*random) {}

  std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  void Change(KernelObjects* objects) {
    const std::uint32_t id = 1 + Below(10);
    switch (Below(6)) {
      case 0:
        return Apply(RemoveNexthop{id}, objects);
      case 1:
        return Apply(RemoveNexthop{kDropNexthop}, objects);
      case 2:
        // In the place of any other object.
        Apply(RemoveNexthop{id}, objects);
        objects->nexthops[id] = BlackholeNexthop{};
        return;
      case 3:
        return PutGroup(id, objects);
      case 4:
        if (!objects->neighbours.empty()) objects->neighbours.erase(AnyNeighbour(*objects));
        return;
      default:
        if (!objects->neighbours.empty()) {
          const NeighbourKey key(AnyNeighbour(*objects).first, NeighbourAddress(id));
          objects->neighbours[key] = MacAddress{0x02, 0, 0, 0, 0, 0x09};
        }
    }
  }

 private:
  NeighbourKey AnyNeighbour(const KernelObjects& objects) {
    return std::next(objects.neighbours.begin(),
                     Below(static_cast<std::uint32_t>(objects.neighbours.size())))
        ->first;
  }

  void PutGroup(std::uint32_t id, KernelObjects* objects) {
    NexthopGroup group;
    for (const auto& [member, nexthop] : objects->nexthops) {
      if (member == id || !std::holds_alternative<DeviceNexthop>(nexthop)) continue;
      if (Below(3) == 0) group.members.emplace_back(member, 1 + Below(2));
    }
    if (group.members.empty()) return;
    const KernelNexthop* const present = Find(objects->nexthops, id);
    if (present != nullptr && !std::holds_alternative<NexthopGroup>(*present)) {
      Apply(RemoveNexthop{id}, objects);
    }
    objects->nexthops[id] = std::move(group);
  }

  std::mt19937& random_;
};

TEST(RandomRepairsTest, AreTheSameAsAfterAFullComparison) {
  std::mt19937 random(11);
  OtherProgram other(&random);
  const auto below = [&other](std::uint32_t bound) { return other.Below(bound); };
  System targeted;
  System full;
  int repaired = 0;
  int refused = 0;
  for (int step = 0; step < 3'000; ++step) {
    const std::uint32_t vlan = 1 + below(3);
    const std::uint32_t host = 4 + below(3);
    const std::uint32_t group = 7 + below(2);
    const std::vector<HalRequest> requests = {
        VlanOn(vlan, 1 + below(3)),
        Neighbour(host, vlan),
        GroupOf(group, {vlan, host}),
        GroupOf(group, {4 + below(3)}),
        Request(HalOperation::kDestroyVlan, Vlan(vlan)),
        Request(HalOperation::kDestroyHost, HostOn(host, vlan)),
        Request(HalOperation::kDestroyEcmp, Ecmp(group, {}))};
    const HalRequest& request = requests[below(static_cast<std::uint32_t>(requests.size()))];
    for (System* const system : {&targeted, &full}) system->TryToApply(request);
    KernelObjects damaged = targeted.present();
    for (std::uint32_t changes = 1 + below(4); changes != 0; --changes) other.Change(&damaged);
    std::set<std::uint32_t> refuses;
    if (below(2) == 0) refuses = {1 + below(8), 1 + below(8)};
    for (System* const system : {&targeted, &full}) {
      system->Damage(damaged);
      system->set_refused(refuses);
    }
    // A notification may be about an object that is as wanted again.
    targeted.noticed()->objects.nexthops.insert(1 + below(10));

    ASSERT_TRUE(targeted.data_plane()->TakeChanges());
    const Repair repair = targeted.data_plane()->RepairChanges();
    const Repair expected = full.data_plane()->MakeAsWanted();
    ASSERT_EQ(repair.differences, expected.differences) << "step " << step;
    ASSERT_EQ(repair.text, expected.text) << "step " << step;
    ASSERT_EQ(repair.refusals, expected.refusals) << "step " << step;
    ASSERT_EQ(repair.broken, expected.broken) << "step " << step;
    ASSERT_TRUE(targeted.present() == full.present()) << "step " << step;
    ASSERT_EQ(targeted.data_plane()->writes(), full.data_plane()->writes()) << "step " << step;
    repaired += repair.differences != 0 ? 1 : 0;
    for (System* const system : {&targeted, &full}) system->set_refused({});
    if (repair.refusals.empty()) continue;
    ++refused;
    for (System* const system : {&targeted, &full}) {
      EXPECT_THAT(system->data_plane()->MakeAsWanted().refusals, IsEmpty());
    }
  }
  EXPECT_GT(repaired, 2'000);
  EXPECT_GT(refused, 50);
  EXPECT_EQ(targeted.full_reads(), 2 * refused) << "only after refusals";
}

}  // namespace
}  // namespace reference
