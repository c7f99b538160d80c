// zuskux-record: shows, replays and compares recordings of the requests to a HAL.

#include <algorithm>
#include <boost/program_options.hpp>
#include <cerrno>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "reference/hal/embedded_hal.h"
#include "reference/log/log_sink.h"
#include "reference/record/diff.h"
#include "reference/record/recording_reader.h"
#include "reference/record/replay.h"
#include "reference/record/show.h"
#include "reference/record/steps.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/text/protobuf_log.h"
#include "reference/wire/hal_name.h"
#include "reference/wire/socket_access.h"

namespace {

namespace po = boost::program_options;

using reference::DiffSide;
using reference::HalConnection;
using reference::LogLevel;
using reference::LogSink;
using reference::RecordingReader;

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;
constexpr int kDifferent = 3;
// Otherwise success, but the end of a recording is missing. zuskux-manager uses the same status.
constexpr int kTruncated = 5;

class UsageError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

struct Arguments {
  std::vector<std::string> files;
  // For replay; empty if not given.
  std::string hal;
  // For diff.
  bool json = false;
};

struct Command {
  std::size_t files;
  int (*run)(const Arguments& arguments);
};

LogSink& Log() {
  static LogSink sink("zuskux-record");
  return sink;
}

// For a recording that was read to its end: 0, or `kTruncated` after a warning.
int EndOf(const RecordingReader& recording) {
  if (!recording.cut_at()) return 0;
  Log().WriteDiagnostic(LogLevel::kWarning,
                        recording.name() + ": byte " + std::to_string(*recording.cut_at()) +
                            ": the last entry is truncated; the recording ends before it");
  return kTruncated;
}

int Show(const Arguments& arguments) {
  RecordingReader recording(arguments.files[0]);
  reference::ShowRecording(&recording, &std::cout);
  std::cout << std::flush;
  return EndOf(recording);
}

std::unique_ptr<HalConnection> MakeHal(const std::string& name) {
  if (name == reference::kEmbeddedHal) {
    return std::make_unique<reference::EmbeddedHal>(reference::EmbeddedHalOptions());
  }
  std::optional<std::string> path = reference::UnixHalPath(name);
  if (!path) {
    throw UsageError("--hal '" + name + "' is not a HAL; use --hal embedded, unix or unix:PATH");
  }
  reference::CheckSocketAccess(*path);
  reference::SocketHalOptions options;
  options.path = *std::move(path);
  options.program = "zuskux-record " ZUSKUX_VERSION;
  // The connection keeps trying for a while and calls this each time.
  options.other_writer = [told = false]() mutable {
    if (std::exchange(told, true)) return;
    std::cerr << "zuskux-record: another client programs the HAL server; stop that one first\n";
  };
  return std::make_unique<reference::SocketHal>(std::move(options));
}

int Replay(const Arguments& arguments) {
  if (arguments.hal.empty()) {
    throw UsageError("--hal is missing; add --hal embedded, unix or unix:PATH");
  }
  auto hal = MakeHal(arguments.hal);
  RecordingReader recording(arguments.files[0]);
  const auto steps = reference::ReadSteps(&recording);
  const int end = EndOf(recording);
  reference::ReplayReport report;
  try {
    report = reference::Replay(steps, std::move(hal), reference::ReplayOptions(), &std::cout);
  } catch (const reference::ReplayError& error) {
    const std::string place = reference::UnixHalPath(arguments.hal).value_or(arguments.hal);
    throw reference::ReplayError(place + ": " + error.what());
  }
  std::cout << "requests sent " << report.sent << ", not compared " << report.not_compared
            << ", not sent because the client had refused them " << report.refused
            << ", differences " << report.differences << std::endl;
  return report.differences == 0 ? end : kDifferent;
}

reference::EndState ReadEndState(RecordingReader* recording,
                                 reference::InterfaceNames* interfaces) {
  auto state = reference::ComputeEndState(reference::ReadSteps(recording, interfaces));
  if (state.not_applied != 0) {
    Log().WriteDiagnostic(
        LogLevel::kWarning,
        recording->name() + ": " + std::to_string(state.not_applied) +
            " requests that had succeeded do not fit what precedes them; the recording does not "
            "begin with an empty HAL, and its end state is incomplete");
  }
  return state;
}

int Diff(const Arguments& arguments) {
  RecordingReader a(arguments.files[0]);
  RecordingReader b(arguments.files[1]);
  reference::InterfaceNames a_interfaces;
  reference::InterfaceNames b_interfaces;
  const auto a_state = ReadEndState(&a, &a_interfaces);
  const auto b_state = ReadEndState(&b, &b_interfaces);
  const int end = std::max(EndOf(a), EndOf(b));
  const DiffSide a_side{a.name().c_str(), &a_state.tables, &a.schema(), &a_interfaces};
  const DiffSide b_side{b.name().c_str(), &b_state.tables, &b.schema(), &b_interfaces};
  const auto differences = reference::FindDifferences(a_side, b_side);
  const auto write = arguments.json ? reference::WriteDiffAsJson : reference::WriteDiff;
  write(a_side, b_side, differences, &std::cout);
  std::cout << std::flush;
  return differences.empty() ? end : kDifferent;
}

const Command& FindCommand(const std::string& name) {
  static const std::map<std::string, Command> commands = {
      {"show", {1, Show}}, {"replay", {1, Replay}}, {"diff", {2, Diff}}};
  const auto command = commands.find(name);
  if (command == commands.end()) {
    throw UsageError("'" + name + "' is not a command; use show, replay or diff");
  }
  return command->second;
}

po::options_description Options() {
  po::options_description options("Options");
  options.add_options()                                     //
      ("hal", po::value<std::string>()->value_name("HAL"),  //
       "where replay sends the requests: embedded, unix or unix:PATH; empties the "
       "tables at each point where the recording found a server")  //
      ("json", "write the result of diff as JSON")                 //
      ("help,h", "show this help and exit")                        //
      ("version", "show the version and exit");
  return options;
}

po::variables_map ReadCommandLine(int argc, char** argv, const po::options_description& shown) {
  po::options_description all;
  all.add(shown).add_options()("words", po::value<std::vector<std::string>>());
  po::positional_options_description words;
  words.add("words", -1);
  namespace style = po::command_line_style;
  po::variables_map values;
  try {
    po::store(po::command_line_parser(argc, argv)
                  .options(all)
                  .positional(words)
                  .style(style::unix_style & ~style::allow_guessing)
                  .run(),
              values);
  } catch (const po::error& error) {
    throw UsageError(error.what());
  }
  return values;
}

int RunCommand(const po::variables_map& values) {
  if (values.count("words") == 0) {
    throw UsageError("a command is missing; use show, replay or diff");
  }
  const auto& words = values["words"].as<std::vector<std::string>>();
  const Command& command = FindCommand(words[0]);
  Arguments arguments;
  arguments.files.assign(words.begin() + 1, words.end());
  if (arguments.files.size() != command.files) {
    throw UsageError(words[0] + " takes " + std::to_string(command.files) + " recording" +
                     (command.files == 1 ? "" : "s") + ", not " +
                     std::to_string(arguments.files.size()));
  }
  if (values.count("hal") != 0) {
    if (words[0] != "replay") throw UsageError("--hal is an option of replay; leave it out");
    arguments.hal = values["hal"].as<std::string>();
  }
  arguments.json = values.count("json") != 0;
  if (arguments.json && words[0] != "diff") {
    throw UsageError("--json is an option of diff; leave it out");
  }
  return command.run(arguments);
}

int Run(int argc, char** argv) {
  const po::options_description options = Options();
  const po::variables_map values = ReadCommandLine(argc, argv, options);
  if (values.count("help") != 0) {
    std::cout << "Usage: zuskux-record show FILE\n"
              << "       zuskux-record replay FILE --hal HAL\n"
              << "       zuskux-record diff FILE FILE [--json]\n"
              << "Shows a recording line by line, sends its requests again and compares the\n"
              << "results, or compares what two recordings leave in the HAL.\n\n"
              << options
              << "\nExit status: 0 no differences, 1 an error, 2 wrong usage, 3 differences,\n"
              << "5 as 0, but the end of a recording is missing.\n";
    return 0;
  }
  if (values.count("version") != 0) {
    std::cout << "zuskux-record " ZUSKUX_VERSION "\n";
    return 0;
  }
  const int code = RunCommand(values);
  if (!std::cout) throw std::system_error(errno, std::generic_category(), "standard output");
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  // Our own line reports what does not decode.
  reference::SilenceProtobufLog();
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    Log().Write(LogLevel::kError, std::string(error.what()) + "; see --help");
    return kBadUsage;
  } catch (const std::exception& error) {
    Log().Write(LogLevel::kError, error.what());
    return kFailed;
  }
}
