// Whatever the sequence of sites and its timing, the HAL finally holds what the last site alone
// would give, although its tables have no entry to spare.

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "reference/manager/engine/manager.h"
#include "reference/manager/views/report.h"
#include "reference/site/generate_site.h"
#include "tests/manager/sites.h"
#include "tests/manager/table_hal.h"

namespace reference {
namespace {

constexpr std::size_t kAll = 1'000'000;

/// The manager, one at a time, and its HAL, on the test's thread.
class System {
 public:
  explicit System(const Site& site) : manager_(&io_, Events()) {
    manager_.Start(&hal_);
    manager_.Apply(site);
    hal_.FindServer();
  }

  TableHal& hal() { return hal_; }
  Manager& manager() { return manager_; }

  /// The HAL carries out `steps` requests. The manager reacts to each result immediately or later.
  void Run(std::size_t steps) {
    Work();
    hal_.CarryOut(steps);
  }

  /// Runs until nothing is left to do. If everything is in order then, an audit says so too.
  void Finish() {
    for (int round = 0; round < 100; ++round) {
      Work();
      if (hal_.CarryOut(kAll) == 0) {
        if (manager_.settled()) Audit();
        return;
      }
    }
    ADD_FAILURE() << "the manager never finishes";
  }

 private:
  ManagerEvents Events() {
    ManagerEvents events;
    events.audited = [this](const std::string& differences, bool /*reinstalls*/) {
      ++audits_;
      EXPECT_EQ(differences, "");
    };
    return events;
  }

  void Audit() {
    const int before = audits_;
    manager_.Audit();
    Work();
    EXPECT_EQ(audits_, before + 1);
  }

  void Work() {
    io_.restart();
    io_.poll();
  }

  boost::asio::io_context io_;
  int audits_ = 0;
  Manager manager_;
  TableHal hal_;
};

TableEntries TablesOf(const Site& site) {
  System system(site);
  system.Finish();
  EXPECT_TRUE(system.manager().settled());
  EXPECT_EQ(system.manager().refused(), 0U) << "a clean install, referenced objects first";
  return system.hal().tables().Entries();
}

std::string Report(const Manager& manager) {
  std::ostringstream text;
  WriteTable(manager.database(), &text);
  return text.str();
}

Capacities SizesOf(const Site& site) {
  std::set<std::uint32_t> numbers;
  for (const SiteVrf& vrf : site.vrfs) numbers.insert(vrf.vrf_id);
  return {numbers.size(), site.vlans.size(), site.hosts.size(), site.ecmps.size(),
          site.mpls.size()};
}

Capacities LargerOf(Capacities a, const Capacities& b) {
  for (std::size_t kind = 0; kind < kHalKinds; ++kind)
    a.at(kind) = std::max(a.at(kind), b.at(kind));
  return a;
}

/// Random sites over few ids, each of which may be of a different kind in each site.
class Sites {
 public:
  explicit Sites(std::uint32_t seed) : random_(seed) {}

  std::uint32_t Below(std::uint32_t limit) {
    return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(random_);
  }

  Site Next() {
    Site site;
    for (std::uint32_t id = 1; id <= 3; ++id) {
      if (const std::uint32_t number = Below(5)) site.vrfs.push_back(VrfEntry(id, number));
    }
    std::vector<std::uint32_t> hosts;
    std::vector<std::uint32_t> tunnels;
    std::vector<std::uint32_t> circuits;
    std::vector<std::uint32_t> groups;
    for (std::uint32_t id = 1; id <= 12; ++id) {
      switch (Below(6)) {
        case 1:
          site.vlans.push_back(VlanEntry(id, 1500 + Below(2)));
          break;
        case 2:
          hosts.push_back(id);
          break;
        case 3:
          tunnels.push_back(id);
          break;
        case 4:
          circuits.push_back(id);
          break;
        case 5:
          groups.push_back(id);
          break;
        default:
          break;
      }
    }
    if (site.vlans.empty()) return site;
    for (const std::uint32_t id : hosts) site.hosts.push_back(HostEntry(id, OneOf(site.vlans)));
    for (const std::uint32_t id : tunnels) {
      site.mpls.push_back(TunnelEntry(id, OneOf(site.vlans), Neighbor(site)));
    }
    const std::vector<SiteMpls> rides = site.mpls;
    for (const std::uint32_t id : circuits) {
      if (!rides.empty()) site.mpls.push_back(CircuitEntry(id, OneOf(rides), Neighbor(site)));
    }
    for (const std::uint32_t id : groups) site.ecmps.push_back(EcmpEntry(id, Members(site)));
    return site;
  }

