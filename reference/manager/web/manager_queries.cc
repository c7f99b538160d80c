#include "reference/manager/web/manager_queries.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "reference/manager/engine/adapters.h"
#include "reference/manager/views/explain.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/graph_file.h"
#include "reference/manager/views/report.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;

// How many objects a step examines.
constexpr std::size_t kStep = 512;

constexpr std::uint64_t kMaxSkip = 0xFFFFFFFF;
constexpr std::size_t kMaxHistory = 100;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

// Whether `text` contains `lower`, which has no capital letters, whatever the case.
bool ContainsText(const std::string& text, const std::string& lower) {
  return std::search(text.begin(), text.end(), lower.begin(), lower.end(),
                     [](char a, char b) { return Lower(a) == b; }) != text.end();
}

HttpError NoSuchObject(const ObjectKey& key) {
  return {404, "there is no " + KeyText(key) + "; /api/objects lists all objects"};
}

std::set<HalKind> ReadKinds(Parameters* parameters) {
  std::set<HalKind> kinds;
  for (const std::string& name : parameters->List("kind")) {
    const auto* const kind =
        std::find_if(kAllHalKinds.begin(), kAllHalKinds.end(),
                     [&name](HalKind each) { return HalKindName(each) == name; });
    if (kind == kAllHalKinds.end()) {
      throw HttpError(400, "there is no kind " + Quote(name, kMaxText));
    }
    kinds.insert(*kind);
  }
  if (kinds.empty()) kinds.insert(kAllHalKinds.begin(), kAllHalKinds.end());
  return kinds;
}

Json InterfaceOf(const Object& object, const InterfaceNames& interfaces) {
  const auto lim_id = LimIdOf(object.content);
  const auto name = lim_id ? interfaces.find(*lim_id) : interfaces.end();
  return name == interfaces.end() ? Json() : Json(name->second);
}

Json ObjectAsJson(const Object& object, const InterfaceNames& interfaces) {
  Json json = {{"key", KeyText(object.key)}};
  json.update(RowAsJson(RowOf(object)));
  json["interface"] = InterfaceOf(object, interfaces);
  return json;
}

/// Asks once.
template <typename Ask>
class OneStep : public Query {
 public:
  explicit OneStep(Ask ask) : ask_(std::move(ask)) {}

  bool Step() override {
    finish_ = ask_();
    return true;
  }

  QueryResult Finish() override { return finish_(); }

 private:
  // Returns the function that makes the answer.
  Ask ask_;
  std::function<QueryResult()> finish_;
};

template <typename Ask>
std::shared_ptr<Query> AskOnce(Ask ask) {
  return std::make_shared<OneStep<Ask>>(std::move(ask));
}

/// A page of the list: first all failed objects, then the others.
class ObjectsQuery : public Query {
 public:
  ObjectsQuery(WatchedManager manager, Parameters parameters)
      : manager_(std::move(manager)),
        kinds_(ReadKinds(&parameters)),
        standings_(ReadStandings(&parameters)),
        text_(parameters.Text("q", kMaxText)),
        limit_(parameters.Number("limit", kDefaultRows, 1, kMaxRows)),
        skip_(parameters.Number("skip", 0, 0, kMaxSkip)) {
    std::transform(text_.begin(), text_.end(), text_.begin(), Lower);
    ReadPlace(parameters.Text("after", kMaxText));
    parameters.End();
  }

  bool Step() override {
    const DestDatabase& database = manager_.manager->database();
    if (failed_ones_ && FailedObjects(database) == 0) TurnToOthers();
    const DestDatabase::Objects& objects = database.objects();
    auto next = place_ ? objects.upper_bound(*place_) : objects.begin();
    for (std::size_t i = 0; i < kStep; ++i) {
      if (next != objects.end() && kinds_.count(next->first.kind) == 0) {
        next = NextKind(objects, next->first.kind);
      }
      if (next == objects.end()) {
        done_ = !failed_ones_;
        if (done_) return true;
        TurnToOthers();
        return false;
      }
      place_ = next->first;
      ++examined_;
      Examine(next->second);
      ++next;
      if (rows_.size() == limit_) return true;
    }
    return examined_ >= manager_.max_examined;
  }

