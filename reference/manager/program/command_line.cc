#include "reference/manager/program/command_line.h"

#include <algorithm>
#include <boost/program_options.hpp>
#include <charconv>
#include <limits>
#include <sstream>
#include <string_view>
#include <system_error>

#include "reference/manager/program/commands.h"
#include "reference/manager/views/graph_file.h"
#include "reference/wire/hal_name.h"
#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

namespace po = boost::program_options;

constexpr std::int64_t kMaxTableSize = 1 << 30;
constexpr std::int64_t kDefaultTableSize = 1 << 21;
constexpr std::int64_t kDefaultDeadline = 30;
constexpr std::int64_t kMaxDeadline = std::int64_t{24} * 60 * 60;
constexpr std::int64_t kDefaultAudit = 60;
constexpr std::int64_t kMaxAudit = std::int64_t{24} * 60 * 60;
constexpr unsigned kLineLength = 80;

po::options_description Options() {
  po::options_description options(kLineLength);
  const auto number = [](const char* name) { return po::value<std::int64_t>()->value_name(name); };
  const auto text = [](const char* name) { return po::value<std::string>()->value_name(name); };
  auto add = options.add_options();
  add("apply", po::value<std::vector<std::string>>()->value_name("FILE")->composing(),
      "then, once settled, apply this site; repeatable");
  add("check", "only read the site files and report their mistakes");
  add("plan", "only show what would change in the HAL's tables");
  add("stay", "keep running until SIGTERM; SIGHUP rereads the site");
  add("max-removals", text("N|all"), "how many objects a new site may remove");
  add("explain", text("KIND:ID"), "show why an object is not installed");
  add("json", "write the table of objects as JSON");
  add("graph", text("FILE"), "draw the objects to an .svg, .dot or .gv file");
  add("dump-hal", text("FILE"), "write the HAL's tables; - is standard output");
  add("trace", "show the trace lines on standard error");
  add("log-config", text("FILE"), "log with this zlog configuration");
  add("record", text("FILE"), "record all traffic with the HAL");
  add("hal", text("HAL")->default_value("embedded"), "embedded, unix (a zuskux-hal) or unix:PATH");
  add("take-over", "take over from the manager that programs the HAL");
  add("stand-by", "with --stay: wait while another manager programs it");
  add("deadline", number("SECONDS")->default_value(kDefaultDeadline),
      "how long a zuskux-hal may take to answer");
  add("audit", number("SECONDS"), "how often to compare with zuskux-hal (60; 0: never)");
  add("control", text("PATH"), "control socket of --stay");
  add("http", text("ADDRESS"), "with --stay: serve a page at IP:PORT or unix:PATH");
  add("http-allow-remote", "let other machines read the page");
  add("table-size", number("N")->default_value(kDefaultTableSize), "entries in a HAL table");
  add("restart-hal-after", number("N"), "restart the HAL after the Nth result");
  add("version", "show the version and exit");
  add("help,h", "show this help and exit");
  return options;
}

std::optional<std::string> Text(const po::variables_map& values, const char* option) {
  if (values.count(option) == 0) return std::nullopt;
  return values[option].as<std::string>();
}

std::int64_t Number(const po::variables_map& values, const char* option, std::int64_t last,
                    std::int64_t first = 1) {
  const auto value = values[option].as<std::int64_t>();
  if (value < first || value > last) {
    throw UsageError("--" + std::string(option) + ' ' + std::to_string(value) +
                     " is out of range; use " + std::to_string(first) + " to " +
                     std::to_string(last));
  }
  return value;
}

std::string KindNames() {
  std::string kinds;
  for (const HalKind kind : kAllHalKinds) {
    if (!kinds.empty()) kinds += ", ";
    kinds += HalKindName(kind);
  }
  return kinds;
}

void CheckGraph(const std::string& path) {
  if (!GraphFile::IsName(path)) {
    throw UsageError("--graph " + path + " has an unknown format; use a name in .svg, .dot or .gv");
  }
}

