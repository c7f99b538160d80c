// Plays any sequence of site changes, requests, results, refusals, restarts and disconnects against
// the manager and the library. Every request ends in one notification, no object has two requests
// in flight, and once the HAL has come back, its tables equal those of an undisturbed run.
//
// Input: steps, one byte each, some followed by operands; see `Play`.

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <deque>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_tables.h"
#include "reference/manager/engine/manager.h"
#include "reference/site/site.h"
#include "tests/fuzz/fuzz_input.h"

namespace reference {
namespace {

using fuzz::Check;
using fuzz::Input;
using Tables = std::vector<std::map<std::uint32_t, std::string>>;

constexpr int kMaxSteps = 300;
constexpr int kMaxRounds = 1000;
constexpr std::size_t kAmpleRoom = 1000;

// A HAL that carries out its requests on demand, on the caller's thread.
class SteppedHal : public HalConnection {
 public:
  void Start(HalReports reports) override { reports_ = std::move(reports); }
  bool HasRoom() override {
    const bool room = queue_.size() < room_;
    room_wanted_ = room_wanted_ || !room;
    return room;
  }
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

  bool found() const { return found_; }
  bool idle() const { return queue_.empty() && ended_.empty(); }
  std::uint64_t requests() const { return requests_; }
  std::uint64_t results() const { return results_; }

  void SetRoom(std::size_t room) {
    room_ = room;
    if (queue_.size() < room_ && std::exchange(room_wanted_, false)) reports_.room();
  }

  /// Loses the server. If it `forgets`, it has restarted with empty tables.
  void Lose(bool forgets) {
    for (Task& task : queue_) {
      if (task.mark == nullptr) End(std::move(task.request), kHalServerLost);
    }
    queue_.clear();
    if (forgets) tables_.Clear();
    if (!std::exchange(found_, false)) return;
    ReportEnded();
    reports_.server_lost();
  }

  /// Every request sent to the previous server has had its result.
  void Find() {
    ReportEnded();
    found_ = true;
    reports_.server_found();
  }

  void ReportEnded() {
    for (auto& [request, code] : std::exchange(ended_, {})) Report(request, code);
  }

  /// Carries out the oldest request and reports its result, or another one instead.
  void CarryOut() { CarryOut(nullptr, true); }
  void CarryOut(const HalReturnCode* instead, bool applies) {
    ReportEnded();
    if (queue_.empty()) return;
    const Task task = std::move(queue_.front());
    queue_.pop_front();
    if (task.mark != nullptr) {
      (tables_.*task.mark)();
      if (task.mark == &HalTables::EndReinstall) reports_.reinstall_ended(true);
      return;
    }
    HalReturnCode code = kHalSuccess;
    if (applies) code = tables_.Apply(task.request);
    if (instead != nullptr) code = *instead;
    Report(task.request, code);
  }

  Tables Entries() const {
    Tables entries;
    for (std::size_t kind = 0; kind < kHalKinds; ++kind) {
      entries.push_back(tables_.Entries(static_cast<HalKind>(kind)));
    }
    return entries;
  }

 protected:
  void SubmitBeginReinstall() override { Mark(&HalTables::BeginReinstall); }
  void SubmitEndReinstall() override { Mark(&HalTables::EndReinstall); }
  HalReturnCode Submit(HalRequest* request) override {
    if (HasResult(request->operation)) ++requests_;
    const bool first = under_way_.insert({KindOf(request->operation), request->id}).second;
    Check(first, "two requests in flight for one object");
    if (!found_) {
      End(std::move(*request), kHalNoServer);
      return kHalNoServer;
    }
    if (queue_.size() >= room_) {
      End(std::move(*request), kHalQueueFull);
      return kHalQueueFull;
    }
    queue_.push_back({std::move(*request), nullptr});
    return kHalSuccess;
  }

 private:
  struct Task {
    HalRequest request;
    // Null for a request.
    void (HalTables::*mark)();
  };

  void Mark(void (HalTables::*mark)()) {
    if (found_) queue_.push_back({{}, mark});
  }

