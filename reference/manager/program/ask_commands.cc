#include "reference/manager/program/ask_commands.h"

#include <cstdint>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "reference/manager/program/command_line.h"
#include "reference/manager/program/control_client.h"
#include "reference/manager/program/exit_status.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/report.h"
#include "reference/manager/views/status.h"
#include "reference/socket_client/server_contents.h"
#include "reference/text/hex.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;

// The exit status of an answer, after its error has been written.
int ExitStatusOf(const Json& answer) {
  if (answer.contains("error")) {
    LogLine(LogLevel::kError, answer.at("error").get<std::string>());
  }
  return answer.at("exit_status").get<int>();
}

// The same for an answer with states.
int ExitStatusOfStates(const Json& answer) {
  const int status = ExitStatusOf(answer);
  if (status == kExitNotConnected) {
    LogLine(LogLevel::kWarning,
            "there is no connection to the HAL; these are the last known or the initial states");
  }
  return status;
}

// For requests whose answer is a text.
int ShowText(const CommandArguments& arguments, const Json& request) {
  const Json answer = AskManager(arguments.control, request);
  if (answer.contains("text")) {
    std::istringstream text(answer.at("text").get<std::string>());
    for (std::string line; std::getline(text, line);) std::cout << Printable(line) << '\n';
  }
  return ExitStatusOf(answer);
}

}  // namespace

int ShowStatus(const CommandArguments& arguments) {
  const Json answer = AskManager(arguments.control, {{"request", "status"}});
  if (answer.contains("status")) {
    const Json& status = answer.at("status");
    if (arguments.json) {
      std::cout << JsonText(status, 1) << '\n';
    } else {
      WriteStatus(status, &std::cout);
    }
  }
  return ExitStatusOf(answer);
}

int ListObjects(const CommandArguments& arguments) {
  Json request = {{"request", "objects"}, {"failed", arguments.failed}};
  if (arguments.kind) request["kind"] = HalKindName(*arguments.kind);
  std::vector<ObjectRow> rows;
  const Json answer = AskManager(arguments.control, request, [&rows](const Json& line) {
    rows.push_back(RowOfJson(line.at("object")));
  });
  if (answer.contains("summary")) {
    const Summary summary(answer.at("summary"));
    if (arguments.json) {
      WriteRowsAsJson(rows, summary, &std::cout);
    } else {
      WriteRows(rows, &std::cout);
      std::cout << summary.text() << '\n';
    }
  }
  return ExitStatusOfStates(answer);
}

int ExplainObject(const CommandArguments& arguments) {
  return ShowText(arguments, {{"request", "explain"}, {"object", KeyText(*arguments.object)}});
}

int DrawGraph(const CommandArguments& arguments) {
  GraphNodes nodes;
  const Json answer =
      AskManager(arguments.control, {{"request", "nodes"}}, [&nodes](const Json& line) {
        GraphNode node = NodeOfJson(line.at("node"));
        nodes.emplace(node.key, std::move(node));
      });
  if (arguments.object) {
    if (nodes.count(*arguments.object) == 0) {
      throw UsageError("there is no " + KeyText(*arguments.object) +
                       "; zuskux-manager objects lists all of them");
    }
    nodes = NodesAround(nodes, *arguments.object);
  }
  std::cout << GraphText(nodes);
  return ExitStatusOfStates(answer);
}

int FollowEvents(const CommandArguments& arguments) {
  const auto show = [](const Json& line) {
    if (line.contains("missed")) {
      std::cout << "missed " << line.at("missed").get<std::uint64_t>() << " events\n";
    } else if (line.contains("event")) {
      std::cout << Printable(line.at("event").get<std::string>()) << '\n';
    } else {
      const ObjectRow row = RowOfJson(line.at("object"));
      std::cout << KeyText(row.key) << ' ' << Quote(row.name) << ' ' << StandingName(row.standing);
      if (!row.reason.empty()) std::cout << ": " << Printable(row.reason);
      std::cout << '\n';
    }
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
  };
  return ExitStatusOf(AskManager(arguments.control, {{"request", "events"}}, show, true));
}

int AuditHal(const CommandArguments& arguments) {
  struct Believed {
    std::string name;
    std::string payload;
  };
  std::map<std::pair<HalKind, std::uint32_t>, Believed> believed;
  const Json answer =
      AskManager(arguments.control, {{"request", "entries"}}, [&believed](const Json& line) {
        const Json& entry = line.at("entry");
        believed[{ReadKind(entry.at("kind").get<std::string>()),
                  entry.at("id").get<std::uint32_t>()}] = {entry.at("name").get<std::string>(),
                                                           entry.at("payload").get<std::string>()};
      });
  if (!answer.contains("hal_socket")) return ExitStatusOf(answer);
  const TableEntries held =
      ReadServerContents(answer.at("hal_socket").get<std::string>(), "zuskux-manager").entries;
  std::size_t differences = 0;
  const auto show = [&differences](const char* what, HalKind kind, std::uint32_t id) {
    ++differences;
    std::cout << what << "  " << HalKindName(kind) << ' ' << id;
  };
  for (const auto& [key, entry] : believed) {
    const auto found = held.find(key);
    if (found != held.end() && HexOfBytes(found->second) == entry.payload) continue;
    show(found == held.end() ? "missing" : "differs", key.first, key.second);
    std::cout << "  " << Printable(entry.name) << '\n';
  }
  for (const auto& [key, payload] : held) {
    if (believed.count(key) != 0) continue;
    show("unknown", key.first, key.second);
    std::cout << '\n';
  }
  std::cout << believed.size() << (believed.size() == 1 ? " entry" : " entries")
            << " in the manager, " << held.size() << " in the HAL, " << differences
            << (differences == 1 ? " difference\n" : " differences\n");
  if (!answer.at("finished").get<bool>()) {
    LogLine(LogLevel::kWarning, "the manager is at work; differences may be requests in flight");
  }
  return differences == 0 ? ExitStatusOf(answer) : kExitIncomplete;
}

int ReloadSite(const CommandArguments& arguments) {
  Json request = {{"request", "reload"}};
  if (arguments.max_removals) request["max_removals"] = *arguments.max_removals;
  return ShowText(arguments, request);
}

int ResyncHal(const CommandArguments& arguments) {
  return ShowText(arguments, {{"request", "resync"}});
}

}  // namespace reference
