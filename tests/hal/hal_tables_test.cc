/// The HAL's tables: digests, memory, readings, and what no HAL shows from outside. The codes and
/// the behaviour of reinstalls are in tests/conformance.

#include "reference/hal/hal_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

template <typename Message>
HalRequest Request(HalOperation operation, const Message& message) {
  return {operation, 0, 0, message.SerializeAsString()};
}

HalRequest Install(const encapsulation::VrfMessage& vrf) {
  return Request(HalOperation::kInstallVrf, vrf);
}
HalRequest Install(const encapsulation::VlanMessage& vlan) {
  return Request(HalOperation::kInstallVlan, vlan);
}
HalRequest Install(const encapsulation::HostMessage& host) {
  return Request(HalOperation::kInstallHost, host);
}
HalRequest Install(const encapsulation::EcmpMessage& ecmp) {
  return Request(HalOperation::kInstallEcmp, ecmp);
}
HalRequest Install(const encapsulation::MplsMessage& mpls) {
  return Request(HalOperation::kInstallMpls, mpls);
}

constexpr HalKind kAllKinds[] = {HalKind::kVrf, HalKind::kVlan, HalKind::kHost, HalKind::kEcmp,
                                 HalKind::kMpls};

/// All entries of all tables.
std::vector<std::map<std::uint32_t, std::string>> Contents(const HalTables& tables) {
  std::vector<std::map<std::uint32_t, std::string>> contents;
  for (const HalKind kind : kAllKinds) contents.push_back(tables.Entries(kind));
  return contents;
}

std::vector<std::uint32_t> Ids(const HalTables& tables, HalKind kind) {
  std::vector<std::uint32_t> ids;
  for (const auto& [id, payload] : tables.Entries(kind)) ids.push_back(id);
  return ids;
}

/// The digest, computed from the entries.
HalDigest ExpectedDigest(const HalTables& tables, HalKind kind) {
  HalDigest digest;
  for (const auto& [id, payload] : tables.Entries(kind)) {
    ++digest.count;
    digest.sum += EntryHash(id, payload);
  }
  return digest;
}

void ExpectDigestsFitEntries(const HalTables& tables) {
  for (const HalKind kind : kAllKinds) {
    EXPECT_EQ(tables.digest(kind), ExpectedDigest(tables, kind)) << HalKindName(kind);
  }
}

/// VRF 1, VLAN 10, host 20 on it, MPLS 30 on it, ECMP group 40 of 20 and 30.
std::vector<HalRequest> SmallSite() {
  return {Install(Vrf(1)), Install(Vlan(10)), Install(HostOn(20, 10)), Install(MplsOn(30, 10)),
          Install(Ecmp(40, {20, 30}))};
}

HalTables TablesOf(const std::vector<HalRequest>& requests, std::size_t capacity = 100) {
  HalTables tables(capacity);
  for (const HalRequest& request : requests) EXPECT_EQ(tables.Apply(request), kHalSuccess);
  return tables;
}

struct ApplyCase {
  const char* name;
  /// Applied to the small site.
  HalRequest request;
  HalReturnCode code;
};

class HalTablesApplyTest : public testing::TestWithParam<ApplyCase> {};

TEST_P(HalTablesApplyTest, GivesTheCodeAndChangesNothingOnError) {
  HalTables tables = TablesOf(SmallSite());
  const auto before = Contents(tables);
  EXPECT_EQ(tables.Apply(GetParam().request), GetParam().code);
  if (GetParam().code != kHalSuccess) {
    EXPECT_EQ(Contents(tables), before);
  }
  ExpectDigestsFitEntries(tables);
}

const auto kCaseName = [](const auto& test) { return std::string(test.param.name); };

using Operation = HalOperation;

INSTANTIATE_TEST_SUITE_P(
    Each, HalTablesApplyTest,
    testing::Values(
        ApplyCase{"Undecodable", {Operation::kInstallVlan, 10, 0, "\x08"}, kHalBadRequest},
        ApplyCase{"UndecodableDestroy", {Operation::kDestroyVlan, 10, 0, "\x08"}, kHalBadRequest},
        ApplyCase{"Empty", {Operation::kInstallMpls, 10, 0, ""}, kHalBadRequest},
        ApplyCase{"LargestId", Install(Vlan(4294967295)), kHalSuccess},
        ApplyCase{"SameIdInAnotherTable", Install(Vlan(20)), kHalSuccess},
        ApplyCase{"OtherContent", Install(Vlan(10, 9000)), kHalExists},
        ApplyCase{"Replace", Request(Operation::kReplaceVlan, Vlan(10, 9000)), kHalSuccess},
        ApplyCase{"OtherMembers", Install(Ecmp(40, {30, 10})), kHalSuccess},
        ApplyCase{"Destroy", Request(Operation::kDestroyHost, Host(20)), kHalSuccess}),
    kCaseName);