std::optional<std::string> ReadHal(const po::variables_map& values) {
  const auto& hal = values["hal"].as<std::string>();
  if (hal == kEmbeddedHal) return std::nullopt;
  std::optional<std::string> path = UnixHalPath(hal);
  if (!path) {
    throw UsageError("--hal " + hal + " is not known; use embedded, unix or unix:PATH");
  }
  if (!values["table-size"].defaulted()) {
    throw UsageError("--table-size needs --hal embedded; use zuskux-hal --table-size");
  }
  if (values.count("restart-hal-after") != 0) {
    throw UsageError("--restart-hal-after needs --hal embedded; see zuskux-hal --fault");
  }
  return path;
}

// What to do about another manager that programs the same HAL.
void ReadWriting(const po::variables_map& values, CommandLine* line) {
  line->take_over = values.count("take-over") != 0;
  line->stand_by = values.count("stand-by") != 0;
  for (const char* const option : {"take-over", "stand-by"}) {
    if (values.count(option) == 0 || line->hal_socket) continue;
    throw UsageError(std::string("--") + option + " needs --hal unix");
  }
  if (line->stand_by && !line->stay) throw UsageError("--stand-by needs --stay; add --stay");
}

std::optional<HttpAddress> ReadHttp(const po::variables_map& values) {
  const auto address = Text(values, "http");
  const bool allow_remote = values.count("http-allow-remote") != 0;
  if (!address) {
    if (allow_remote) throw UsageError("--http-allow-remote needs --http; add --http ADDRESS");
    return std::nullopt;
  }
  if (values.count("stay") == 0) throw UsageError("--http needs --stay; add --stay");
  try {
    return ParseHttpAddress(*address, allow_remote);
  } catch (const std::runtime_error& error) {
    throw UsageError(error.what());
  }
}

// How often a manager that stays compares its objects with those of a server.
std::chrono::seconds ReadAudit(const po::variables_map& values, const CommandLine& line) {
  const bool audits = line.stay && line.hal_socket;
  if (values.count("audit") == 0) return std::chrono::seconds(audits ? kDefaultAudit : 0);
  if (!audits) throw UsageError("--audit needs --stay and --hal unix");
  return std::chrono::seconds(Number(values, "audit", kMaxAudit, 0));
}

// Rejects options that have no effect on a plan.
void CheckPlan(const po::variables_map& values) {
  for (const char* const option :
       {"apply", "stay", "max-removals", "explain", "graph", "dump-hal", "record",
        "restart-hal-after", "take-over", "stand-by", "http", "http-allow-remote", "audit"}) {
    if (values.count(option) == 0) continue;
    throw UsageError(std::string("--") + option + " has no effect with --plan; leave it out");
  }
}

std::vector<std::string> Words(const po::variables_map& values) {
  if (values.count("site") == 0) return {};
  return values["site"].as<std::vector<std::string>>();
}

// The files of --check; none without it. Rejects options that have no effect on a check.
std::vector<std::string> ReadCheck(const po::variables_map& values) {
  if (values.count("check") == 0) return {};
  for (const auto& [option, value] : values) {
    if (option == "check" || option == "site" || option == "json" || value.defaulted()) continue;
    throw UsageError("--" + option + " has no effect with --check; leave it out");
  }
  std::vector<std::string> files = Words(values);
  if (files.empty()) {
    throw UsageError("the site file is missing; write zuskux-manager --check FILE...");
  }
  return files;
}

std::vector<std::string> ReadSites(const po::variables_map& values) {
  std::vector<std::string> sites = Words(values);
  if (sites.empty()) throw UsageError("the site file is missing; write zuskux-manager SITE");
  if (sites.size() > 1) {
    throw UsageError(sites[1] + " is one file too many; write --apply " + sites[1] +
                     " to apply it next");
  }
  if (values.count("apply") != 0) {
    for (const auto& file : values["apply"].as<std::vector<std::string>>()) sites.push_back(file);
  }
  return sites;
}

