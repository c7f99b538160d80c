#include "reference/manager/views/status.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "reference/manager/views/report.h"
#include "reference/text/hex.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;

Json ObjectsAsJson(const DestDatabase& database) {
  Json kinds;
  for (const HalKind kind : kAllHalKinds) {
    Json& standings = kinds[std::string(HalKindName(kind))];
    for (std::size_t standing = 0; standing < kStandings; ++standing) {
      const auto name = StandingName(static_cast<Standing>(standing));
      standings[std::string(name)] = database.counts(kind).at(standing);
    }
  }
  return kinds;
}

Json DepthAsJson(const QueueDepth& depth) { return {{"now", depth.now}, {"peak", depth.peak}}; }

Json StageAsJson(const StageLatency& stage) {
  return {{"count", stage.count},
          {"p50_ns", stage.p50.count()},
          {"p90_ns", stage.p90.count()},
          {"p99_ns", stage.p99.count()},
          {"max_ns", stage.max.count()}};
}

using Cells = std::vector<std::string>;

// Left-aligns the first column and right-aligns the others.
void WriteColumns(const std::vector<Cells>& rows, std::ostream* out) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Cells& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  *out << '\n';
  for (const Cells& row : rows) {
    *out << std::left << std::setw(static_cast<int>(widths[0])) << row[0] << std::right;
    for (std::size_t i = 1; i < row.size(); ++i) {
      *out << std::setw(static_cast<int>(widths[i] + 2)) << row[i];
    }
    *out << '\n';
  }
}

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

std::string Text(const Json& text) { return Printable(text.get<std::string>()); }

std::string Number(const Json& number) { return std::to_string(number.get<std::uint64_t>()); }

std::string Microseconds(const Json& nanoseconds) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << nanoseconds.get<double>() / 1000;
  return text.str();
}

const char* Condition(const Json& json) {
  if (json.at("settled").get<bool>()) return "settled";
  if (!json.at("connected").get<bool>()) return "no connection to the HAL";
  if (!json.at("finished").get<bool>()) return "at work";
  return json.at("in_sync").get<bool>() ? "some objects failed" : "NOT in sync with the HAL";
}

void WriteObjects(const Json& objects, std::ostream* out) {
  std::vector<Cells> rows = {{"KIND"}};
  for (const auto& [name, count] : objects.front().items()) {
    rows[0].push_back(Upper(Printable(name)));
  }
  for (const auto& [kind, standings] : objects.items()) {
    rows.push_back({Printable(kind)});
    for (const Json& count : standings) rows.back().push_back(Number(count));
  }
  WriteColumns(rows, out);
}

void WriteQueues(const Json& queues, std::ostream* out) {
  std::vector<Cells> rows = {{"QUEUE", "NOW", "PEAK"}};
  for (const auto& [name, depth] : queues.items()) {
    rows.push_back({Printable(name), Number(depth.at("now")), Number(depth.at("peak"))});
  }
  WriteColumns(rows, out);
}

void WriteStages(const Json& stages, std::ostream* out) {
  std::vector<Cells> rows = {{"STAGE", "COUNT", "P50 us", "P90 us", "P99 us", "MAX us"}};
  for (const auto& [name, stage] : stages.items()) {
    rows.push_back({Printable(name), Number(stage.at("count")), Microseconds(stage.at("p50_ns")),
                    Microseconds(stage.at("p90_ns")), Microseconds(stage.at("p99_ns")),
                    Microseconds(stage.at("max_ns"))});
  }
  WriteColumns(rows, out);
}

void WriteConnection(const Json& connection, std::ostream* out) {
  const bool up = connection.at("up").get<bool>();
  *out << "connection " << (up ? "up" : "down") << " since " << Text(connection.at("since"));
  if (up) {
    *out << ", server " << Text(connection.at("server")) << ", generation "
         << Text(connection.at("generation"));
  }
  const std::string in_sync = Text(connection.at("last_in_sync"));
  *out << ", last in sync " << (in_sync.empty() ? "never" : in_sync) << '\n';
}

// Nothing before the first audit.
void WriteAudits(const Json& audits, std::ostream* out) {
  if (audits.at("count") == 0) return;
  *out << "audits " << Number(audits.at("count")) << ", last " << Text(audits.at("last"))
       << ", with differences " << Number(audits.at("with_differences"));
  if (audits.at("with_differences") != 0) {
    *out << ", the last of these " << Text(audits.at("last_difference")) << ": "
         << Text(audits.at("last_difference_text"));
  }
  *out << '\n';
}