  QueryResult Finish() override {
    Json json;
    json["objects"] = std::move(rows_);
    json["skipped"] = skipped_;
    json["next"] = done_ ? Json() : Json(PlaceText());
    json["examined"] = examined_;
    return JsonResponse(std::move(json));
  }

 private:
  void ReadPlace(const std::string& text) {
    if (text.empty()) return;
    failed_ones_ = text.front() == 'f';
    if (text.size() > 2) place_ = ParseObjectKey(text.substr(2));
    if (text != PlaceText()) {
      throw HttpError(400, "the parameter after must be the next of an earlier page");
    }
  }

  std::string PlaceText() const {
    return std::string(failed_ones_ ? "f" : "r") + (place_ ? '.' + KeyText(*place_) : "");
  }

  std::size_t FailedObjects(const DestDatabase& database) const {
    if (!standings_.empty() && standings_.count(Standing::kFailed) == 0) return 0;
    std::size_t failed = 0;
    for (const HalKind kind : kinds_) {
      failed += database.counts(kind).at(static_cast<std::size_t>(Standing::kFailed));
    }
    return failed;
  }

  void TurnToOthers() {
    failed_ones_ = false;
    place_.reset();
  }

  // The first object of the next wanted kind.
  DestDatabase::Objects::const_iterator NextKind(const DestDatabase::Objects& objects,
                                                 HalKind kind) const {
    const auto next = kinds_.upper_bound(kind);
    return next == kinds_.end() ? objects.end() : objects.lower_bound({*next, 0});
  }

  void Examine(const Object& object) {
    const Standing standing = StandingOf(object);
    if ((standing == Standing::kFailed) != failed_ones_) return;
    const bool wanted =
        standings_.empty() ? standing != Standing::kRemoved : standings_.count(standing) != 0;
    if (!wanted) return;
    const InterfaceNames& interfaces = manager_.interfaces();
    if (!text_.empty() && !Matches(object, interfaces)) return;
    if (skipped_ < skip_) {
      ++skipped_;
    } else {
      rows_.push_back(ObjectAsJson(object, interfaces));
    }
  }

  bool Matches(const Object& object, const InterfaceNames& interfaces) const {
    if (ContainsText(object.name, text_) || ContainsText(KeyText(object.key), text_)) return true;
    if (ContainsText(ReasonOf(object), text_)) return true;
    const auto lim_id = LimIdOf(object.content);
    const auto name = lim_id ? interfaces.find(*lim_id) : interfaces.end();
    return name != interfaces.end() && name->second.size() == text_.size() &&
           ContainsText(name->second, text_);
  }

  const WatchedManager manager_;
  const std::set<HalKind> kinds_;
  const std::set<Standing> standings_;
  std::string text_;
  const std::size_t limit_;
  // How many of the rows after `after` are left out.
  const std::uint64_t skip_;
  std::uint64_t skipped_ = 0;

  bool failed_ones_ = true;
  // The last object examined; nothing at the beginning.
  std::optional<ObjectKey> place_;
  bool done_ = false;
  std::size_t examined_ = 0;
  Json rows_ = Json::array();
};

/// An object of a neighbourhood, and how far it is from the middle: negative for what the middle
/// rides on.
struct Near {
  ObjectKey key;
  int distance = 0;
};

enum class GraphFormat { kSvg, kJson, kDot };

struct GraphRequest {
  ObjectKey around;
  int depth = 0;
  GraphFormat format = GraphFormat::kSvg;
};

constexpr int kMaxDepth = 8;
constexpr int kDefaultDepth = 3;
constexpr std::size_t kMaxNodes = 200;
// Graphviz takes a fraction of a second for so many nodes.
constexpr std::chrono::seconds kDrawingTime{5};