TEST(HalTablesTest, KeepsThePayloads) {
  const HalTables tables = TablesOf(SmallSite());
  EXPECT_THAT(tables.Entries(HalKind::kVrf), ElementsAre(std::pair(1U, "\x08\x01")));
  EXPECT_THAT(tables.Entries(HalKind::kHost),
              ElementsAre(std::pair(20U, HostOn(20, 10).SerializeAsString())));
  EXPECT_TRUE(tables.Contains(HalKind::kMpls, 30));
  EXPECT_FALSE(tables.Contains(HalKind::kMpls, 20));
  for (const HalKind kind : kAllKinds) EXPECT_EQ(tables.size(kind), 1U);
}

TEST(HalTablesTest, UsesTheIdInThePayload) {
  HalTables tables(1);
  EXPECT_EQ(tables.Apply({Operation::kInstallVlan, 99, 0, Vlan(10).SerializeAsString()}),
            kHalSuccess);
  EXPECT_THAT(Ids(tables, HalKind::kVlan), ElementsAre(10));
}

TEST(HalTablesTest, InstallOfAnExistingVrfSucceedsWhateverItCarries) {
  HalTables tables = TablesOf(SmallSite());
  // A field that the schema does not know: number 15, varint 1.
  EXPECT_EQ(tables.Apply({Operation::kInstallVrf, 1, 0, "\x08\x01\x78\x01"}), kHalSuccess);
  EXPECT_EQ(tables.size(HalKind::kVrf), 1U);
}

TEST(HalTablesTest, ChecksForRoomLast) {
  HalTables tables(0);
  EXPECT_EQ(tables.Apply(Install(MplsOn(1, 0, 1048576))), kHalLabelOutOfRange);
  EXPECT_EQ(tables.Apply(Install(HostOn(1, 2))), kHalMissingReference);
  EXPECT_EQ(tables.Apply(Install(Host(1))), kHalTableFull);
}

TEST(HalTablesTest, ClearForgetsEverything) {
  HalTables tables = TablesOf(SmallSite());
  tables.BeginReinstall();
  tables.Clear();
  EXPECT_EQ(Contents(tables), Contents(HalTables(1)));
  ExpectDigestsFitEntries(tables);
  ASSERT_EQ(tables.Apply(Install(Vlan(10))), kHalSuccess);
  EXPECT_EQ(tables.Apply(Install(Vlan(10, 9000))), kHalExists) << "the reinstall is forgotten";
}

TEST(HalTablesReinstallTest, EndsInParts) {
  HalTables tables(100);
  for (std::uint32_t id = 1; id <= 20; ++id)
    ASSERT_EQ(tables.Apply(Install(Vlan(id))), kHalSuccess);
  for (std::uint32_t id = 1; id <= 20; ++id)
    ASSERT_EQ(tables.Apply(Install(Host(id))), kHalSuccess);
  tables.BeginReinstall();
  ASSERT_EQ(tables.Apply(Install(Vlan(7))), kHalSuccess);
  const auto size = [&] { return tables.size(HalKind::kVlan) + tables.size(HalKind::kHost); };
  int parts = 1;
  for (std::size_t before = size(); !tables.EndReinstallInPart(9); before = size(), ++parts) {
    ASSERT_GE(size() + 9, before);
    ASSERT_LT(size(), before);
  }
  EXPECT_EQ(parts, 5) << "40 entries";
  EXPECT_THAT(Ids(tables, HalKind::kVlan), ElementsAre(7));
  EXPECT_THAT(Ids(tables, HalKind::kHost), IsEmpty());
  ExpectDigestsFitEntries(tables);
  EXPECT_EQ(tables.Apply(Install(Vlan(7, 9000))), kHalExists) << "the reinstall has ended";
  EXPECT_TRUE(tables.EndReinstallInPart(0));
}

