#include "reference/manager/program/ask_commands.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "reference/manager/program/command_line.h"
#include "reference/manager/program/control_client.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/report.h"
#include "reference/manager/views/status.h"
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
  return ExitStatusOf(answer);
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
      throw UsageError("there is no " + KeyText(*arguments.object) + "; objects lists all");
    }
    nodes = NodesAround(nodes, *arguments.object);
  }
  std::cout << GraphText(nodes);
  return ExitStatusOf(answer);
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