/// Reads what the near objects show, and draws it.
class NodesQuery : public Query {
 public:
  NodesQuery(WatchedManager manager, GraphRequest request, std::vector<Near> near,
             std::size_t left_out)
      : manager_(std::move(manager)),
        request_(request),
        near_(std::move(near)),
        left_out_(left_out) {}

  bool Step() override {
    const DestDatabase& database = manager_.manager->database();
    for (const Near& each : near_) {
      if (const Object* const object = database.Find(each.key)) {
        nodes_.emplace(each.key, NodeOf(database, *object));
      }
    }
    return true;
  }

  bool finish_is_slow() const override { return request_.format == GraphFormat::kSvg; }

  QueryResult Finish() override {
    if (request_.format == GraphFormat::kJson) return JsonResponse(AsJson());
    std::string text = LinkedGraphText(nodes_, left_out_);
    if (request_.format == GraphFormat::kDot) {
      return HttpResponse{200, "text/plain; charset=utf-8", std::move(text)};
    }
    try {
      return HttpResponse{200, "image/svg+xml", DrawGraph(text, kDrawingTime)};
    } catch (const std::exception& error) {
      throw HttpError(501, error.what());
    }
  }

 private:
  Json AsJson() const {
    Json json = {{"around", KeyText(request_.around)},
                 {"depth", request_.depth},
                 {"left_out", left_out_},
                 {"nodes", Json::array()},
                 {"edges", Json::array()}};
    for (const Near& each : near_) {
      const auto node = nodes_.find(each.key);
      if (node == nodes_.end()) continue;
      json["nodes"].push_back({{"key", KeyText(each.key)},
                               {"name", node->second.name},
                               {"state", StandingName(node->second.standing)},
                               {"distance", each.distance}});
    }
    for (const GraphEdge& edge : EdgesOf(nodes_)) {
      json["edges"].push_back(
          {{"from", KeyText(edge.from)}, {"to", KeyText(edge.to)}, {"type", edge.type}});
    }
    return json;
  }

  const WatchedManager manager_;
  const GraphRequest request_;
  const std::vector<Near> near_;
  const std::size_t left_out_;
  GraphNodes nodes_;
};

/// Reads all references between objects and finds those near one.
class LinksQuery : public Query {
 public:
  LinksQuery(WatchedManager manager, GraphRequest request)
      : manager_(std::move(manager)), request_(request) {}

  bool Step() override {
    const DestDatabase::Objects& objects = manager_.manager->database().objects();
    auto next = place_ ? objects.upper_bound(*place_) : objects.begin();
    for (std::size_t i = 0; i < kStep && next != objects.end(); ++i, ++next) {
      place_ = next->first;
      if (next->second.state() != ObjectState::kRemoved) Add(next->second);
    }
    return next == objects.end();
  }

  // Sorting a million references takes a while.
  bool finish_is_slow() const override { return true; }

  QueryResult Finish() override {
    if (!exists_) throw NoSuchObject(request_.around);
    std::sort(down_.begin(), down_.end());
    for (const auto& [from, to] : down_) up_.emplace_back(to, from);
    std::sort(up_.begin(), up_.end());
    std::vector<Near> near = {{request_.around, 0}};
    std::set<ObjectKey> seen = {request_.around};
    std::size_t left_out = 0;
    std::vector<ObjectKey> below = {request_.around};
    std::vector<ObjectKey> above = below;
    for (int distance = 1; distance <= request_.depth; ++distance) {
      below = Next(down_, below, &seen);
      above = Next(up_, above, &seen);
      left_out += Take(below, -distance, &near);
      left_out += Take(above, distance, &near);
    }
    std::sort(near.begin(), near.end(), [](const Near& a, const Near& b) {
      return std::tie(a.distance, a.key) < std::tie(b.distance, b.key);
    });
    return std::make_shared<NodesQuery>(manager_, request_, std::move(near), left_out);
  }

 private:
  using Links = std::vector<std::pair<ObjectKey, ObjectKey>>;