  void End(HalRequest request, HalReturnCode code) {
    ended_.emplace_back(std::move(request), code);
  }

  void Report(const HalRequest& request, HalReturnCode code) {
    Check(under_way_.erase({KindOf(request.operation), request.id}) == 1, "a second result");
    if (HasResult(request.operation)) {
      ++results_;
      ReportResult(reports_.results, request, code);
    } else {
      reports_.vrf_result(request, code);
    }
    if (queue_.size() < room_ && std::exchange(room_wanted_, false)) reports_.room();
  }

  HalReports reports_;
  HalTables tables_{kAmpleRoom};
  std::deque<Task> queue_;
  std::vector<std::pair<HalRequest, HalReturnCode>> ended_;
  std::set<std::pair<HalKind, std::uint32_t>> under_way_;
  bool found_ = false;
  std::size_t room_ = kAmpleRoom;
  bool room_wanted_ = false;
  std::uint64_t requests_ = 0;
  std::uint64_t results_ = 0;
};

/// The manager and its HAL. Only one exists at a time.
class System {
 public:
  System() { manager_.Start(&hal_); }

  SteppedHal& hal() { return hal_; }
  void Apply(const Site& site) { manager_.Apply(site); }

  /// Lets the manager do everything it can. Then every result has been notified exactly once.
  void Work() {
    io_.restart();
    io_.poll();
    Check(notified_ == hal_.results(), "results and notifications differ in number");
  }

  /// Lets the HAL work normally until nothing is left to do.
  void Settle() {
    hal_.SetRoom(kAmpleRoom);
    Work();
    for (int round = 0; !hal_.idle(); ++round) {
      Check(round < kMaxRounds, "the manager never settles");
      while (!hal_.idle()) hal_.CarryOut();
      Work();
    }
    Check(manager_.finished(), "nothing is left to do, but the manager has not finished");
    Check(manager_.in_sync(), "the reinstall has ended, but the manager is not in sync");
    Check(hal_.requests() == hal_.results(), "a request without a result");
  }

