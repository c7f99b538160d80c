/// The HAL's tables with a data plane: the changes that it gets, and how requests are undone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "tests/hal/fake_data_plane.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <typename Message>
HalRequest Request(HalOperation operation, const Message& message) {
  return {operation, 0, 0, message.SerializeAsString()};
}

HalRequest InstallVlan(std::uint32_t id, std::uint32_t mtu = 1500) {
  return Request(HalOperation::kInstallVlan, Vlan(id, mtu));
}
HalRequest ReplaceVlan(std::uint32_t id, std::uint32_t mtu) {
  return Request(HalOperation::kReplaceVlan, Vlan(id, mtu));
}
HalRequest DestroyVlan(std::uint32_t id) { return Request(HalOperation::kDestroyVlan, Vlan(id)); }

class HalTablesDataPlaneTest : public testing::Test {
 protected:
  void Apply(const std::vector<HalRequest>& requests) {
    for (const HalRequest& request : requests) EXPECT_EQ(tables_.Apply(request), kHalSuccess);
  }

  FakeDataPlane data_plane_;
  HalTables tables_{2, &data_plane_};
};

TEST_F(HalTablesDataPlaneTest, GetsEveryChange) {
  Apply({InstallVlan(10), ReplaceVlan(10, 1400), DestroyVlan(10)});
  EXPECT_THAT(data_plane_.TakeCalls(),
              ElementsAre("store vlan 10", "store vlan 10", "remove vlan 10"));
}

TEST_F(HalTablesDataPlaneTest, DoesNotGetWhatStaysTheSame) {
  Apply({InstallVlan(10)});
  tables_.BeginReinstall();
  data_plane_.TakeCalls();
  Apply({InstallVlan(10), ReplaceVlan(10, 1500)});
  EXPECT_THAT(data_plane_.TakeCalls(), IsEmpty());
}

TEST_F(HalTablesDataPlaneTest, DoesNotGetWhatTheTablesRefuse) {
  Apply({InstallVlan(10), InstallVlan(11)});
  data_plane_.TakeCalls();
  EXPECT_EQ(tables_.Apply(InstallVlan(12)), kHalTableFull);
  EXPECT_EQ(tables_.Apply(ReplaceVlan(12, 1400)), kHalNotFound);
  EXPECT_EQ(tables_.Apply(DestroyVlan(12)), kHalNotFound);
  EXPECT_THAT(data_plane_.TakeCalls(), IsEmpty());
}

TEST_F(HalTablesDataPlaneTest, WhatItRefusesChangesNothing) {
  Apply({InstallVlan(10)});
  const auto before = tables_.Entries();
  data_plane_.RefuseToStore("vlan 10", kHalNotSupported);
  data_plane_.RefuseToStore("vlan 11", kHalNoInterface);
  EXPECT_EQ(tables_.Apply(ReplaceVlan(10, 1400)), kHalNotSupported);
  EXPECT_EQ(tables_.Apply(InstallVlan(11)), kHalNoInterface);
  EXPECT_EQ(tables_.Entries(), before);
}

TEST_F(HalTablesDataPlaneTest, GetsTheRemovalsAtTheEndOfAReinstall) {
  Apply({InstallVlan(10), InstallVlan(11)});
  tables_.BeginReinstall();
  Apply({InstallVlan(11)});
  data_plane_.TakeCalls();
  tables_.EndReinstall();
  EXPECT_THAT(data_plane_.TakeCalls(), ElementsAre("remove vlan 10"));
}

TEST_F(HalTablesDataPlaneTest, GetsTheRemovalsWhenTheTablesAreEmptied) {
  Apply({InstallVlan(10)});
  data_plane_.TakeCalls();
  tables_.Clear();
  EXPECT_THAT(data_plane_.TakeCalls(), ElementsAre("remove vlan 10"));
}

TEST_F(HalTablesDataPlaneTest, ARestoredEntryIsAsBefore) {
  Apply({InstallVlan(10)});
  const auto entries = tables_.Entries();
  const HalDigest digest = tables_.digest(HalKind::kVlan);
  const std::vector<HalRequest> requests = {InstallVlan(11), ReplaceVlan(10, 1400), DestroyVlan(10),
                                            InstallVlan(10, 1300)};
  std::vector<SavedEntry> saved;
  for (const HalRequest& request : requests) {
    saved.push_back(tables_.Save(HalKind::kVlan, request.payload == requests[0].payload ? 11 : 10));
    Apply({request});
  }
  for (auto one = saved.rbegin(); one != saved.rend(); ++one) tables_.Restore(*one);
  EXPECT_EQ(tables_.Entries(), entries);
  EXPECT_EQ(tables_.digest(HalKind::kVlan), digest);
  ASSERT_EQ(data_plane_.entries().size(), 1);
  EXPECT_EQ(data_plane_.entries().at("vlan 10"), Vlan(10).SerializeAsString());
}

TEST_F(HalTablesDataPlaneTest, ARestoreThatChangesNothingStoresNothing) {
  Apply({InstallVlan(10)});
  const SavedEntry saved = tables_.Save(HalKind::kVlan, 10);
  data_plane_.TakeCalls();
  tables_.Restore(saved);
  EXPECT_THAT(data_plane_.TakeCalls(), IsEmpty());
}

TEST_F(HalTablesDataPlaneTest, ARestoredEntryIsUnnamedAgain) {
  Apply({InstallVlan(10)});
  tables_.BeginReinstall();
  const SavedEntry saved = tables_.Save(HalKind::kVlan, 10);
  Apply({InstallVlan(10)});
  EXPECT_TRUE(tables_.Holds(HalKind::kVlan, 10));
  tables_.Restore(saved);
  EXPECT_FALSE(tables_.Holds(HalKind::kVlan, 10));
  EXPECT_TRUE(tables_.Contains(HalKind::kVlan, 10));
}

}  // namespace
}  // namespace reference