  void Add(const Object& object) {
    exists_ = exists_ || object.key == request_.around;
    const DestDatabase& database = manager_.manager->database();
    for (const std::uint32_t id : ReferencedIds(object.content)) {
      if (const Object* const other = database.FindReferenced(id)) {
        down_.emplace_back(object.key, other->key);
      }
    }
    const auto neighbor = NeighborId(object.content);
    if (neighbor && database.Find({HalKind::kHost, *neighbor}) != nullptr) {
      down_.emplace_back(object.key, ObjectKey{HalKind::kHost, *neighbor});
    }
    if (object.key.kind == HalKind::kVrf) {
      vrfs_.emplace(std::get<dest_mng::VrfData>(object.content).vrf_id, object.key);
    }
    // VRFs come first.
    const auto number = VrfIdOf(object.content);
    const auto vrf = number ? vrfs_.find(*number) : vrfs_.end();
    if (vrf != vrfs_.end()) down_.emplace_back(object.key, vrf->second);
  }

  // Those that the links lead to and that are not seen yet.
  static std::vector<ObjectKey> Next(const Links& links, const std::vector<ObjectKey>& from,
                                     std::set<ObjectKey>* seen) {
    std::vector<ObjectKey> next;
    for (const ObjectKey& key : from) {
      auto link = std::lower_bound(links.begin(), links.end(), std::make_pair(key, ObjectKey()));
      for (; link != links.end() && link->first == key; ++link) {
        if (seen->insert(link->second).second) next.push_back(link->second);
      }
    }
    return next;
  }

  // Takes as many as there is room for, and returns how many there are besides.
  static std::size_t Take(const std::vector<ObjectKey>& keys, int distance,
                          std::vector<Near>* near) {
    const std::size_t taken = std::min(keys.size(), kMaxNodes - near->size());
    for (std::size_t i = 0; i < taken; ++i) near->push_back({keys[i], distance});
    return keys.size() - taken;
  }

  const WatchedManager manager_;
  const GraphRequest request_;
  std::optional<ObjectKey> place_;
  bool exists_ = false;
  // From an object to what it rides on, its neighbor included, and back.
  Links down_;
  Links up_;
  std::map<std::uint32_t, ObjectKey> vrfs_;
};

Json RelatedAsJson(const DestDatabase& database, const ObjectKey& key) {
  const Object* const object = database.Find(key);
  if (object == nullptr) return nullptr;
  return {
      {"key", KeyText(key)}, {"name", object->name}, {"state", StandingName(StandingOf(*object))}};
}

// The site's VRF of that number; null if there is none.
Json VrfAsJson(const DestDatabase& database, std::optional<std::uint32_t> number) {
  if (!number) return nullptr;
  for (const auto& [key, object] : database.objects()) {
    if (key.kind != HalKind::kVrf) break;
    if (std::get<dest_mng::VrfData>(object.content).vrf_id == *number) {
      return RelatedAsJson(database, key);
    }
  }
  return nullptr;
}

Json DetailAsJson(const WatchedManager& manager, const Object& object) {
  const DestDatabase& database = manager.manager->database();
  const InterfaceNames& interfaces = manager.interfaces();
  Json json = {{"object", ObjectAsJson(object, interfaces)}, {"wanted", object.wanted}};
  json["fields"] = FieldsOf(object.key.kind, TranslateForHal(object.content).payload, interfaces);
  json["rides_on"] = Json::array();
  for (const std::uint32_t id : ReferencedIds(object.content)) {
    if (const Object* const other = database.FindReferenced(id)) {
      json["rides_on"].push_back(RelatedAsJson(database, other->key));
    }
  }
  const auto neighbor = NeighborId(object.content);
  json["neighbor"] =
      neighbor ? RelatedAsJson(database, {HalKind::kHost, *neighbor}) : Json(nullptr);
  json["vrf"] = VrfAsJson(database, VrfIdOf(object.content));
  return json;
}

