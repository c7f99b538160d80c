/// Tables, translation and kernel together: the kernel's objects after changes and refusals.

#include "reference/data_plane/kernel_data_plane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reference/data_plane/difference.h"
#include "reference/hal/hal_tables.h"
#include "tests/data_plane/model_kernel.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const InterfaceNames kInterfaces = {{1, "eth0"}, {2, "eth1"}, {3, "eth1.20"}, {4, "eth2"}};
const std::set<std::string> kDevices = {"eth0", "eth1"};

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim) {
  encapsulation::VlanMessage vlan = Vlan(id);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return vlan;
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac("\x02\x02\x02\x02\x02\x02");
  return host;
}

template <typename Message>
HalRequest Request(HalOperation operation, const Message& message) {
  return {operation, 0, 0, message.SerializeAsString()};
}

class KernelDataPlaneTest : public testing::Test {
 protected:
  std::vector<RefusedChange> Write(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (std::size_t i = 0; i < changes.size(); ++i) {
      const bool refuses = refuses_ && refuses_();
      const auto refusal = refuses ? "out of memory" : kernel_.Write(changes[i]);
      if (!refuses && refusal && refused.empty()) ADD_FAILURE() << *refusal;
      if (refusal) refused.push_back({i, *refusal});
    }
    return refused;
  }

  // As the server does.
  HalReturnCode CarryOut(HalKind kind, std::uint32_t id, const HalRequest& request) {
    const SavedEntry before = tables_.Save(kind, id);
    const HalReturnCode code = tables_.Apply(request);
    if (code != kHalSuccess || !data_plane_.Commit()) return code;
    tables_.Restore(before);
    const auto refuses = std::exchange(refuses_, nullptr);
    data_plane_.CommitOrLeave();
    refuses_ = refuses;
    return kHalKernelRefused;
  }

  KernelObjects Wanted() const {
    Translation translation(kInterfaces, kDevices);
    for (const auto& [key, payload] : tables_.Entries()) {
      VisitKind(key.first, [&translation, key = key, &payload = payload](auto row) {
        typename decltype(row)::Message message;
        EXPECT_TRUE(message.ParseFromString(payload));
        EXPECT_EQ(translation.Store(key.first, key.second, message), kHalSuccess);
      });
    }
    return translation.Objects();
  }

  ModelKernel kernel_{kDevices};
  std::map<std::string, std::uint32_t> mtus_;
  std::function<bool()> refuses_;
  std::vector<std::string> lines_;
  // How many times the routes have been counted, and how long that takes.
  int counts_ = 0;
  std::chrono::milliseconds count_time_{0};
  std::size_t routes_ = 0;
  KernelDataPlane data_plane_{
      Translation(kInterfaces, kDevices), Leftovers(),
      KernelAccess{[this](const std::vector<KernelChange>& changes) { return Write(changes); },
                   [this] {
                     return KernelState{kernel_.objects(), mtus_};
                   },
                   {},
                   -1,
                   [this] {
                     ++counts_;
                     std::this_thread::sleep_for(count_time_);
                     return routes_;
                   }},
      [this](LogLevel, const std::string& line) { lines_.push_back(line); }};
  HalTables tables_{100, &data_plane_};
};

TEST_F(KernelDataPlaneTest, TheKernelFollowsTheTables) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallHost, Neighbour(20, 10))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  EXPECT_EQ(kernel_.objects().nexthops.size(), 2);
  EXPECT_TRUE(kernel_.objects() == Wanted());
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(11, 9))), kHalNoInterface);
}

TEST_F(KernelDataPlaneTest, ARepairThatFailsNamesTheBrokenEntries) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallHost, Neighbour(20, 10))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  mtus_ = {{"eth0", 1500}, {"eth1", 1500}, {"zd10", 1500}};
  EXPECT_EQ(kernel_.Write(RemoveNexthop{20}), std::nullopt);
  refuses_ = [] { return true; };
  const Repair failed = data_plane_.MakeAsWanted();
  EXPECT_THAT(failed.refusals, ElementsAre("out of memory"));
  EXPECT_THAT(failed.broken,
              ElementsAre(HalObjectState{HalKind::kHost, 20, kHalKernelRefused, "out of memory"}));
  refuses_ = nullptr;
  const Repair repaired = data_plane_.MakeAsWanted();
  EXPECT_EQ(repaired.differences, 1U);
  EXPECT_THAT(repaired.broken, IsEmpty());
}

TEST_F(KernelDataPlaneTest, ADeviceThatComesIsUsed) {
  mtus_ = {{"eth0", 1500}, {"eth1", 1500}};
  EXPECT_FALSE(data_plane_.MakeAsWanted().interfaces_came);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 4))), kHalNoInterface);
  mtus_["eth2"] = 1500;
  EXPECT_TRUE(data_plane_.MakeAsWanted().interfaces_came);
  EXPECT_FALSE(data_plane_.MakeAsWanted().interfaces_came);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 4))), kHalSuccess);
}

// A full routing table takes seconds to count.
TEST_F(KernelDataPlaneTest, CountsRoutesAtEachComparisonOnlyIfThatIsFast) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  count_time_ = std::chrono::milliseconds(300);
  routes_ = 5;
  data_plane_.MakeAsWanted();
  EXPECT_EQ(counts_, 1);
  data_plane_.MakeAsWanted();
  EXPECT_EQ(counts_, 1) << "the next one is due 30 s later";
  // The kernel has removed routes with it.
  EXPECT_EQ(kernel_.Write(RemoveNexthop{10}), std::nullopt);
  routes_ = 3;
  EXPECT_EQ(data_plane_.MakeAsWanted().text,
            "next hop 10 missing; 2 routes that used our next hops are gone; the programs that "
            "added them must add them again");
  EXPECT_EQ(counts_, 2);
}

