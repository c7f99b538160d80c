// The manager with the embedded HAL: the final contents of the tables.

#include <gtest/gtest.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base_encap_message.pb.h"
#include "reference/hal/embedded_hal.h"
#include "reference/manager/engine/manager.h"
#include "reference/manager/views/report.h"
#include "reference/site/generate_site.h"
#include "reference/site/site_reader.h"
#include "tests/manager/sites.h"

namespace reference {
namespace {

constexpr std::chrono::seconds kPatience{60};

using Tables = std::vector<std::map<std::uint32_t, std::string>>;

/// The manager, one at a time, and its HAL. `Settle` runs them on the test's thread.
class System {
 public:
  explicit System(const EmbeddedHalOptions& options = {}, std::set<std::uint64_t> restarts = {})
      : restarts_(std::move(restarts)),
        manager_(&io_, {[this] {
                          if (!restarting_) io_.stop();
                        },
                        [this] { restarting_ = false; },
                        {},
                        [this](std::uint64_t results) { RestartAt(results); }}),
        hal_(options) {}

  void Start(const Site& site) {
    manager_.Apply(site);
    manager_.Start(&hal_);
    Settle();
  }

  void Apply(const Site& site) {
    manager_.Apply(site);
    Settle();
  }

  // By kind. Never printed on a mismatch: the tables are long.
  Tables ReadTables() {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (hal_.counters().unfinished != 0 && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    EXPECT_EQ(hal_.counters().unfinished, 0U);
    const HalTables tables = hal_.SnapshotTables();
    Tables entries;
    for (std::size_t kind = 0; kind < kHalKinds; ++kind) {
      entries.push_back(tables.Entries(static_cast<HalKind>(kind)));
    }
    return entries;
  }

  std::string Summarize() const { return Summary(manager_.database()).text(); }
  const DestDatabase& database() const { return manager_.database(); }
  std::size_t restarts_left() const { return restarts_.size(); }

 private:
  void Settle() {
    io_.restart();
    io_.run_for(kPatience);
    ASSERT_TRUE(manager_.finished());
  }

  void RestartAt(std::uint64_t results) {
    if (restarts_.erase(results) == 0) return;
    restarting_ = true;
    hal_.Restart();
  }

  boost::asio::io_context io_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      io_.get_executor()};
  std::set<std::uint64_t> restarts_;
  bool restarting_ = false;
  Manager manager_;
  EmbeddedHal hal_;
};

/// What the HAL holds after an undisturbed start with `site`.
Tables TablesOf(const Site& site) {
  System system;
  system.Start(site);
  return system.ReadTables();
}

Site ReadExample(const std::string& name) {
  auto site = ReadSiteFile(std::string(ZUSKUX_SITES) + '/' + name);
  EXPECT_TRUE(std::holds_alternative<Site>(site)) << name;
  return std::get<Site>(std::move(site));
}

TEST(EmbeddedManagerTest, InstallsAProviderEdge) {
  const Site site = ReadExample("provider_edge.txtpb");
  System system;
  system.Start(site);
  EXPECT_TRUE(Summary(system.database()).complete());
  const Tables tables = system.ReadTables();
  EXPECT_EQ(tables[0].size(), site.vrfs.size());
  EXPECT_EQ(tables[1].size(), site.vlans.size());
  EXPECT_EQ(tables[2].size(), site.hosts.size());
  EXPECT_EQ(tables[3].size(), site.ecmps.size());
  EXPECT_EQ(tables[4].size(), site.mpls.size());
}

TEST(EmbeddedManagerTest, TheHalHoldsWhatTheSiteSays) {
  Site site = SiteOfAllKinds();
  site.mpls[1].label = 3000;
  System system;
  system.Start(site);
  const Tables tables = system.ReadTables();

  encapsulation::HostMessage host;
  ASSERT_TRUE(host.ParseFromString(tables[2].at(21)));
  EXPECT_EQ(host.vlan_dest_id(), 11U);
  encapsulation::MplsMessage circuit;
  ASSERT_TRUE(circuit.ParseFromString(tables[4].at(40)));
  EXPECT_EQ(circuit.vlan_tunnel_dest_id(), 41U);
  encapsulation::MplsMessage tunnel;
  ASSERT_TRUE(tunnel.ParseFromString(tables[4].at(41)));
  EXPECT_EQ(tunnel.vlan_tunnel_dest_id(), 11U);
  ASSERT_EQ(tunnel.labels_size(), 1);
  EXPECT_EQ(tunnel.labels(0), 3000U);
  EXPECT_FALSE(tunnel.has_flag());
  encapsulation::EcmpMessage ecmp;
  ASSERT_TRUE(ecmp.ParseFromString(tables[3].at(30)));
  EXPECT_EQ(ecmp.ShortDebugString(), "db_id: 30 members: 20 members: 40");
  EXPECT_EQ(tables[0].count(7), 1U);
}

TEST(EmbeddedManagerTest, AnUpdateEndsWhereAFreshStartEnds) {
  const Site first = ReadExample("two_uplinks.txtpb");
  const Site second = ReadExample("two_uplinks_v2.txtpb");
  const Tables expected = TablesOf(second);
  System system;
  system.Start(first);
  const Tables start = system.ReadTables();
  EXPECT_FALSE(start == expected);
  system.Apply(second);
  EXPECT_TRUE(system.ReadTables() == expected);
  system.Apply(first);
  EXPECT_TRUE(system.ReadTables() == start);
}

TEST(EmbeddedManagerTest, UnrelatedSitesFollowEachOther) {
  const Site first = GenerateSite(1, 1000);
  const Site second = GenerateSite(2, 1000);
  const Tables expected = TablesOf(second);
  System system;
  system.Start(first);
  system.Apply(second);
  EXPECT_TRUE(system.ReadTables() == expected);
  system.Apply(Site());
  for (const auto& table : system.ReadTables()) EXPECT_TRUE(table.empty());
}

TEST(EmbeddedManagerTest, ASmallQueueChangesNothing) {
  const Site site = GenerateSite(3, 2000);
  const Tables expected = TablesOf(site);
  EmbeddedHalOptions options;
  options.queue_capacity = 1;
  System system(options);
  system.Start(site);
  EXPECT_TRUE(system.ReadTables() == expected);
}

TEST(EmbeddedManagerTest, RestartsAtAnyPointChangeNothing) {
  constexpr std::size_t kObjects = 2000;
  constexpr std::size_t kRestarts = 20;
  const Site site = GenerateSite(4, kObjects);
  const Tables expected = TablesOf(site);

  for (std::uint32_t seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::set<std::uint64_t> restarts;
    // Counts every result, including those of lost requests; there are at least this many.
    while (restarts.size() < kRestarts) restarts.insert(1 + random() % (kObjects * 9 / 10));
    EmbeddedHalOptions options;
    options.queue_capacity = 64;
    System system(options, restarts);
    system.Start(site);
    EXPECT_EQ(system.restarts_left(), 0U);
    EXPECT_TRUE(system.ReadTables() == expected);
    EXPECT_TRUE(Summary(system.database()).complete());
  }
}

TEST(EmbeddedManagerTest, RestartsDuringAnUpdateChangeNothing) {
  const Site first = GenerateSite(5, 1000);
  const Site second = GenerateSite(6, 1000);
  const Tables expected = TablesOf(second);
  std::mt19937 random(1);
  for (int round = 0; round < 10; ++round) {
    const std::uint64_t at = 1001 + random() % 1500;
    SCOPED_TRACE(at);
    System system({}, {at});
    system.Start(first);
    system.Apply(second);
    EXPECT_TRUE(system.ReadTables() == expected);
  }
}

TEST(EmbeddedManagerTest, FullTablesFailWhatDoesNotFit) {
  Site site;
  for (std::uint32_t id = 1; id <= 5; ++id) site.vlans.push_back(VlanEntry(id));
  site.hosts = {HostEntry(20, 3), HostEntry(21, 4)};
  EmbeddedHalOptions options;
  options.table_capacity = 3;
  System system(options);
  system.Start(site);
  EXPECT_EQ(system.Summarize(), "7 objects: 4 installed, 3 failed");

  site.vlans.erase(site.vlans.begin(), site.vlans.begin() + 2);
  system.Apply(site);
  EXPECT_EQ(system.Summarize(), "7 objects: 5 installed, 2 removed");
}

}  // namespace
}  // namespace reference
