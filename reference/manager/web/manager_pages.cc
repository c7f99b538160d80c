#include "reference/manager/web/manager_pages.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <utility>

#include "reference/text/hex.h"
#include "reference/web/page_files.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;
using std::chrono::milliseconds;
using std::chrono::system_clock;

// Changes go out together.
constexpr milliseconds kBatchTime{100};
constexpr milliseconds kTick{250};
// A status is sent each so many ticks, or each tick while a reinstall runs.
constexpr int kStatusTicks = 4;
constexpr milliseconds kRateTime{1000};
constexpr std::size_t kMaxRates = 600;

std::string NewInstance() {
  std::random_device random;
  const std::uint64_t high = random();
  return Hex(high << 32U | random()).substr(2);
}

// One line of JSON.
std::string DataOf(Json json) {
  std::string text = JsonResponse(std::move(json)).body;
  text.pop_back();
  return text;
}

}  // namespace

ManagerPages::ManagerPages(WatchedManager manager)
    : manager_(std::move(manager)), instance_(NewInstance()) {}

void ManagerPages::Changed(const Object& object) {
  const Time time = system_clock::now();
  HttpServer* wake = nullptr;
  {
    const MutexLock lock(&mutex_);
    ++last_seq_;
    if (news_.changes.size() == kMaxWaiting) {
      ++news_.lost;
      return;
    }
    news_.changes.push_back({last_seq_, time, RowOf(object)});
    if (!std::exchange(woken_, true)) wake = waker_;
  }
  if (wake == nullptr) return;
  wake->Post([this] { server_->After(kBatchTime, [this] { HandOver(); }); });
}

void ManagerPages::Happened(const std::string& text) {
  HttpServer* wake = nullptr;
  {
    const MutexLock lock(&mutex_);
    if (news_.lines.size() == kMaxWaiting) return;
    news_.lines.push_back({system_clock::now(), text});
    wake = waker_;
  }
  if (wake != nullptr) wake->Post([this] { HandOver(); });
}

void ManagerPages::Start(HttpServer* server) {
  server_ = server;
  {
    const MutexLock lock(&mutex_);
    waker_ = server;
  }
  HandOver();
  RatesTick();
}

void ManagerPages::HandOver() {
  News news;
  {
    const MutexLock lock(&mutex_);
    news = std::exchange(news_, News());
    woken_ = false;
    seq_ = last_seq_;
  }
  for (const Change& change : news.changes) history_.Add(change);
  if (news.lost != 0) history_.Lose(system_clock::now());
  if (server_->followers() != 0) Send(news);
}

void ManagerPages::Send(const News& news) {
  const std::size_t sent = std::min(news.changes.size(), kMaxSent);
  const std::uint64_t missed = news.changes.size() - sent + news.lost;
  std::string text;
  if (missed != 0) text += MissedText(missed);
  if (sent != 0) {
    Json changes = Json::array();
    for (std::size_t i = news.changes.size() - sent; i < news.changes.size(); ++i) {
      changes.push_back(ChangeAsJson(news.changes[i]));
    }
    text += Event("objects", DataOf(std::move(changes)));
  }
  for (const Line& line : news.lines) {
    text += Event("log", DataOf({{"time_ms", Milliseconds(line.time)}, {"text", line.text}}));
  }
  if (text.empty()) return;
  server_->Broadcast({std::make_shared<const std::string>(std::move(text)),
                      news.changes.size() + news.lost + news.lines.size()});
  if (!news.lines.empty()) SendStatus();
}

std::string ManagerPages::Event(const char* name, const std::string& data) const {
  return std::string("event: ") + name + "\nid: " + instance_ + '-' + std::to_string(seq_) +
         "\ndata: " + data + "\n\n";
}

std::string ManagerPages::MissedText(std::uint64_t events) {
  return Event("missed", DataOf({{"count", events}}));
}

EventStream ManagerPages::Follow(const std::string& last_event_id) {
  std::string first = "retry: 1000\n\n";
  first += Event("hello", DataOf({{"instance", instance_},
                                  {"seq", seq_},
                                  {"program", "zuskux-manager " ZUSKUX_VERSION}}));
  // A client that comes back.
  const std::string prefix = instance_ + '-';
  if (last_event_id.compare(0, prefix.size(), prefix) == 0) {
    const std::string seen = last_event_id.substr(prefix.size());
    HttpRequest request;
    request.parameters["id"] = seen;
    const std::uint64_t seq = Parameters(request).Number("id", seq_, 0, UINT64_MAX);
    if (seq < seq_) first += MissedText(seq_ - seq);
  }
  server_->Post([this] { SendStatus(); });
  if (!std::exchange(ticking_, true)) FollowersTick();
  return {std::move(first)};
}

