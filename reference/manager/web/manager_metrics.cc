#include <array>
#include <chrono>
#include <map>
#include <utility>

#include "reference/hal/hal_code.h"
#include "reference/manager/views/report.h"
#include "reference/manager/web/manager_queries.h"
#include "reference/web/metrics.h"

namespace reference {
namespace {

/// What a scrape shows, copied on the manager's thread.
struct Snapshot {
  std::array<DestDatabase::StandingCounts, kHalKinds> objects{};
  StatusHead head;
  bool connected = false;
  bool in_sync = false;
  bool settled = false;
  ManagerQueues queues;
  ManagerCounters counters;
  std::uint64_t refused = 0;
  std::uint64_t audits = 0;
  std::uint64_t audits_with_differences = 0;
};

class MetricsQuery : public Query {
 public:
  explicit MetricsQuery(WatchedManager manager) : manager_(std::move(manager)) {}

  bool Step() override {
    Manager& manager = *manager_.manager;
    for (const HalKind kind : kAllHalKinds) {
      snapshot_.objects.at(static_cast<std::size_t>(kind)) = manager.database().counts(kind);
    }
    snapshot_.head = manager_.head();
    snapshot_.connected = manager.connected();
    snapshot_.in_sync = manager.in_sync();
    snapshot_.settled = manager.settled();
    snapshot_.queues = manager.queues();
    snapshot_.counters = manager.counters();
    snapshot_.refused = manager.refused();
    snapshot_.audits = manager.audits();
    snapshot_.audits_with_differences = manager.audits_with_differences();
    return true;
  }

  QueryResult Finish() override {
    Metrics metrics;
    AddObjects(&metrics);
    AddConnection(&metrics);
    AddReinstalls(&metrics);
    AddRequests(&metrics);
    metrics.AddProcess();
    return metrics.Response();
  }

 private:
  void AddObjects(Metrics* metrics) const {
    auto objects =
        metrics->Gauge("zuskux_manager_objects", "Objects of the site by kind and state.");
    for (const HalKind kind : kAllHalKinds) {
      for (std::size_t i = 0; i < kStandings; ++i) {
        objects.Add(static_cast<double>(snapshot_.objects.at(static_cast<std::size_t>(kind)).at(i)),
                    {{"kind", std::string(HalKindName(kind))},
                     {"state", std::string(StandingName(static_cast<Standing>(i)))}});
      }
    }
    metrics
        ->Gauge("zuskux_manager_settled",
                "1 if the HAL holds everything that the site wants, else 0.")
        .Add(snapshot_.settled ? 1 : 0);
  }

  void AddConnection(Metrics* metrics) const {
    metrics->Gauge("zuskux_manager_connected", "1 if there is a connection to the HAL, else 0.")
        .Add(snapshot_.connected ? 1 : 0);
    metrics
        ->Gauge("zuskux_manager_connection_changed_timestamp_seconds",
                "When the connection last came up or went down, in seconds since the epoch.")
        .Add(Timestamp(snapshot_.head.connection_changed));
    metrics
        ->Gauge("zuskux_manager_in_sync",
                "1 if the HAL confirmed that it holds what it acknowledged, else 0.")
        .Add(snapshot_.in_sync ? 1 : 0);
    metrics
        ->Gauge("zuskux_manager_last_in_sync_timestamp_seconds",
                "When both sides last agreed, in seconds since the epoch; 0 for never.")
        .Add(snapshot_.head.in_sync_at ? Timestamp(*snapshot_.head.in_sync_at) : 0);
  }

  void AddReinstalls(Metrics* metrics) const {
    const ReinstallStatus& reinstall = snapshot_.head.reinstall;
    metrics
        ->Counter("zuskux_manager_reinstalls_total",
                  "Reinstalls of everything that were sent to the end; the start is the first.")
        .Add(static_cast<double>(snapshot_.counters.reinstalls));
    metrics->Gauge("zuskux_manager_reinstall_running", "1 while a reinstall runs, else 0.")
        .Add(reinstall.started ? 1 : 0);
    metrics
        ->Gauge("zuskux_manager_reinstall_duration_seconds",
                "How long the last reinstall took; 0 before the first one has ended.")
        .Add(reinstall.last ? std::chrono::duration<double>(reinstall.last->duration).count() : 0);
  }

  void AddRequests(Metrics* metrics) const {
    const HalConnectionCounters hal = manager_.hal->counters();
    const auto counter = [metrics](const char* name, const char* help, std::uint64_t value) {
      metrics->Counter(name, help).Add(static_cast<double>(value));
    };
    counter("zuskux_manager_requests_total", "Requests to the HAL, refused ones included.",
            hal.requests);
    auto results = metrics->Counter("zuskux_manager_results_total",
                                    "Outcomes of requests for objects of the site, by code.");
    // An outcome that has not come yet is a 0, not a gap.
    std::map<HalReturnCode, std::uint64_t> outcomes = snapshot_.counters.results;
    outcomes[kHalSuccess];
    for (const auto& [code, count] : outcomes) {
      results.Add(static_cast<double>(count),
                  {{"code", std::to_string(static_cast<unsigned>(code))},
                   {"meaning", MakeErrorCode(code).message()}});
    }
    counter("zuskux_manager_refused_total", "Requests that the HAL refused.", snapshot_.refused);
    counter("zuskux_manager_retries_total",
            "Requests sent again because their outcome was no verdict on the object.",
            snapshot_.counters.retries);
    counter("zuskux_manager_late_results_total",
            "Results of an earlier HAL server, which were dropped.", hal.late_results);
    counter("zuskux_manager_servers_found_total",
            "How often a HAL server was found; the first time is the start.", hal.servers_found);
    counter("zuskux_manager_audits_total", "Audits of the HAL's tables that were completed.",
            snapshot_.audits);
    counter("zuskux_manager_audits_with_differences_total",
            "Audits that found the HAL's tables to differ from what it acknowledged.",
            snapshot_.audits_with_differences);
    AddQueues(hal, metrics);
    metrics->Stages("zuskux_manager_stage_duration_seconds",
                    "How long requests were in each stage: the queue, the wire, the HAL.",
                    manager_.hal->latencies());
  }

  void AddQueues(const HalConnectionCounters& hal, Metrics* metrics) const {
    const std::array<std::pair<const char*, QueueDepth>, 4> queues = {
        {{"due", snapshot_.queues.due},
         {"outstanding", snapshot_.queues.outstanding},
         {"inbox", snapshot_.queues.inbox},
         {"hal_client", {hal.queued, hal.queued_peak}}}};
    auto lengths = metrics->Gauge("zuskux_manager_queue_length", "Entries in each queue.");
    for (const auto& [name, depth] : queues) {
      lengths.Add(static_cast<double>(depth.now), {{"queue", name}});
    }
    auto peaks = metrics->Gauge("zuskux_manager_queue_length_peak",
                                "The most entries that each queue had since the start.");
    for (const auto& [name, depth] : queues) {
      peaks.Add(static_cast<double>(depth.peak), {{"queue", name}});
    }
    metrics
        ->Gauge("zuskux_manager_unfinished_requests",
                "Requests without an outcome yet, on the way or in a queue of the HAL client.")
        .Add(static_cast<double>(hal.unfinished));
  }

  const WatchedManager manager_;
  Snapshot snapshot_;
};

}  // namespace

std::shared_ptr<Query> AskMetrics(const WatchedManager& manager) {
  return std::make_shared<MetricsQuery>(manager);
}

}  // namespace reference