TEST(HalTablesReinstallTest, EachRemovesWhatItDoesNotName) {
  HalTables tables = TablesOf({Install(Vlan(1)), Install(Vlan(2)), Install(Vlan(3))});
  for (const std::uint32_t kept : {2U, 1U}) {
    tables.BeginReinstall();
    for (std::uint32_t id = 1; id <= kept; ++id) {
      ASSERT_EQ(tables.Apply(Install(Vlan(id))), kHalSuccess);
    }
    tables.EndReinstall();
    EXPECT_EQ(tables.size(HalKind::kVlan), kept);
  }
}

TEST(HalTablesReinstallTest, ABeginInTheMiddleOfTheEndStartsOver) {
  HalTables tables(100);
  for (std::uint32_t id = 1; id <= 20; ++id)
    ASSERT_EQ(tables.Apply(Install(Vlan(id))), kHalSuccess);
  tables.BeginReinstall();
  EXPECT_FALSE(tables.EndReinstallInPart(9));
  EXPECT_EQ(tables.Apply(Install(Vlan(1, 9000))), kHalSuccess) << "the reinstall is open";
  tables.BeginReinstall();
  ASSERT_EQ(tables.Apply(Install(Vlan(20))), kHalSuccess);
  EXPECT_FALSE(tables.EndReinstallInPart(9));
  EXPECT_TRUE(tables.EndReinstallInPart(9));
  EXPECT_THAT(Ids(tables, HalKind::kVlan), ElementsAre(20));
  ExpectDigestsFitEntries(tables);
}

using IdSet = std::set<std::uint32_t>;

IdSet Multiples(std::uint32_t of, std::uint32_t count) {
  IdSet ids;
  for (std::uint32_t i = 1; i <= count; ++i) ids.insert(i * of);
  return ids;
}