void ManagerPages::SendStatus() {
  if (std::exchange(status_asked_, true)) {
    status_wanted_ = true;
    return;
  }
  server_->Ask(AskStatus(manager_, instance_), [this](const HttpResponse& response) {
    status_asked_ = false;
    if (std::exchange(status_wanted_, false)) SendStatus();
    if (response.status != 200) return;
    reinstalling_ = Json::parse(response.body).at("reinstall").at("running").get<bool>();
    const std::string data = response.body.substr(0, response.body.size() - 1);
    server_->Broadcast({std::make_shared<const std::string>(Event("status", data)), 0});
  });
}

void ManagerPages::FollowersTick() {
  server_->After(kTick, [this] {
    ticking_ = server_->followers() != 0;
    if (!ticking_) return;
    if (++ticks_ % kStatusTicks == 0 || reinstalling_) SendStatus();
    FollowersTick();
  });
}

void ManagerPages::RatesTick() {
  const HalConnectionCounters counters = manager_.hal->counters();
  rates_.push_back({system_clock::now(), counters.requests, counters.results});
  if (rates_.size() > kMaxRates) rates_.pop_front();
  server_->After(kRateTime, [this] { RatesTick(); });
}

HttpResponse ManagerPages::Rates() const {
  Json json = {{"interval_ms", kRateTime.count()}, {"samples", Json::array()}};
  for (const Rate& rate : rates_) {
    json["samples"].push_back({{"time_ms", Milliseconds(rate.time)},
                               {"requests", rate.requests},
                               {"results", rate.results}});
  }
  return JsonResponse(std::move(json));
}

HttpResponse ManagerPages::Changes(const HttpRequest& request) const {
  Parameters parameters(request);
  ChangeHistory::Wanted wanted;
  const std::string key = parameters.Text("key", kMaxText);
  if (!key.empty()) wanted.key = ReadKey(key);
  wanted.standings = ReadStandings(&parameters);
  wanted.before = parameters.Number("before", UINT64_MAX, 0, UINT64_MAX);
  wanted.limit = parameters.Number("limit", kDefaultRows, 1, kMaxRows);
  parameters.End();
  const ChangeHistory::Page page = history_.Find(wanted);
  Json json = {{"changes", Json::array()}, {"next", nullptr}};
  for (const Change* const change : page.changes) json["changes"].push_back(ChangeAsJson(*change));
  if (page.more) json["next"] = page.changes.back()->seq;
  json["since_ms"] = Milliseconds(page.since);
  return JsonResponse(std::move(json));
}

HttpAnswer ManagerPages::Get(const HttpRequest& request) {
  const std::vector<std::string>& path = request.path;
  const auto is = [&path](std::initializer_list<const char*> parts) {
    return std::equal(path.begin(), path.end(), parts.begin(), parts.end());
  };
  if (is({"api", "objects"})) return AskObjects(manager_, request);
  if (is({"api", "graph"})) return AskGraph(manager_, request);
  if (is({"api", "changes"})) return Changes(request);
  // The others have no parameters.
  const Parameters parameters(request);
  if (is({"api", "status"})) {
    parameters.End();
    return AskStatus(manager_, instance_);
  }
  if (is({"metrics"})) {
    parameters.End();
    return AskMetrics(manager_);
  }
  if (is({"api", "rates"})) {
    parameters.End();
    return Rates();
  }
  if (is({"api", "events"})) {
    parameters.End();
    return Follow(request.last_event_id);
  }
  if (path.size() >= 4 && path[0] == "api" && path[1] == "objects") {
    const ObjectKey key = ReadKey(path[2], path[3]);
    parameters.End();
    if (path.size() == 4) return AskObject(manager_, key, &history_);
    if (path.size() == 5 && path[4] == "explain") return AskExplanation(manager_, key);
  }
  if (path.size() <= 1) {
    if (auto file = PageFile(path.empty() ? "" : path.front())) return std::move(*file);
  }
  throw HttpError(404, "there is nothing at this path; / is the page, /api/status the status");
}

}  // namespace reference
