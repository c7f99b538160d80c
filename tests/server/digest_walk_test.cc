#include "reference/server/digest_walk.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/hal/messages.h"

namespace reference {
namespace {

HalTables TablesWithVlans(std::uint32_t count) {
  HalTables tables(count);
  for (std::uint32_t id = 1; id <= count; ++id) {
    tables.Apply({HalOperation::kInstallVlan, id, 0, Vlan(id).SerializeAsString()});
  }
  return tables;
}

TEST(DigestWalkTest, AddsAsManyEntriesAsItMayAtATime) {
  const HalTables tables = TablesWithVlans(25);
  DigestWalk walk(EntryHashFunction::kXxh3);
  for (const std::uint64_t count : {10U, 20U}) {
    EXPECT_FALSE(walk.Continue(tables, 10));
    EXPECT_EQ(walk.digests().of(HalKind::kVlan).count, count);
  }
  EXPECT_TRUE(walk.Continue(tables, 10));
  EXPECT_EQ(walk.digests().of(HalKind::kVlan), tables.digest(HalKind::kVlan));
}

TEST(DigestWalkTest, OneMoreStepFindsTheEnd) {
  const HalTables tables = TablesWithVlans(10);
  DigestWalk walk(EntryHashFunction::kXxh3);
  EXPECT_FALSE(walk.Continue(tables, 10));
  EXPECT_TRUE(walk.Continue(tables, 10));
  EXPECT_EQ(walk.digests().of(HalKind::kVlan), tables.digest(HalKind::kVlan));
}

TEST(DigestWalkTest, UsesItsOwnHashFunction) {
  const HalTables tables = TablesWithVlans(1);
  DigestWalk walk(EntryHashFunction::kFnv1a);
  EXPECT_TRUE(walk.Continue(tables, 10));
  const HalDigest digest = walk.digests().of(HalKind::kVlan);
  EXPECT_EQ(digest.sum, EntryHash(1, Vlan(1).SerializeAsString(), EntryHashFunction::kFnv1a));
  EXPECT_NE(digest, tables.digest(HalKind::kVlan));
}

}  // namespace
}  // namespace reference
