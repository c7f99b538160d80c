#include "reference/manager/program/commands.h"

#include <algorithm>
#include <array>
#include <boost/program_options.hpp>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <sstream>
#include <string_view>
#include <utility>

#include "reference/manager/program/ask_commands.h"
#include "reference/manager/program/command_line.h"
#include "reference/manager/program/watch_command.h"
#include "reference/manager/views/report.h"
#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

namespace po = boost::program_options;

enum class TakesObject { kNo, kMay, kMust };

struct Command {
  std::string_view name;
  TakesObject object;
  /// Besides --control and --help.
  std::vector<std::string_view> options;
  std::string_view summary;
  int (*run)(const CommandArguments& arguments);
};

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"status", TakesObject::kNo, {"json"}, "show its state", ShowStatus},
      {"objects",
       TakesObject::kNo,
       {"failed", "kind", "json"},
       "list its objects with their states",
       ListObjects},
      {"explain", TakesObject::kMust, {}, "show why an object is not installed", ExplainObject},
      {"graph", TakesObject::kMay, {}, "draw its objects as DOT text", DrawGraph},
      {"events", TakesObject::kNo, {}, "follow what happens, until interrupted", FollowEvents},
      {"watch", TakesObject::kNo, {}, "keep showing its state", WatchManager},
      {"audit", TakesObject::kNo, {}, "compare it with what the HAL holds", AuditHal},
      {"reload", TakesObject::kNo, {"max-removals"}, "read the site file again", ReloadSite},
      {"resync", TakesObject::kNo, {}, "install everything again", ResyncHal},
  };
  return commands;
}

constexpr char kExitStatuses[] =
    "Exit status: 0 in order, 1 no manager there, 2 wrong usage, 3 something failed or\n"
    "is not settled, 4 the manager has no connection to the HAL, or it has ended.\n";

const Command* Find(const std::string& name) {
  for (const Command& command : Commands()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

// The number of characters to insert, remove or replace to get from one word to the other.
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, replaced}));
    }
  }
  return row.back();
}

// The command that the word is most like; null if it is like none.
const Command* Nearest(const std::string& word) {
  constexpr std::size_t kFar = 3;
  const Command* nearest = nullptr;
  std::size_t least = kFar;
  for (const Command& command : Commands()) {
    const std::size_t distance = Distance(word, command.name);
    if (distance >= least) continue;
    least = distance;
    nearest = &command;
  }
  return nearest;
}

po::options_description OptionsOf(const Command& command) {
  const auto takes = [&command](std::string_view option) {
    return std::find(command.options.begin(), command.options.end(), option) !=
           command.options.end();
  };
  const auto text = [](const char* name) { return po::value<std::string>()->value_name(name); };
  po::options_description options;
  auto add = options.add_options();
  if (takes("failed")) add("failed", "only those that failed");
  if (takes("kind")) add("kind", text("KIND"), "only those of a kind, for example host");
  if (takes("max-removals")) {
    add("max-removals", text("N|all"), "how many objects the site may remove, this time");
  }
  if (takes("json")) add("json", "write JSON");
  add("control", text("PATH"), "the manager's control socket");
  add("help,h", "show this help and exit");
  return options;
}

std::string Synopsis(const Command& command) {
  static constexpr std::array<const char*, 3> kObjects = {"", " [KIND:ID]", " KIND:ID"};
  return "zuskux-manager " + std::string(command.name) +
         kObjects.at(static_cast<std::size_t>(command.object));
}

std::string HelpOf(const Command& command) {
  std::ostringstream text;
  text << "Usage: " << Synopsis(command) << " [options]\n"
       << "Asks the manager that runs with --stay to " << command.summary << ".\n"
       << OptionsOf(command) << kExitStatuses;
  return text.str();
}