 private:
  template <typename Entry>
  std::uint32_t OneOf(const std::vector<Entry>& entries) {
    return entries[Below(static_cast<std::uint32_t>(entries.size()))].id;
  }

  // May be 0, for none.
  std::uint32_t Neighbor(const Site& site) {
    return site.hosts.empty() || Below(3) == 0 ? 0 : OneOf(site.hosts);
  }

  std::vector<std::uint32_t> Members(const Site& site) {
    std::vector<std::uint32_t> members;
    for (std::uint32_t left = Below(4); left > 0; --left) {
      const std::uint32_t kind = Below(3);
      if (kind == 0) members.push_back(OneOf(site.vlans));
      if (kind == 1 && !site.hosts.empty()) members.push_back(OneOf(site.hosts));
      if (kind == 2 && !site.mpls.empty()) members.push_back(OneOf(site.mpls));
    }
    return members;
  }

  std::mt19937 random_;
};

class SiteSequenceTest : public testing::TestWithParam<std::uint32_t> {
 protected:
  /// Lets `play` change the site of a system many times, and checks that the HAL ends up with what
  /// the last site alone gives. `play` returns that site.
  static void CheckEnds(const std::function<Site(System*, Sites*, Site)>& play) {
    constexpr std::uint32_t kSequencesEach = 1000;
    for (std::uint32_t i = 0; i < kSequencesEach; ++i) {
      const std::uint32_t seed = GetParam() * kSequencesEach + i;
      Sites sites(seed);
      Site site = sites.Next();
      TableEntries tables;
      {
        System system(site);
        site = play(&system, &sites, std::move(site));
        system.Finish();
        ASSERT_TRUE(system.manager().settled()) << "seed " << seed << '\n'
                                                << Report(system.manager());
        tables = system.hal().tables().Entries();
      }
      ASSERT_TRUE(tables == TablesOf(site)) << "seed " << seed;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(TenThousand, SiteSequenceTest, testing::Range(0U, 10U));

// Each site is installed before the next one arrives.
TEST_P(SiteSequenceTest, OneAfterTheOther) {
  CheckEnds([](System* system, Sites* sites, Site site) {
    for (std::uint32_t left = 1 + sites->Below(3); left > 0; --left) {
      system->Finish();
      const Capacities before = SizesOf(site);
      site = sites->Next();
      system->hal().SetCapacities(LargerOf(before, SizesOf(site)));
      system->manager().Apply(site);
    }
    return site;
  });
}

// Sites arrive at any moment. Connections end at any moment too, with servers that forget their
// tables or keep them.
TEST_P(SiteSequenceTest, AtAnyMoment) {
  CheckEnds([](System* system, Sites* sites, Site site) {
    Capacities capacities = SizesOf(site);
    for (std::uint32_t left = 1 + sites->Below(8); left > 0; --left) {
      system->hal().SetCapacities(capacities);
      system->Run(sites->Below(12));
      const std::uint32_t event = sites->Below(5);
      if (event < 3) {
        site = sites->Next();
        capacities = LargerOf(capacities, SizesOf(site));
        system->manager().Apply(site);
      } else {
        system->hal().LoseServer(event == 3);
        if (sites->Below(2) == 0) system->Run(0);
        system->hal().FindServer();
      }
    }
    system->hal().SetCapacities(capacities);
    return site;
  });
}

TEST(CleanInstallTest, HasNoRefusal) { TablesOf(GenerateSite(3, 1000)); }

// Its table was full of entries that the site does not have; the end of the reinstall removes them.
TEST(ReinstallRoomTest, ComesWithTheEndOfTheReinstall) {
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  site.vlans = {VlanEntry(10)};
  System system(site);
  system.hal().SetCapacities(SizesOf(site));
  system.Finish();
  system.hal().LoseServer(false);
  site.vrfs = {VrfEntry(2, 8)};
  site.vlans = {VlanEntry(11)};
  system.manager().Apply(site);
  system.hal().FindServer();
  system.Finish();
  EXPECT_TRUE(system.manager().settled()) << Report(system.manager());
  EXPECT_EQ(system.manager().refused(), 2U);
}

}  // namespace
}  // namespace reference