 private:
  boost::asio::io_context io_{1};
  std::uint64_t notified_ = 0;
  Manager manager_{&io_, {{}, {}, {}, [this](std::uint64_t results) { notified_ = results; }}};
  SteppedHal hal_;
};

// Sites of few objects, so that changes collide. An id may be of a different kind in each site.

constexpr std::uint32_t kIds = 8;

template <typename Entry>
Entry Named(std::uint32_t id, Input* input) {
  Entry entry;
  entry.id = id;
  entry.name = "object-" + std::to_string(id);
  entry.lim_id = input->Byte() & 3U;
  return entry;
}

// The id of one of `entries`; 0 if there are none.
template <typename Entry>
std::uint32_t OneOf(const std::vector<Entry>& entries, Input* input) {
  const std::size_t choice = input->Byte();
  return entries.empty() ? 0 : entries[choice % entries.size()].id;
}

void AddVlan(std::uint32_t id, Input* input, Site* site) {
  auto vlan = Named<SiteVlan>(id, input);
  vlan.mtu = input->Byte();
  site->vlans.push_back(std::move(vlan));
}

void AddHost(std::uint32_t id, Input* input, Site* site) {
  auto host = Named<SiteHost>(id, input);
  host.vlan = OneOf(site->vlans, input);
  site->hosts.push_back(std::move(host));
}

void AddMpls(std::uint32_t id, Input* input, Site* site) {
  auto mpls = Named<SiteMpls>(id, input);
  std::vector<SiteMpls> tunnels;
  std::copy_if(site->mpls.begin(), site->mpls.end(), std::back_inserter(tunnels),
               [](const SiteMpls& other) { return !other.vc_label; });
  const bool circuit = input->Bool() && !tunnels.empty();
  // The HAL refuses the last of these.
  static constexpr std::array<std::uint32_t, 4> kLabels = {16, 17, 18, 1U << 20};
  mpls.label = kLabels.at(input->Byte() & 3U);
  mpls.neighbor = OneOf(site->hosts, input);
  if (circuit) {
    mpls.vc_label = 16;
    mpls.tunnel = OneOf(tunnels, input);
  } else {
    mpls.vlan = OneOf(site->vlans, input);
  }
  site->mpls.push_back(std::move(mpls));
}

void AddEcmp(std::uint32_t id, Input* input, Site* site) {
  SiteEcmp ecmp{id, "object-" + std::to_string(id), {}};
  for (int count = input->Byte() & 3; count > 0; --count) {
    const std::array<std::uint32_t, 3> choices = {
        OneOf(site->vlans, input), OneOf(site->hosts, input), OneOf(site->mpls, input)};
    const std::uint32_t member = choices.at(input->Byte() % choices.size());
    if (member != 0) ecmp.members.push_back(member);
  }
  site->ecmps.push_back(std::move(ecmp));
}

// A site that a file could describe: every object that it refers to exists.
Site SiteOf(Input* input) {
  Site site;
  for (std::uint32_t id = 1; id <= 3; ++id) {
    const std::uint32_t vrf_id = input->Byte() & 3U;
    if (vrf_id != 0) site.vrfs.push_back({id, "vrf-" + std::to_string(id), vrf_id});
  }
  std::vector<std::pair<int, std::uint32_t>> kinds;
  for (std::uint32_t id = 1; id <= kIds; ++id) kinds.emplace_back(input->Byte() % 5, id);
  std::sort(kinds.begin(), kinds.end());
  for (const auto& [kind, id] : kinds) {
    if (kind == 1) AddVlan(id, input, &site);
    if (kind == 2) AddHost(id, input, &site);
    if (kind == 3) AddMpls(id, input, &site);
    if (kind == 4) AddEcmp(id, input, &site);
  }
  return site;
}

HalReturnCode RefusalOf(Input* input) {
  static constexpr std::array kCodes = {
      kHalMissingReference, kHalLabelOutOfRange, kHalExists,   kHalNotFound,      kHalTableFull,
      kHalBadRequest,       kHalDeadline,        kHalTooLarge, HalReturnCode{77},
  };
  return kCodes[input->Byte() % kCodes.size()];
}

// Returns the last site.
Site Play(Input* input, System* system) {
  Site site;
  SteppedHal& hal = system->hal();
  for (int step = 0; step < kMaxSteps && !input->empty(); ++step) {
    const std::uint8_t code = input->Byte();
    const int count = 1 + code / 16;
    switch (code % 16) {
      case 0:
      case 1:
        site = SiteOf(input);
        system->Apply(site);
        break;
      case 2:
        hal.Lose(true);
        break;
      case 3:
        hal.Lose(false);
        break;
      case 4:
      case 5:
        if (!hal.found()) hal.Find();
        break;
      case 6:
        hal.ReportEnded();
        break;
      case 7:
        hal.SetRoom(static_cast<std::size_t>(count));
        break;
      case 8: {
        const HalReturnCode refusal = RefusalOf(input);
        hal.CarryOut(&refusal, false);
        break;
      }
      case 9:
        // The request was carried out, but its answer came too late.
        hal.CarryOut(&kHalDeadline, true);
        break;
      case 10:
      case 11:
        for (int done = 0; done < count; ++done) hal.CarryOut();
        break;
      default:
        system->Work();
    }
  }
  return site;
}

Tables Undisturbed(const Site& site) {
  System system;
  system.Apply(site);
  system.hal().Find();
  system.Settle();
  return system.hal().Entries();
}

void Run(Input* input) {
  Site site;
  Tables tables;
  {
    System system;
    const bool forgets = input->Bool();
    site = Play(input, &system);
    // One last disconnect; after this the server stays.
    system.hal().Lose(forgets);
    system.hal().Find();
    system.Settle();
    tables = system.hal().Entries();
  }
  Check(tables == Undisturbed(site), "the tables are not those of an undisturbed run");
}

}  // namespace
}  // namespace reference

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  reference::Run(&input);
  return 0;
}