// Options that the command does not take are mistakes, whatever they mean elsewhere.
po::variables_map Parse(const Command& command, const std::vector<std::string>& words) {
  po::options_description options = OptionsOf(command);
  options.add_options()("object", po::value<std::vector<std::string>>());
  po::positional_options_description positional;
  positional.add("object", -1);
  po::variables_map values;
  try {
    po::store(
        po::command_line_parser(words)
            .options(options)
            .positional(positional)
            .style(po::command_line_style::default_style & ~po::command_line_style::allow_guessing)
            .run(),
        values);
  } catch (const po::unknown_option& error) {
    throw UsageError(std::string(command.name) + " does not take " + error.get_option_name() +
                     "; see zuskux-manager help " + std::string(command.name));
  } catch (const po::error& error) {
    throw UsageError(std::string(command.name) + ": " + error.what() +
                     "; see zuskux-manager help " + std::string(command.name));
  }
  return values;
}

std::optional<ObjectKey> ReadObject(const Command& command, const po::variables_map& values) {
  const std::string name(command.name);
  std::vector<std::string> words;
  if (values.count("object") != 0) words = values["object"].as<std::vector<std::string>>();
  const std::size_t most = command.object == TakesObject::kNo ? 0 : 1;
  if (words.size() > most) {
    throw UsageError(name + " does not take " + words[most] + "; see zuskux-manager help " + name);
  }
  if (!words.empty()) return ReadObjectKey(name, words[0]);
  if (command.object == TakesObject::kMust) {
    throw UsageError(name + " needs an object; write " + Synopsis(command));
  }
  return std::nullopt;
}

CommandArguments ReadArguments(const Command& command, const po::variables_map& values) {
  CommandArguments arguments;
  arguments.object = ReadObject(command, values);
  arguments.control = values.count("control") != 0 ? values["control"].as<std::string>()
                                                   : DefaultSocketPath("manager.sock");
  arguments.json = values.count("json") != 0;
  arguments.failed = values.count("failed") != 0;
  if (values.count("kind") != 0) arguments.kind = ReadKind(values["kind"].as<std::string>());
  if (values.count("max-removals") != 0) {
    arguments.max_removals = ReadMaxRemovals(values["max-removals"].as<std::string>());
  }
  return arguments;
}

int Help(const std::vector<std::string>& words) {
  if (words.size() > 1) {
    throw UsageError("help does not take " + words[1] + "; write zuskux-manager help COMMAND");
  }
  if (words.empty() || words[0] == "help") {
    std::cout << HelpText();
    return EXIT_SUCCESS;
  }
  if (words[0] == "states") {
    WriteStandings(&std::cout);
    return EXIT_SUCCESS;
  }
  const Command* const command = Find(words[0]);
  if (command == nullptr) {
    const Command* const nearest = Nearest(words[0]);
    throw UsageError("there is no help on " + words[0] +
                     (nearest == nullptr ? "; see zuskux-manager --help"
                                         : "; did you mean " + std::string(nearest->name) + '?'));
  }
  std::cout << HelpOf(*command);
  return EXIT_SUCCESS;
}

}  // namespace

std::optional<int> RunCommand(const std::vector<std::string>& words) {
  if (words.empty()) return std::nullopt;
  const std::vector<std::string> rest(words.begin() + 1, words.end());
  if (words[0] == "help") return Help(rest);
  if (const Command* const command = Find(words[0])) {
    const po::variables_map values = Parse(*command, rest);
    if (values.count("help") != 0) return Help({words[0]});
    return command->run(ReadArguments(*command, values));
  }
  std::error_code ignored;
  if (std::filesystem::exists(words[0], ignored)) {
    if (words.size() < 2 || Find(words[1]) == nullptr) return std::nullopt;
    throw UsageError(words[1] + " is a command; write zuskux-manager " + words[1] +
                     " without the site file");
  }
  const Command* const nearest = Nearest(words[0]);
  if (nearest == nullptr && !IsOption("--" + words[0])) return std::nullopt;
  throw UsageError(words[0] + " is neither a command nor a site file; did you mean " +
                   (nearest == nullptr ? "--" + words[0] : std::string(nearest->name)) + "?");
}

std::string CommandsHelp() {
  std::ostringstream text;
  for (const Command& command : Commands()) {
    text << "  " << std::left << std::setw(34) << Synopsis(command) << command.summary << '\n';
  }
  return text.str();
}

}  // namespace reference
