#include "reference/server/hal_pages.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "reference/text/hex.h"
#include "reference/text/printable.h"
#include "reference/web/metrics.h"
#include "wire.pb.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;
using std::chrono::system_clock;

constexpr std::size_t kMaxRows = 1000;
constexpr std::size_t kDefaultRows = 100;
constexpr std::size_t kMaxText = 200;
constexpr std::size_t kStep = 256;

std::int64_t Milliseconds(system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

/// What a server says about itself, copied on its thread.
struct Snapshot {
  wire::ServerStatus status;
  bool has_writer = false;
  std::map<HalReturnCode, std::uint64_t> results;
};

/// Takes a snapshot and makes the answer from it.
class SnapshotQuery : public Query {
 public:
  using Finisher = std::function<HttpResponse(const Snapshot& snapshot)>;

  SnapshotQuery(const HalServer* server, Finisher finisher)
      : server_(server), finisher_(std::move(finisher)) {}

  bool Step() override {
    snapshot_ = {server_->Status(), server_->HasWriter(), server_->results()};
    return true;
  }

  QueryResult Finish() override { return finisher_(snapshot_); }

 private:
  const HalServer* const server_;
  const Finisher finisher_;
  Snapshot snapshot_;
};

HttpResponse StatusResponse(const Snapshot& snapshot, system_clock::time_point started) {
  const wire::ServerStatus& status = snapshot.status;
  Json json = {{"program", "zuskux-hal " ZUSKUX_VERSION},
               // A server has a new generation after each start.
               {"instance", Hex(status.generation()).substr(2)},
               {"now_ms", Milliseconds(system_clock::now())},
               {"started_ms", Milliseconds(started)},
               {"uptime_ms", status.uptime_ms()},
               {"generation", Hex(status.generation())},
               {"requests", status.requests()},
               {"connections", status.connections()},
               {"refused_connections", status.refused_connections()},
               {"writer", snapshot.has_writer},
               {"kernel_writes", nullptr},
               {"kernel_differences", nullptr}};
  if (status.has_data_plane_writes()) json["kernel_writes"] = status.data_plane_writes();
  if (status.has_data_plane_differences()) {
    json["kernel_differences"] = status.data_plane_differences();
  }
  for (const wire::KindSummary& kind : status.kinds()) {
    json["tables"][kind.kind()] = {{"count", kind.count()}, {"digest", Hex(kind.digest())}};
  }
  return JsonResponse(std::move(json));
}

HttpResponse MetricsResponse(const Snapshot& snapshot, const HalServerOptions& options) {
  const wire::ServerStatus& status = snapshot.status;
  Metrics metrics;
  auto entries = metrics.Gauge("zuskux_hal_entries", "Entries in each table.");
  for (const wire::KindSummary& kind : status.kinds()) {
    entries.Add(static_cast<double>(kind.count()), {{"kind", kind.kind()}});
  }
  metrics.Gauge("zuskux_hal_table_capacity", "The most entries that fit into each table.")
      .Add(static_cast<double>(options.table_capacity));
  metrics.Gauge("zuskux_hal_manager_connected", "1 while a manager may change the tables, else 0.")
      .Add(snapshot.has_writer ? 1 : 0);
  metrics.Counter("zuskux_hal_requests_total", "Requests received.")
      .Add(static_cast<double>(status.requests()));
  auto results = metrics.Counter("zuskux_hal_results_total", "Results of requests, by code.");
  std::map<HalReturnCode, std::uint64_t> outcomes = snapshot.results;
  // An outcome that has not come yet is a 0, not a gap.
  outcomes[kHalSuccess];
  for (const auto& [code, count] : outcomes) {
    results.Add(static_cast<double>(count), {{"code", std::to_string(static_cast<unsigned>(code))},
                                             {"meaning", MakeErrorCode(code).message()}});
  }
  metrics.Counter("zuskux_hal_connections_total", "Clients accepted, readers included.")
      .Add(static_cast<double>(status.connections()));
  metrics.Counter("zuskux_hal_refused_connections_total", "Clients refused.")
      .Add(static_cast<double>(status.refused_connections()));
  if (status.has_data_plane_writes()) {
    metrics.Counter("zuskux_hal_kernel_writes_total", "Writes to the kernel.")
        .Add(static_cast<double>(status.data_plane_writes()));
  }
  if (status.has_data_plane_differences()) {
    metrics
        .Counter("zuskux_hal_audit_differences_total",
                 "Objects of the kernel that an audit found to differ from the tables.")
        .Add(static_cast<double>(status.data_plane_differences()));
  }
  metrics.AddProcess();
  return metrics.Response();
}

/// A page of the entries, in the order of the tables.
class TablesQuery : public Query {
 public:
  TablesQuery(const HalServer* server, Parameters parameters, const InterfaceNames* interfaces)
      : server_(server), interfaces_(interfaces) {
    const std::string kind = parameters.Text("kind", kMaxText);
    if (!kind.empty()) ReadKind(kind);
    ReadPlace(parameters.Text("after", kMaxText));
    limit_ = parameters.Number("limit", kDefaultRows, 1, kMaxRows);
    parameters.End();
  }

  bool Step() override {
    const HalTables& tables = server_->tables();
    for (std::size_t i = 0; i < kStep; ++i) {
      if (entries_.size() == limit_) return true;
      const auto entry = tables.Next(&cursor_);
      done_ = !entry || (kind_ && entry->kind != *kind_);
      if (done_) return true;
      entries_.push_back({entry->kind, entry->id, std::string(entry->payload)});
    }
    return false;
  }

  QueryResult Finish() override {
    Json json = {{"entries", Json::array()}, {"next", nullptr}};
    for (const Entry& entry : entries_) {
      json["entries"].push_back({{"kind", HalKindName(entry.kind)},
                                 {"id", entry.id},
                                 {"fields", FieldsOf(entry.kind, entry.payload, *interfaces_)}});
    }
    if (!done_) json["next"] = PlaceText();
    return JsonResponse(std::move(json));
  }

 private:
  struct Entry {
    HalKind kind{};
    std::uint32_t id = 0;
    std::string payload;
  };

  void ReadKind(const std::string& name) {
    for (const HalKind kind : kAllHalKinds) {
      if (HalKindName(kind) == name) kind_ = kind;
    }
    if (!kind_) throw HttpError(400, "there is no kind " + Quote(name, kMaxText));
    cursor_.kind = static_cast<std::size_t>(*kind_);
  }

  // "KIND.UNREAD", both as numbers.
  std::string PlaceText() const {
    return std::to_string(cursor_.kind) + '.' + std::to_string(cursor_.unread);
  }

  void ReadPlace(const std::string& text) {
    if (text.empty()) return;
    const char* const end = text.data() + text.size();
    const auto kind = std::from_chars(text.data(), end, cursor_.kind);
    if (kind.ec == std::errc() && kind.ptr != end) {
      static_cast<void>(std::from_chars(kind.ptr + 1, end, cursor_.unread));
    }
    if (text != PlaceText() || cursor_.kind > kHalKinds) {
      throw HttpError(400, "the parameter after must be the next of an earlier page");
    }
  }

  const HalServer* const server_;
  const InterfaceNames* const interfaces_;
  std::optional<HalKind> kind_;
  std::size_t limit_ = 0;
  TableCursor cursor_{};
  bool done_ = false;
  std::vector<Entry> entries_;
};

}  // namespace

