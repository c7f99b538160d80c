#include "reference/manager/engine/request_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/manager/sites.h"

namespace reference {
namespace {

using ::testing::ElementsAre;

class RequestQueueTest : public ::testing::Test {
 protected:
  void Load(const Site& site) { database_.Replace(site); }

  Object* Find(const std::string& key) { return database_.FindEntry(*ParseObjectKey(key)); }

  void Add(const std::string& key) { queue_.Add(Find(key)); }

  void AddRemoval(const std::string& key) {
    Find(key)->wanted = false;
    Add(key);
  }

  void Remove(const std::string& key) { queue_.Remove(Find(key)); }

  // Empties the queue.
  std::vector<std::string> TakeAll() {
    std::vector<std::string> keys;
    while (!queue_.empty()) {
      keys.push_back(KeyText(queue_.front()));
      queue_.Remove(database_.FindEntry(queue_.front()));
    }
    return keys;
  }

  DestDatabase database_;
  RequestQueue queue_;
};

TEST_F(RequestQueueTest, NothingPrecedesWhatItRefersTo) {
  Load(SiteOfAllKinds());
  for (const char* const key : {"ecmp:30", "mpls:40", "mpls:41", "host:20", "vlan:11", "vrf:7"}) {
    Add(key);
  }
  AddRemoval("vlan:10");
  AddRemoval("host:21");
  EXPECT_EQ(queue_.size(), 8U);
  EXPECT_THAT(TakeAll(), ElementsAre("vrf:7", "vlan:11", "host:20", "mpls:41", "mpls:40", "ecmp:30",
                                     "host:21", "vlan:10"));
}

TEST_F(RequestQueueTest, AnObjectIsInItOnce) {
  Load(SiteOfAllKinds());
  Add("vlan:10");
  Add("vlan:10");
  EXPECT_EQ(queue_.size(), 1U);
  AddRemoval("vlan:10");
  Add("host:20");
  EXPECT_EQ(queue_.size(), 2U);
  Remove("host:21");
  EXPECT_THAT(TakeAll(), ElementsAre("host:20", "vlan:10"));
}

// Random additions and removals of VLANs and hosts, compared with a map sorted by what the class
// promises.
TEST_F(RequestQueueTest, IsAlwaysInOrder) {
  constexpr std::uint32_t kIds = 40;
  Site site;
  for (std::uint32_t id = 1; id <= kIds; ++id) {
    site.vlans.push_back(VlanEntry(id));
    site.hosts.push_back(HostEntry(id, id));
  }
  Load(site);
  std::mt19937 random(7);
  const auto below = [&random](std::uint32_t end) {
    return static_cast<std::uint32_t>(random() % end);
  };
  std::map<std::pair<int, std::uint32_t>, ObjectKey> expected;
  const auto forget = [&expected](const ObjectKey& key) {
    for (auto entry = expected.begin(); entry != expected.end();) {
      entry = entry->second == key ? expected.erase(entry) : std::next(entry);
    }
  };
  for (int step = 0; step < 20'000; ++step) {
    const HalKind kind = below(2) == 0 ? HalKind::kVlan : HalKind::kHost;
    const std::uint32_t id = 1 + below(kIds);
    Object* const object = database_.FindEntry({kind, id});
    switch (below(4)) {
      case 0:
        queue_.Remove(object);
        forget(object->key);
        break;
      case 1:
        if (expected.empty()) break;
        ASSERT_EQ(queue_.front(), expected.begin()->second);
        queue_.Remove(database_.FindEntry(queue_.front()));
        expected.erase(expected.begin());
        break;
      default: {
        object->wanted = below(3) != 0;
        queue_.Add(object);
        forget(object->key);
        const int layer = kind == HalKind::kVlan ? 0 : 1;
        expected[{object->wanted ? layer : 3 - layer, id}] = object->key;
      }
    }
    ASSERT_EQ(queue_.size(), expected.size());
    ASSERT_EQ(queue_.empty(), expected.empty());
    if (!expected.empty()) {
      ASSERT_EQ(queue_.front(), expected.begin()->second) << step;
    }
  }
}

}  // namespace
}  // namespace reference