Json HistoryAsJson(const ChangeHistory::Page& page) {
  Json history = Json::array();
  for (const Change* const change : page.changes) {
    history.push_back({{"seq", change->seq},
                       {"time_ms", Milliseconds(change->time)},
                       {"state", StandingName(change->row.standing)},
                       {"code", change->row.code},
                       {"reason", change->row.reason}});
  }
  return history;
}

}  // namespace

ObjectKey ReadKey(const std::string& text) {
  if (const auto key = ParseObjectKey(text)) return *key;
  throw HttpError(400, Quote(text, kMaxText) + " names no object; write KIND:ID, such as vlan:10");
}

ObjectKey ReadKey(const std::string& kind, const std::string& id) {
  return ReadKey(kind + ':' + id);
}

std::set<Standing> ReadStandings(Parameters* parameters) {
  std::set<Standing> standings;
  for (const std::string& name : parameters->List("state")) {
    try {
      standings.insert(ParseStanding(name));
    } catch (const std::runtime_error& error) {
      throw HttpError(400, error.what());
    }
  }
  return standings;
}

std::shared_ptr<Query> AskStatus(const WatchedManager& manager, const std::string& instance) {
  return AskOnce([manager, instance] {
    Json json = StatusAsJson(manager.head(), manager.manager, *manager.hal);
    json["instance"] = instance;
    return [json = std::move(json)] { return QueryResult(JsonResponse(json)); };
  });
}

std::shared_ptr<Query> AskObjects(const WatchedManager& manager, const HttpRequest& request) {
  return std::make_shared<ObjectsQuery>(manager, Parameters(request));
}

std::shared_ptr<Query> AskObject(const WatchedManager& manager, const ObjectKey& key,
                                 const ChangeHistory* history) {
  return AskOnce([manager, key, history]() -> std::function<QueryResult()> {
    const Object* const object = manager.manager->database().Find(key);
    if (object == nullptr) return [key]() -> QueryResult { throw NoSuchObject(key); };
    return [json = DetailAsJson(manager, *object), key, history]() mutable {
      ChangeHistory::Wanted wanted;
      wanted.key = key;
      wanted.limit = kMaxHistory;
      const ChangeHistory::Page page = history->Find(wanted);
      json["history"] = HistoryAsJson(page);
      json["history_since_ms"] = Milliseconds(page.since);
      return QueryResult(JsonResponse(std::move(json)));
    };
  });
}

std::shared_ptr<Query> AskExplanation(const WatchedManager& manager, const ObjectKey& key) {
  return AskOnce([manager, key]() -> std::function<QueryResult()> {
    const DestDatabase& database = manager.manager->database();
    const std::vector<ExplainStep> steps = ExplainSteps(database, key);
    if (steps.empty()) return [key]() -> QueryResult { throw NoSuchObject(key); };
    Json json = {{"key", KeyText(key)},
                 {"in_place", IsInPlace(database, key)},
                 {"connected", manager.manager->connected()},
                 {"steps", Json::array()}};
    for (const ExplainStep& step : steps) {
      json["steps"].push_back(
          {{"key", step.key ? Json(KeyText(*step.key)) : Json()}, {"text", step.text}});
    }
    return [json = std::move(json)] { return QueryResult(JsonResponse(json)); };
  });
}

std::shared_ptr<Query> AskGraph(const WatchedManager& manager, const HttpRequest& request) {
  Parameters parameters(request);
  GraphRequest graph;
  graph.around = ReadKey(parameters.Text("around", kMaxText));
  graph.depth = static_cast<int>(parameters.Number("depth", kDefaultDepth, 1, kMaxDepth));
  const std::string format = parameters.Text("format", kMaxText);
  parameters.End();
  if (format == "json") {
    graph.format = GraphFormat::kJson;
  } else if (format == "dot") {
    graph.format = GraphFormat::kDot;
  } else if (!format.empty() && format != "svg") {
    throw HttpError(400, "the parameter format must be svg, json or dot");
  }
  return std::make_shared<LinksQuery>(manager, graph);
}

}  // namespace reference