po::variables_map ParseOptions(const std::vector<std::string>& arguments) {
  po::options_description all = Options();
  all.add_options()("site", po::value<std::vector<std::string>>());
  po::positional_options_description positional;
  positional.add("site", -1);
  po::variables_map values;
  try {
    po::store(
        po::command_line_parser(arguments)
            .options(all)
            .positional(positional)
            .style(po::command_line_style::default_style & ~po::command_line_style::allow_guessing)
            .run(),
        values);
  } catch (const po::error& error) {
    throw UsageError(std::string(error.what()) + "; see zuskux-manager --help");
  }
  return values;
}

}  // namespace

ObjectKey ReadObjectKey(const std::string& where, const std::string& text) {
  if (const auto key = ParseObjectKey(text)) return *key;
  throw UsageError(where + ' ' + text + " names no object; write KIND:ID, for example vlan:10 (" +
                   KindNames() + ')');
}

HalKind ReadKind(const std::string& text) {
  for (const HalKind kind : kAllHalKinds) {
    if (text == HalKindName(kind)) return kind;
  }
  throw UsageError("--kind " + text + " is not a kind of object; use one of " + KindNames());
}

std::size_t ReadMaxRemovals(const std::string& text) {
  if (text == "all") return std::numeric_limits<std::size_t>::max();
  std::size_t limit = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, limit);
  if (error != std::errc() || rest != end) {
    throw UsageError("--max-removals " + text +
                     " is not a number; write a number of objects, or all");
  }
  return limit;
}

CommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
  const po::variables_map values = ParseOptions(arguments);
  CommandLine line;
  line.help = values.count("help") != 0;
  line.version = values.count("version") != 0;
  line.check = ReadCheck(values);
  line.json = values.count("json") != 0;
  line.control = Text(values, "control").value_or(DefaultSocketPath("manager.sock"));
  if (line.help || line.version || !line.check.empty()) return line;

  line.sites = ReadSites(values);
  line.trace = values.count("trace") != 0;
  line.log_config = Text(values, "log-config");
  line.stay = values.count("stay") != 0;
  if (values.count("control") != 0 && !line.stay) {
    throw UsageError("--control needs --stay; add --stay");
  }
  line.http = ReadHttp(values);
  if (const auto limit = Text(values, "max-removals")) {
    line.max_removals = ReadMaxRemovals(*limit);
  }
  line.record = Text(values, "record");
  line.plan = values.count("plan") != 0;
  if (line.plan) CheckPlan(values);
  line.dump_hal = Text(values, "dump-hal");
  line.graph = Text(values, "graph");
  if (line.graph) CheckGraph(*line.graph);
  if (const auto key = Text(values, "explain")) line.explain = ReadObjectKey("--explain", *key);
  line.table_size = static_cast<std::size_t>(Number(values, "table-size", kMaxTableSize));
  if (values.count("restart-hal-after") != 0) {
    line.restart_hal_after = static_cast<std::uint64_t>(
        Number(values, "restart-hal-after", std::numeric_limits<std::int64_t>::max()));
  }
  line.hal_socket = ReadHal(values);
  ReadWriting(values, &line);
  line.audit = ReadAudit(values, line);
  line.deadline = std::chrono::seconds(Number(values, "deadline", kMaxDeadline));
  return line;
}

bool IsOption(const std::string& word) {
  const po::options_description options = Options();
  return std::any_of(options.options().begin(), options.options().end(),
                     [&word](const auto& option) { return "--" + option->long_name() == word; });
}

std::string HelpText() {
  std::ostringstream text;
  text << "Usage: zuskux-manager SITE [options]       brings a HAL to what a site describes\n"
          "       zuskux-manager COMMAND [options]    asks a manager that runs with --stay:\n"
       << CommandsHelp() << "  zuskux-manager help COMMAND       show the options of a command\n"
       << "  zuskux-manager help states        explain the states of objects\n"
       << Options()
       << "Exit status: 0 all in place, 1 an error, 2 wrong usage, 3 some objects failed,\n"
          "4 another manager programs the HAL, or no connection to it, 5 the recording\n"
          "ended early.\n";
  return text.str();
}

}  // namespace reference
