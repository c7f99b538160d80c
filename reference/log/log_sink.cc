#include "reference/log/log_sink.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>

#include "reference/text/printable.h"

namespace reference {
namespace {

// Returns to the start of the line and erases it.
constexpr char kWipe[] = "\r\x1b[K";
constexpr std::size_t kDefaultColumns = 80;

const char* LevelName(LogLevel level) {
  constexpr std::array<const char*, 4> kNames = {"ERROR", "WARNING", "INFO", "DEBUG"};
  return kNames.at(static_cast<std::size_t>(level));
}

// The priorities of syslog(3), as systemd reads them.
const char* JournalPrefix(LogLevel level) {
  constexpr std::array<const char*, 4> kPrefixes = {"<3>", "<4>", "<6>", "<7>"};
  return kPrefixes.at(static_cast<std::size_t>(level));
}

std::string LocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  localtime_r(&now.tv_sec, &parts);
  std::array<char, 32> text{};
  const std::size_t size = strftime(text.data(), text.size(), "%F %T.", &parts);
  const std::string microseconds = std::to_string(now.tv_nsec / 1000);
  return std::string(text.data(), size).append(6 - microseconds.size(), '0') + microseconds;
}

// Whether `fd` is the stream that JOURNAL_STREAM identifies; a redirected one is not.
bool IsJournal(int fd) {
  const char* const journal = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  return journal != nullptr && fstat(fd, &status) == 0 &&
         journal == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

std::size_t Columns(int fd) {
  if (isatty(fd) == 0) return 0;
  winsize size{};
  const bool known = ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : kDefaultColumns;
}

// The first `columns` characters of UTF-8 text.
std::string_view CutToWidth(std::string_view text, std::size_t columns) {
  std::size_t end = 0;
  for (; end < text.size(); ++end) {
    const bool starts_character = (static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U;
    if (starts_character && columns-- == 0) break;
  }
  return text.substr(0, end);
}

// Blocks until everything is written; false if the rest cannot be written.
bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      // Another program that shares the stream may have made it non-blocking.
      pollfd room = {fd, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

void IgnoreWriteSignals() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

/// The text waiting to be written, shared with the thread that writes it.
struct LogSink::Queue {
  Queue(std::string name, const Options& options)
      : program(std::move(name)),
        fd(options.fd),
        max_bytes(options.max_queued_bytes),
        journal(IsJournal(options.fd)) {}

  // Call the operations below with `mutex` held.

  std::string StartOfLine(LogLevel level, bool named) const {
    if (journal) return JournalPrefix(level);
    if (times) return LocalTime() + ' ' + LevelName(level) + ' ' + program + ": ";
    return named ? program + ": " : "";
  }

  // Appends a note of how many lines are missing at this place.
  void NoteDropped() {
    if (dropped == 0) return;
    text += StartOfLine(LogLevel::kWarning, true) + std::to_string(dropped) +
            (dropped == 1 ? " line was" : " lines were") +
            " dropped here: standard error was not read in time\n";
    // If the note cannot be written either, it still counts these lines.
    lines += std::exchange(dropped, 0);
  }

  void Add(std::string_view more) {
    const auto count = static_cast<std::uint64_t>(std::count(more.begin(), more.end(), '\n'));
    if (text.empty()) NoteDropped();
    // The first dropped line begins a gap, which ends once the queue has been taken.
    if (dropped != 0 || text.size() + more.size() > max_bytes) {
      dropped += count;
      return;
    }
    text += more;
    lines += count;
    changed.notify_all();
  }

  void AddLines(LogLevel level, std::string_view more, bool named) {
    if (!more.empty() && more.back() == '\n') more.remove_suffix(1);
    const std::string start = StartOfLine(level, named);
    std::string rendered;
    for (std::size_t at = 0; at <= more.size();) {
      const std::size_t end = std::min(more.find('\n', at), more.size());
      rendered.append(start).append(more.substr(at, end - at)).push_back('\n');
      at = end + 1;
    }
    Add(rendered);
  }

  // The writer's thread.
  void Run();

  const std::string program;
  const int fd;
  const std::size_t max_bytes;
  const bool journal;

  std::mutex mutex;
  std::condition_variable changed;
  // Guarded by `mutex`:
  bool times = false;
  std::string text;
  std::uint64_t lines = 0;
  std::uint64_t dropped = 0;
  std::string status;
  bool status_changed = false;
  bool writing = false;
  bool closing = false;
  bool closed = false;
};

void LogSink::Queue::Run() {
  // The program's own threads handle signals, and a reader that went away must not end the program.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);

  bool status_shown = false;
  std::unique_lock lock(mutex);
  for (;;) {
    changed.wait(lock, [this] { return closing || !text.empty() || status_changed; });
    if (text.empty() && !status_changed) break;
    NoteDropped();
    std::string output = (status_shown ? kWipe : "") + std::exchange(text, {});
    const std::uint64_t taken_lines = std::exchange(lines, 0);
    const std::string shown = status;
    status_changed = false;
    writing = true;
    lock.unlock();

    // A character in the last column would move the cursor to the next line.
    output += CutToWidth(shown, std::max<std::size_t>(Columns(fd), 1) - 1);
    status_shown = !shown.empty();
    const bool written = WriteAll(fd, output);

    lock.lock();
    if (!written) dropped += taken_lines;
    writing = false;
    changed.notify_all();
  }
  closed = true;
  changed.notify_all();
}

LogSink::LogSink(std::string program, const Options& options)
    : options_(options),
      queue_(std::make_shared<Queue>(std::move(program), options)),
      writer_([queue = queue_] { queue->Run(); }) {}

LogSink::~LogSink() {
  std::unique_lock lock(queue_->mutex);
  queue_->closing = true;
  queue_->changed.notify_all();
  const bool closed =
      queue_->changed.wait_for(lock, options_.flush_timeout, [this] { return queue_->closed; });
  lock.unlock();
  if (closed) {
    writer_.join();
  } else {
    writer_.detach();
  }
}

void LogSink::ShowTimes() {
  const std::lock_guard lock(queue_->mutex);
  queue_->times = true;
}

void LogSink::Write(LogLevel level, std::string_view text) {
  const std::lock_guard lock(queue_->mutex);
  queue_->AddLines(level, Printable(text), true);
}

void LogSink::WriteDiagnostic(LogLevel level, std::string_view text) {
  const std::lock_guard lock(queue_->mutex);
  queue_->AddLines(level, Printable(text), false);
}

void LogSink::WriteRendered(LogLevel level, std::string_view lines) {
  const std::lock_guard lock(queue_->mutex);
  if (queue_->journal) {
    queue_->AddLines(level, lines, false);
  } else {
    queue_->Add(lines);
  }
}

void LogSink::ShowStatus(std::string_view status) {
  if (columns() == 0) return;
  const std::lock_guard lock(queue_->mutex);
  queue_->status = Printable(status);
  queue_->status_changed = true;
  queue_->changed.notify_all();
}

void LogSink::Flush() {
  std::unique_lock lock(queue_->mutex);
  queue_->changed.wait_for(lock, options_.flush_timeout,
                           [this] { return queue_->text.empty() && !queue_->writing; });
}

std::size_t LogSink::columns() const { return Columns(options_.fd); }

}  // namespace reference
