#include "reference/manager/program/control_requests.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/manager/engine/adapters.h"
#include "reference/manager/program/exit_status.h"
#include "reference/manager/views/explain.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/report.h"
#include "reference/text/hex.h"
#include "reference/text/json_text.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;
using Next = AnswerPiece::Next;

// How many objects a piece of an answer covers.
constexpr std::size_t kPage = 256;

std::string Line(const Json& json) { return JsonText(json, -1) + '\n'; }

Answer LastLine(Json json, int exit_status) {
  json["exit_status"] = exit_status;
  return [line = Line(json)] { return AnswerPiece{line, Next::kEnd}; };
}

Answer Error(const std::string& error, int exit_status) {
  return LastLine({{"error", error}}, exit_status);
}

// An answer with a line from `line_of` for each object of a table, which may change between the
// pieces, then the line from `last`.
template <typename LineOf, typename Last>
Answer Pages(const DestDatabase::Objects* objects, LineOf line_of, Last last) {
  return [objects, line_of, last, place = std::optional<ObjectKey>()]() mutable {
    AnswerPiece piece;
    auto next = place ? objects->upper_bound(*place) : objects->begin();
    for (std::size_t i = 0; i < kPage && next != objects->end(); ++i, ++next) {
      place = next->first;
      piece.text += line_of(next->second);
    }
    piece.next = next == objects->end() ? Next::kEnd : Next::kMore;
    if (piece.next == Next::kEnd) piece.text += last();
    return piece;
  };
}

// One answer, then the other.
Answer Sequence(Answer first, Answer second) {
  return [first = std::move(first), second = std::move(second), at_first = true]() mutable {
    if (!at_first) return second();
    AnswerPiece piece = first();
    at_first = piece.next != Next::kEnd;
    piece.next = Next::kMore;
    return piece;
  };
}

// Whether an object needs no attention: it is neither pending nor failed.
bool InOrder(Standing standing) {
  return standing != Standing::kPending && standing != Standing::kFailed;
}

bool Flag(const Json& arguments, const char* name) {
  return arguments.contains(name) && arguments.at(name).get<bool>();
}

std::optional<std::string> Text(const Json& arguments, const char* name) {
  if (!arguments.contains(name)) return std::nullopt;
  return arguments.at(name).get<std::string>();
}

}  // namespace

struct ControlRequests::Named {
  std::string_view name;
  Answer (ControlRequests::*answer)(const Json& arguments) const;
};

Answer ControlRequests::AnswerTo(const std::string& request) const {
  static constexpr std::array<Named, 8> kRequests = {{{"status", &ControlRequests::Status},
                                                      {"objects", &ControlRequests::Objects},
                                                      {"nodes", &ControlRequests::Nodes},
                                                      {"entries", &ControlRequests::Entries},
                                                      {"events", &ControlRequests::Events},
                                                      {"explain", &ControlRequests::Explain},
                                                      {"reload", &ControlRequests::Reload},
                                                      {"resync", &ControlRequests::Resync}}};
  try {
    const Json arguments = Json::parse(request);
    const auto name = arguments.at("request").get<std::string>();
    for (const Named& each : kRequests) {
      if (each.name == name) return (this->*each.answer)(arguments);
    }
    return Error(
        "this manager does not know the request " + name + "; it may be older than the command",
        kExitFailed);
  } catch (const Json::exception& error) {
    return Error(std::string("the request is not valid: ") + error.what(), kExitFailed);
  }
}

int ControlRequests::ExitStatus() const {
  if (!controlled_.manager->connected()) return kExitNotConnected;
  return controlled_.manager->settled() ? EXIT_SUCCESS : kExitIncomplete;
}

Answer ControlRequests::Status(const Json& /*arguments*/) const {
  return LastLine(
      {{"status", StatusAsJson(controlled_.head(), controlled_.manager, *controlled_.hal)}},
      ExitStatus());
}

