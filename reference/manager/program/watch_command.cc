#include "reference/manager/program/watch_command.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/manager/program/control_client.h"
#include "reference/manager/program/exit_status.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/report.h"
#include "reference/manager/views/status.h"
#include "reference/text/local_time.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

constexpr Clock::duration kInterval = std::chrono::seconds(1);
// The manager takes a while to list a large site. Watching may take at most a tenth of its time.
constexpr int kPausePerLook = 9;

/// The signals that end the command. Delivered only while it waits for them.
class EndSignals {
 public:
  EndSignals() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM}) sigaddset(&signals_, signal);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }

  /// Waits for a signal, at most for `time`. Returns whether one came.
  bool Wait(Clock::duration time) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - seconds);
    const timespec limit{seconds.count(), rest.count()};
    return sigtimedwait(&signals_, nullptr, &limit) > 0;
  }

 private:
  sigset_t signals_{};
};

struct TerminalSize {
  std::size_t lines = 24;
  std::size_t columns = 80;
};

// The size of the terminal, if standard output is one.
std::optional<TerminalSize> SizeOfTerminal() {
  if (isatty(STDOUT_FILENO) == 0) return std::nullopt;
  TerminalSize usual;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return usual;
  if (size.ws_row != 0) usual.lines = size.ws_row;
  if (size.ws_col != 0) usual.columns = size.ws_col;
  return usual;
}

// Where to break a line that is longer than `columns`: after the last comma that fits or, without
// one, at a space. `indent` columns at the beginning are not broken.
std::size_t BreakOf(const std::string& line, std::size_t columns, std::size_t indent) {
  const std::size_t comma = columns == 0 ? 0 : line.rfind(", ", columns - 1);
  if (comma != std::string::npos && comma > indent) return comma + 1;
  const std::size_t space = line.rfind(' ', columns);
  return space != std::string::npos && space > indent ? space : line.find(' ', columns);
}

// Breaks the long lines above the first table.
std::string WrapHead(const std::string& text, std::size_t columns) {
  const std::string indent = "    ";
  std::istringstream lines(text);
  std::string result;
  std::string line;
  while (std::getline(lines, line) && !line.empty()) {
    while (line.size() > columns) {
      const std::size_t space = BreakOf(line, columns, indent.size());
      if (space == std::string::npos) break;
      result += line.substr(0, space) + '\n';
      line.replace(0, space + 1, indent);
    }
    result += line + '\n';
  }
  return result + '\n' + std::string(std::istreambuf_iterator<char>(lines), {});
}

// Writes as many of the objects that are not in order as fit into `height` lines.
void WriteNotInOrder(const std::string& control, std::size_t height, std::ostream* out) {
  // The header, the states' meanings, the empty lines around them, and the number of the others.
  constexpr std::size_t kOtherLines = 6;
  const std::size_t limit = std::max(height, kOtherLines + 1) - kOtherLines;
  std::vector<ObjectRow> rows;
  const Json answer =
      AskManager(control, {{"request", "objects"}, {"not_in_order", true}, {"limit", limit}},
                 [&rows](const Json& line) { rows.push_back(RowOfJson(line.at("object"))); });
  if (rows.empty() || !answer.contains("summary")) return;
  *out << '\n';
  WriteRows(rows, out);
  const Summary summary(answer.at("summary"));
  const std::size_t all = summary.count(Standing::kPending) + summary.count(Standing::kFailed);
  if (rows.size() == limit && all > limit) *out << "and " << all - limit << " more\n";
}

std::string Screen(const std::string& control, const Json& status, const TerminalSize& size) {
  std::ostringstream text;
  WriteBriefStatus(status, &text);
  std::string brief = WrapHead(text.str(), size.columns - 1);
  if (Summary(status.at("summary")).complete()) return brief;
  const auto used = static_cast<std::size_t>(std::count(brief.begin(), brief.end(), '\n'));
  std::ostringstream objects;
  WriteNotInOrder(control, std::max(size.lines, used) - used, &objects);
  return brief + objects.str();
}

// Draws over the previous screen. The terminal truncates longer lines.
void Draw(const std::string& screen, std::size_t height, std::ostream* out) {
  *out << "\x1b[?7l\x1b[H";
  std::istringstream text(screen);
  std::string line;
  for (std::size_t i = 0; i < height && std::getline(text, line); ++i) *out << line << "\x1b[K\n";
  *out << "\x1b[J\x1b[?7h";
}

/// What standard output shows so far.
class Shown {
 public:
  void Update(const std::string& control, const Json& status) {
    if (auto size = SizeOfTerminal()) {
      std::ostringstream drawn;
      // The cursor needs a line.
      --size->lines;
      Draw(Screen(control, status, *size), size->lines, &drawn);
      text_ = drawn.str();
      return;
    }
    const std::string line = StatusLine(status);
    text_ = line == line_ ? "" : LocalTime() + ' ' + line + '\n';
    line_ = line;
  }

  void Write() const {
    std::cout << text_ << std::flush;
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
  }

 private:
  std::string text_;
  std::string line_;
};

}  // namespace

int WatchManager(const CommandArguments& arguments) {
  const EndSignals signals;
  Shown shown;
  bool first = true;
  while (true) {
    const Clock::time_point start = Clock::now();
    try {
      const Json answer = AskManager(arguments.control, {{"request", "status"}});
      if (!answer.contains("status")) {
        LogLine(LogLevel::kError, answer.at("error").get<std::string>());
        return answer.at("exit_status").get<int>();
      }
      shown.Update(arguments.control, answer.at("status"));
    } catch (const std::runtime_error& error) {
      if (first) throw;
      LogLine(LogLevel::kError, error.what());
      return kExitNotConnected;
    }
    shown.Write();
    first = false;
    if (signals.Wait(std::max(kInterval, kPausePerLook * (Clock::now() - start)))) {
      return EXIT_SUCCESS;
    }
  }
}

}  // namespace reference