TEST_F(KernelDataPlaneTest, TheFirstRefusalIsTheReason) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  int change = 0;
  refuses_ = [&change] { return ++change == 1; };
  EXPECT_EQ(data_plane_.Commit(), "out of memory");
}

TEST_F(KernelDataPlaneTest, WhatCannotBeUndoneIsLogged) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallEcmp, Ecmp(10, {}))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kDestroyEcmp, Ecmp(10, {}))), kHalSuccess);
  refuses_ = [] { return true; };
  data_plane_.CommitOrLeave();
  data_plane_.CommitOrLeave();
  EXPECT_THAT(lines_, ElementsAre("the kernel differs from the tables now: out of memory",
                                  "the kernel differs from the tables now: out of memory"));
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
}

TEST_F(KernelDataPlaneTest, ARepairUndoesWhatAnotherProgramChanged) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallHost, Neighbour(20, 10))), kHalSuccess);
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallEcmp, Ecmp(30, {20}))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  EXPECT_EQ(data_plane_.MakeAsWanted().differences, 0);
  const std::uint64_t writes = data_plane_.writes().value();
  // This also removes the group.
  KernelObjects present = kernel_.objects();
  Apply(RemoveNexthop{20}, &present);
  present.nexthops[99] = BlackholeNexthop{};
  std::get<MacvlanDevice>(present.devices.at("zd10")).mtu = 1400;
  kernel_.set_objects(present);
  const Repair repair = data_plane_.MakeAsWanted();
  EXPECT_EQ(repair.differences, 4);
  EXPECT_EQ(repair.text, "next hop 20 missing, next hop 30 missing, next hop 99 not wanted, ...");
  EXPECT_THAT(repair.refusals, IsEmpty());
  EXPECT_TRUE(kernel_.objects() == Wanted());
  EXPECT_EQ(data_plane_.writes(), writes + 4);
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(KernelDataPlaneTest, ARepairNamesWhatIsRefused) {
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, VlanOn(10, 1))), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  kernel_.set_objects({});
  refuses_ = [] { return true; };
  const Repair repair = data_plane_.MakeAsWanted();
  EXPECT_EQ(repair.differences, 2);
  EXPECT_THAT(repair.refusals, ElementsAre("out of memory", "out of memory"));
}

// The kernel reports the parent's MTU for a device without one of its own.
TEST_F(KernelDataPlaneTest, TheMtuOfTheParentNeedsNoRepair) {
  mtus_ = {{"eth0", 1500}};
  encapsulation::VlanMessage vlan = VlanOn(10, 1);
  vlan.clear_mtu();
  EXPECT_EQ(tables_.Apply(Request(HalOperation::kInstallVlan, vlan)), kHalSuccess);
  EXPECT_EQ(data_plane_.Commit(), std::nullopt);
  KernelObjects present = kernel_.objects();
  std::get<MacvlanDevice>(present.devices.at("zd10")).mtu = 1500;
  kernel_.set_objects(present);
  const std::uint64_t writes = data_plane_.writes().value();
  EXPECT_EQ(data_plane_.MakeAsWanted().differences, 0);
  EXPECT_EQ(data_plane_.writes(), writes);
}

TEST_F(KernelDataPlaneTest, KernelAndTablesAgreeWhateverIsRefused) {
  std::mt19937 random(7);
  const auto below = [&random](std::uint32_t bound) {
    return static_cast<std::uint32_t>(random() % bound);
  };
  refuses_ = [&below] { return below(12) == 0; };
  std::map<HalReturnCode, int> codes;
  for (int step = 0; step < 3'000; ++step) {
    const std::uint32_t vlan = 1 + below(3);
    const std::uint32_t host = 4 + below(3);
    const std::uint32_t group = 7 + below(2);
    HalReturnCode code{};
    switch (below(6)) {
      case 0:
        code = CarryOut(HalKind::kVlan, vlan,
                        Request(HalOperation::kInstallVlan, VlanOn(vlan, 1 + below(3))));
        break;
      case 1:
        code = CarryOut(HalKind::kVlan, vlan,
                        Request(HalOperation::kReplaceVlan, VlanOn(vlan, 1 + below(3))));
        break;
      case 2:
        code = CarryOut(HalKind::kVlan, vlan, Request(HalOperation::kDestroyVlan, Vlan(vlan)));
        break;
      case 3:
        code = CarryOut(HalKind::kHost, host,
                        Request(HalOperation::kInstallHost, Neighbour(host, vlan)));
        break;
      case 4:
        code = CarryOut(HalKind::kHost, host,
                        Request(HalOperation::kReplaceHost, Neighbour(host, vlan)));
        break;
      default:
        code = CarryOut(HalKind::kEcmp, group,
                        Request(HalOperation::kInstallEcmp, Ecmp(group, {vlan, host})));
        break;
    }
    ++codes[code];
    ASSERT_TRUE(kernel_.objects() == Wanted()) << "step " << step;
  }
  EXPECT_GT(codes[kHalSuccess], 500);
  EXPECT_GT(codes[kHalKernelRefused], 100);
}

}  // namespace
}  // namespace reference