Answer ControlRequests::Objects(const Json& arguments) const {
  const bool failed = Flag(arguments, "failed");
  const bool not_in_order = Flag(arguments, "not_in_order");
  const auto kind = Text(arguments, "kind");
  auto left = arguments.contains("limit") ? arguments.at("limit").get<std::size_t>()
                                          : std::numeric_limits<std::size_t>::max();
  const DestDatabase& database = controlled_.manager->database();
  return Pages(
      &database.objects(),
      [failed, not_in_order, kind, left](const Object& object) mutable {
        const Standing standing = StandingOf(object);
        if (left == 0 || (failed && standing != Standing::kFailed)) return std::string();
        if (not_in_order && InOrder(standing)) return std::string();
        if (kind && *kind != HalKindName(object.key.kind)) return std::string();
        --left;
        return Line({{"object", RowAsJson(RowOf(object))}});
      },
      [this, &database] {
        return Line({{"summary", Summary(database).json()}, {"exit_status", ExitStatus()}});
      });
}

Answer ControlRequests::Nodes(const Json& /*arguments*/) const {
  const DestDatabase& database = controlled_.manager->database();
  return Pages(
      &database.objects(),
      [&database](const Object& object) {
        if (object.state() == ObjectState::kRemoved) return std::string();
        return Line({{"node", NodeAsJson(NodeOf(database, object))}});
      },
      [this] {
        return Line({{"exit_status", ExitStatus()}});
      });
}

// The entries that the HAL has acknowledged, by the HAL's own keys: VRFs by number.
Answer ControlRequests::Entries(const Json& /*arguments*/) const {
  if (controlled_.hal_socket.empty()) {
    return Error("the HAL is in the manager's own process, so there is nothing to compare with",
                 kExitFailed);
  }
  if (!controlled_.manager->connected()) {
    return Error("there is no connection to the HAL", kExitNotConnected);
  }
  const DestDatabase& database = controlled_.manager->database();
  const auto line_of = [](const Object& object) {
    if (!object.wanted || object.presence != Presence::kPresent) return std::string();
    const HalMessage message = TranslateForHal(object.content);
    return Line({{"entry",
                  {{"kind", HalKindName(object.key.kind)},
                   {"id", message.id},
                   {"name", object.name},
                   {"payload", HexOfBytes(message.payload)}}}});
  };
  const auto nothing = [] { return std::string(); };
  return Sequence(Pages(&database.vrf_entries(), line_of, nothing),
                  Pages(
                      &database.objects(),
                      [line_of](const Object& object) {
                        return object.key.kind == HalKind::kVrf ? std::string() : line_of(object);
                      },
                      [this] {
                        return Line({{"hal_socket", controlled_.hal_socket},
                                     {"finished", controlled_.manager->finished()},
                                     {"exit_status", EXIT_SUCCESS}});
                      }));
}

Answer ControlRequests::Events(const Json& /*arguments*/) const {
  return controlled_.events->Follow();
}

Answer ControlRequests::Explain(const Json& arguments) const {
  const std::string name = Text(arguments, "object").value_or("");
  const auto key = ParseObjectKey(name);
  const DestDatabase& database = controlled_.manager->database();
  auto text = key ? reference::Explain(database, *key) : std::nullopt;
  if (!text) {
    return Error("there is no " + name + "; zuskux-manager objects lists all of them", kExitUsage);
  }
  if (!controlled_.manager->connected()) {
    *text += "There is no connection to the HAL; this is the last known or the initial state.\n";
    return LastLine({{"text", *text}}, kExitNotConnected);
  }
  const bool in_order = InOrder(StandingOf(*database.Find(*key)));
  return LastLine({{"text", *text}}, in_order ? EXIT_SUCCESS : kExitIncomplete);
}

Answer ControlRequests::Reload(const Json& arguments) const {
  std::optional<std::size_t> max_removals;
  if (arguments.contains("max_removals")) {
    max_removals = arguments.at("max_removals").get<std::size_t>();
  }
  const auto refused = controlled_.reload(max_removals);
  if (refused) return Error(*refused, kExitIncomplete);
  if (!controlled_.manager->connected()) {
    return Error("the site was read, but there is no connection to the HAL", kExitNotConnected);
  }
  return LastLine(
      {{"text",
        "The site was read; the differences are being sent. zuskux-manager status says when it "
        "has settled.\n"}},
      EXIT_SUCCESS);
}

Answer ControlRequests::Resync(const Json& /*arguments*/) const {
  if (!controlled_.manager->connected()) {
    return Error(
        "there is no connection to the HAL; everything will be installed once there is one",
        kExitNotConnected);
  }
  controlled_.manager->Resync();
  return LastLine(
      {{"text",
        "Everything is being installed again. zuskux-manager status says when it has settled.\n"}},
      EXIT_SUCCESS);
}

}  // namespace reference