HalPages::HalPages(const HalServer* server, HalServerOptions options, InterfaceNames interfaces)
    : server_(server), options_(std::move(options)), interfaces_(std::move(interfaces)) {}

HttpAnswer HalPages::Get(const HttpRequest& request) {
  const std::vector<std::string>& path = request.path;
  const auto is = [&path](std::initializer_list<const char*> parts) {
    return std::equal(path.begin(), path.end(), parts.begin(), parts.end());
  };
  if (is({"api", "tables"})) {
    return std::make_shared<TablesQuery>(server_, Parameters(request), &interfaces_);
  }
  // The others have no parameters.
  const Parameters parameters(request);
  if (path.empty()) {
    parameters.End();
    return JsonResponse({{"paths", {"/metrics", "/api/status", "/api/tables"}}});
  }
  if (is({"api", "status"})) {
    parameters.End();
    return std::make_shared<SnapshotQuery>(server_, [started = started_](const Snapshot& snapshot) {
      return StatusResponse(snapshot, started);
    });
  }
  if (is({"metrics"})) {
    parameters.End();
    return std::make_shared<SnapshotQuery>(
        server_, [this](const Snapshot& snapshot) { return MetricsResponse(snapshot, options_); });
  }
  throw HttpError(404, "there is nothing at this path; / lists the paths");
}

}  // namespace reference