void WriteBrief(const Json& json, std::ostream* out) {
  const Json& hal = json.at("hal");
  *out << Text(json.at("program")) << ", up " << std::fixed << std::setprecision(1)
       << json.at("uptime_ms").get<double>() / 1000 << " s, " << Condition(json) << '\n'
       << "site " << Text(json.at("site")) << '\n'
       << "hal " << Text(hal.at("name")) << ", restarts " << Number(hal.at("restarts"))
       << ", requests " << Number(hal.at("requests")) << ", results " << Number(hal.at("results"))
       << ", refused " << Number(hal.at("refused")) << ", late results dropped "
       << Number(hal.at("late_results_dropped")) << ", unfinished " << Number(hal.at("unfinished"))
       << '\n';
  WriteConnection(json.at("connection"), out);
  WriteAudits(json.at("audits"), out);
  const Json& refused = json.at("refused_reload");
  if (!refused.is_null()) {
    *out << "last reload refused " << Text(refused.at("time")) << ": " << Text(refused.at("reason"))
         << '\n';
  }
  WriteObjects(json.at("objects"), out);
}

// Calls `show`, which reads the JSON of a status.
template <typename Show>
void ShowStatus(const Show& show) {
  try {
    show();
  } catch (const Json::exception& error) {
    throw std::runtime_error(std::string("the answer is not a manager status: ") + error.what());
  }
}

Json ReinstallAsJson(const ReinstallStatus& reinstall) {
  Json json = {{"running", reinstall.started.has_value()},
               {"done", reinstall.done},
               {"total", reinstall.total},
               {"started_ms", nullptr},
               {"last", nullptr}};
  if (reinstall.started) json["started_ms"] = Milliseconds(*reinstall.started);
  if (reinstall.last) {
    const std::chrono::duration<double, std::milli> duration = reinstall.last->duration;
    json["last"] = {{"objects", reinstall.last->objects},
                    {"duration_ms", duration.count()},
                    {"ended_ms", Milliseconds(reinstall.last->time)}};
  }
  return json;
}

}  // namespace

std::int64_t Milliseconds(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

Json StatusAsJson(const StatusHead& head, Manager* manager, const HalConnection& hal) {
  const HalConnectionCounters counters = hal.counters();
  const HalLatencies latencies = hal.latencies();
  const ManagerQueues queues = manager->queues();
  Json json;
  json["program"] = "zuskux-manager " ZUSKUX_VERSION;
  json["now_ms"] = Milliseconds(std::chrono::system_clock::now());
  json["started_ms"] = Milliseconds(head.started);
  json["uptime_ms"] = head.uptime.count();
  json["site"] = head.site;
  json["settled"] = manager->settled();
  json["finished"] = manager->finished();
  json["connected"] = manager->connected();
  json["in_sync"] = manager->in_sync();
  const FoundServer server = hal.server();
  json["connection"] = {{"up", manager->connected()},
                        {"since", head.connection_since},
                        {"since_ms", Milliseconds(head.connection_changed)},
                        {"server", server.name},
                        {"generation", Hex(server.generation)},
                        {"last_in_sync", head.last_in_sync},
                        {"last_in_sync_ms", nullptr}};
  if (head.in_sync_at) json["connection"]["last_in_sync_ms"] = Milliseconds(*head.in_sync_at);
  json["audits"] = {{"count", manager->audits()},
                    {"last", head.last_audit},
                    {"with_differences", manager->audits_with_differences()},
                    {"last_difference", head.last_difference},
                    {"last_difference_text", head.last_difference_text}};
  if (head.refused_reload.empty()) {
    json["refused_reload"] = nullptr;
  } else {
    json["refused_reload"] = {{"time", head.refused_reload},
                              {"reason", head.refused_reload_reason}};
  }
  json["reinstall"] = ReinstallAsJson(head.reinstall);
  json["summary"] = Summary(manager->database()).json();
  json["objects"] = ObjectsAsJson(manager->database());
  json["queues"] = {{"due", DepthAsJson(queues.due)},
                    {"outstanding", DepthAsJson(queues.outstanding)},
                    {"inbox", DepthAsJson(queues.inbox)},
                    {"hal client", DepthAsJson({counters.queued, counters.queued_peak})}};
  // The first server found does not count as a restart.
  const std::uint64_t restarts = counters.servers_found == 0 ? 0 : counters.servers_found - 1;
  json["hal"] = {{"name", head.hal},
                 {"restarts", restarts},
                 {"requests", counters.requests},
                 {"results", counters.results},
                 {"refused", manager->refused()},
                 {"late_results_dropped", counters.late_results},
                 {"unfinished", counters.unfinished}};
  json["stages"] = {{"queue", StageAsJson(latencies.queue)},
                    {"wire", StageAsJson(latencies.wire)},
                    {"hal", StageAsJson(latencies.hal)}};
  return json;
}

void WriteStatus(const Json& json, std::ostream* out) {
  ShowStatus([&] {
    WriteBrief(json, out);
    WriteQueues(json.at("queues"), out);
    WriteStages(json.at("stages"), out);
  });
}

void WriteBriefStatus(const Json& json, std::ostream* out) {
  ShowStatus([&] { WriteBrief(json, out); });
}

std::string StatusLine(const Json& json) {
  std::string line;
  ShowStatus([&] { line = Condition(json) + (": " + Summary(json.at("summary")).text()); });
  return line;
}

}  // namespace reference