// If a hash table has one of these sizes and places ids by remainder, all of the number's multiples
// collide.
IdSet MultiplesOfPrimes() {
  IdSet ids;
  for (const std::uint32_t prime :
       {12'289U, 24'593U, 49'157U, 98'317U, 196'613U, 393'241U, 786'433U}) {
    ids.merge(Multiples(prime, 8'200));
  }
  return ids;
}

struct IdPattern {
  const char* name;
  IdSet ids;
};

class HalTablesIdsTest : public testing::TestWithParam<IdPattern> {};

INSTANTIATE_TEST_SUITE_P(Patterns, HalTablesIdsTest,
                         testing::Values(IdPattern{"Consecutive", Multiples(1, 40'000)},
                                         IdPattern{"MultiplesOfAPower",
                                                   Multiples(1U << 16, 40'000)},
                                         IdPattern{"MultiplesOfAPrime", Multiples(98'317, 40'000)},
                                         IdPattern{"MultiplesOfPrimes", MultiplesOfPrimes()}),
                         [](const auto& test) { return test.param.name; });

TEST_P(HalTablesIdsTest, TakeNoMoreMemoryThanOthers) {
  const IdSet& ids = GetParam().ids;
  HalTables tables(ids.size());
  for (const std::uint32_t id : ids) {
    ASSERT_EQ(tables.Apply(Install(Vrf(id))), kHalSuccess) << id;
    ASSERT_LE(tables.reserved(HalKind::kVrf), 8 * tables.size(HalKind::kVrf) + 1024);
  }
  EXPECT_THAT(Ids(tables, HalKind::kVrf), ElementsAreArray(ids));
  for (const std::uint32_t id : ids) ASSERT_TRUE(tables.Contains(HalKind::kVrf, id)) << id;
  EXPECT_EQ(tables.digest(HalKind::kVrf), ExpectedDigest(tables, HalKind::kVrf));
}

class HalTablesMemoryTest : public testing::Test {
 protected:
  static constexpr std::uint32_t kCount = 20'000;
  static constexpr std::size_t kSmall = 1024;

  HalTablesMemoryTest() {
    for (std::uint32_t id = 1; id <= kCount; ++id) tables_.Apply(Install(Vlan(id)));
    EXPECT_GE(tables_.reserved(HalKind::kVlan), kCount);
  }

  HalTables tables_{kCount};
};

TEST_F(HalTablesMemoryTest, IsGivenBackByDestroys) {
  for (std::uint32_t id = 1; id <= kCount; ++id) {
    if (id % 100 == 0) continue;
    ASSERT_EQ(tables_.Apply(Request(Operation::kDestroyVlan, Vlan(id))), kHalSuccess);
    ASSERT_LE(tables_.reserved(HalKind::kVlan), 8 * (tables_.size(HalKind::kVlan) + 1));
  }
  EXPECT_EQ(tables_.size(HalKind::kVlan), kCount / 100);
  for (std::uint32_t id = 100; id <= kCount; id += 100) {
    EXPECT_TRUE(tables_.Contains(HalKind::kVlan, id)) << id;
  }
  ExpectDigestsFitEntries(tables_);
}

TEST_F(HalTablesMemoryTest, IsGivenBackByTheEndOfAReinstall) {
  tables_.BeginReinstall();
  ASSERT_EQ(tables_.Apply(Install(Vlan(5))), kHalSuccess);
  tables_.EndReinstall();
  EXPECT_LE(tables_.reserved(HalKind::kVlan), kSmall);
  EXPECT_THAT(Ids(tables_, HalKind::kVlan), ElementsAre(5));
  ExpectDigestsFitEntries(tables_);
}

TEST_F(HalTablesMemoryTest, IsGivenBackByARestart) {
  tables_.Clear();
  EXPECT_LE(tables_.reserved(HalKind::kVlan), kSmall);
}

// The payload that a reading returned last for each entry.
class Reading {
 public:
  explicit Reading(const HalTables* tables) : tables_(tables) {}

  // False at the end.
  bool Step() {
    const auto entry = tables_->Next(&cursor_);
    if (!entry) return false;
    entries_[{entry->kind, entry->id}] = entry->payload;
    return true;
  }

  const TableEntries& entries() const { return entries_; }

 private:
  const HalTables* tables_;
  TableCursor cursor_;
  TableEntries entries_;
};

TEST(HalTablesReadingTest, OfUnchangedTablesReturnsEachEntryOnce) {
  HalTables tables(100);
  Reading empty(&tables);
  EXPECT_FALSE(empty.Step());
  for (std::uint32_t id = 1; id <= 50; ++id) tables.Apply(Install(Vlan(id)));
  tables.Apply(Install(Vrf(7)));
  tables.Apply(Install(MplsOn(9, 5)));
  Reading reading(&tables);
  int steps = 0;
  while (reading.Step()) ++steps;
  EXPECT_EQ(steps, 52);
  EXPECT_EQ(reading.entries(), tables.Entries());
  EXPECT_FALSE(reading.Step());
}

TEST(HalTablesReadingTest, OfChangingTablesMissesNoPersistentEntry) {
  constexpr std::uint32_t kIds = 3'000;
  std::mt19937 random(5);
  for (int round = 0; round < 50; ++round) {
    SCOPED_TRACE(round);
    HalTables tables(kIds);
    // Entries with even ids stay throughout; about half of the others exist at first.
    for (std::uint32_t id = 1; id <= kIds; ++id) {
      if (id % 2 == 0 || random() % 2 == 0) tables.Apply(Install(Vlan(id)));
    }
    Reading reading(&tables);
    const auto changes = random() % 5;
    for (std::uint32_t step = 0; reading.Step(); ++step) {
      ASSERT_LE(step, 20 * kIds);
      for (unsigned long change = 0; change < changes; ++change) {
        const auto id = static_cast<std::uint32_t>(random() % kIds) | 1U;
        if (random() % 2 == 0) {
          tables.Apply(Install(Vlan(id)));
        } else {
          tables.Apply(Request(Operation::kDestroyVlan, Vlan(id)));
        }
      }
      // Removes most of the table at once, and with it memory.
      if (step == 500 && round % 3 == 0) {
        for (std::uint32_t id = 1; id <= kIds; id += 2) {
          tables.Apply(Request(Operation::kDestroyVlan, Vlan(id)));
        }
      }
    }
    for (std::uint32_t id = 2; id <= kIds; id += 2) {
      ASSERT_EQ(reading.entries().count({HalKind::kVlan, id}), 1U) << id;
    }
  }
}

TEST(HalTablesReadingTest, ContinuesWhenAReinstallEndsMeanwhile) {
  HalTables tables(1'000);
  for (std::uint32_t id = 1; id <= 1'000; ++id) tables.Apply(Install(Vlan(id)));
  Reading reading(&tables);
  for (int step = 0; step < 300; ++step) ASSERT_TRUE(reading.Step());
  tables.BeginReinstall();
  for (std::uint32_t id = 1; id <= 1'000; id += 10) tables.Apply(Install(Vlan(id)));
  tables.EndReinstall();
  while (reading.Step()) continue;
  for (const auto& [id, payload] : tables.Entries(HalKind::kVlan)) {
    EXPECT_EQ(reading.entries().count({HalKind::kVlan, id}), 1U) << id;
  }
}

TEST(HalDigestTest, Xxh3IsTheSameInEveryBuild) {
  // The first by xxhsum -H3, the others by Python's xxhash with a seed. XXH3 treats each of these
  // lengths in another way.
  EXPECT_EQ(EntryHash(0, "\x08\x01"), 0x6000FE6075894D73);
  EXPECT_EQ(EntryHash(0x01020304, "\x08\x01"), 0xF77F21C10A253A9A);
  EXPECT_EQ(EntryHash(1, ""), 0x4DC5B0CC826F6703);
  EXPECT_EQ(EntryHash(0xFFFFFFFF, "\x18\x05\x28\x64"), 0xAF5E40FF7A5F8D47);
  EXPECT_EQ(EntryHash(7, "0123456789"), 0xAE0AC4103A302731);
  EXPECT_EQ(EntryHash(7, std::string(100, 'a')), 0x1A118B5536A05FE0);
  EXPECT_EQ(EntryHash(7, std::string(200, 'a')), 0x1975D37DE556EEC1);
  EXPECT_EQ(EntryHash(7, std::string(1000, 'a')), 0x3F9E6C865A1FAF29);
}

TEST(HalDigestTest, Fnv1aIsTheSameInEveryBuild) {
  // Computed independently of this code, from the definitions of FNV-1a and splitmix64.
  constexpr EntryHashFunction kFnv1a = EntryHashFunction::kFnv1a;
  EXPECT_EQ(EntryHash(0, "", kFnv1a), 0xACA6D6B54BE3ED05);
  EXPECT_EQ(EntryHash(1, "", kFnv1a), 0xDE9C7B03A9C84FC0);
  EXPECT_EQ(EntryHash(0x01020304, "\x08\x01", kFnv1a), 0xA32A9DF04DF70B5E);
  EXPECT_EQ(EntryHash(7, "\xFF", kFnv1a), 0x0D192D0E3BE15A36);
}

TEST(HalDigestTest, IsZeroWithoutEntries) {
  const HalTables tables(1);
  for (const HalKind kind : kAllKinds) EXPECT_EQ(tables.digest(kind), HalDigest());
}

TEST(HalDigestTest, DoesNotDependOnTheOrder) {
  std::vector<HalRequest> requests;
  for (std::uint32_t id = 1; id <= 50; ++id) requests.push_back(Install(Vlan(id, id)));
  const HalDigest forwards = TablesOf(requests).digest(HalKind::kVlan);
  std::reverse(requests.begin(), requests.end());
  EXPECT_EQ(TablesOf(requests).digest(HalKind::kVlan), forwards);
  EXPECT_EQ(forwards.count, 50U);
}

TEST(HalDigestTest, ChangesWithEachChangeAndReverts) {
  HalTables tables = TablesOf(SmallSite());
  const HalDigest before = tables.digest(HalKind::kVlan);
  ASSERT_EQ(tables.Apply(Request(Operation::kReplaceVlan, Vlan(10, 9000))), kHalSuccess);
  EXPECT_EQ(tables.digest(HalKind::kVlan).count, 1U);
  EXPECT_NE(tables.digest(HalKind::kVlan).sum, before.sum);
  ASSERT_EQ(tables.Apply(Request(Operation::kReplaceVlan, Vlan(10))), kHalSuccess);
  EXPECT_EQ(tables.digest(HalKind::kVlan), before);
  ASSERT_EQ(tables.Apply(Install(Vlan(11))), kHalSuccess);
  EXPECT_NE(tables.digest(HalKind::kVlan).sum, before.sum);
  ASSERT_EQ(tables.Apply(Request(Operation::kDestroyVlan, Vlan(11))), kHalSuccess);
  EXPECT_EQ(tables.digest(HalKind::kVlan), before);
}

TEST(HalDigestTest, DistinguishesSwappedContents) {
  // The same ids and payloads in different pairs.
  EXPECT_NE(EntryHash(1, "a") + EntryHash(2, "b"), EntryHash(1, "b") + EntryHash(2, "a"));
}

}  // namespace
}  // namespace reference
