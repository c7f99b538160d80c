#ifndef ZUSKUX_REFERENCE_LOG_LOG_SINK_H_
#define ZUSKUX_REFERENCE_LOG_LOG_SINK_H_

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "reference/log/log_function.h"

namespace reference {

/// Makes a write to a closed pipe, or beyond the limit on file sizes, fail with an error instead of
/// ending the program. For programs with other work besides writing.
void IgnoreWriteSignals();

/// A program's standard error. Logging never blocks or ends the program: a line goes into a bounded
/// queue, which a thread writes out. If nobody reads, the queue fills up and further lines are
/// dropped. Their number is logged as soon as there is room again.
///
/// By default a line is plain ("zuskux-hal: TEXT"), which suits commands that answer and exit.
/// After `ShowTimes` it has a time and a level: "2024-05-17 08:15:30.123456 INFO zuskux-hal: TEXT".
/// If systemd's journal reads the stream, it is "<6>TEXT" in both cases: the journal adds the rest.
///
/// Owned by the program, one for each stream. Every operation is callable on any thread.
class LogSink {
 public:
  struct Options {
    /// Not owned.
    int fd = STDERR_FILENO;
    /// The maximum amount of text waiting to be written, in bytes.
    std::size_t max_queued_bytes = std::size_t{4} << 20;
    /// `Flush` and the destructor wait no longer than this.
    std::chrono::milliseconds flush_timeout{1000};
  };

  LogSink(std::string program, const Options& options);
  explicit LogSink(std::string program) : LogSink(std::move(program), Options()) {}
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  ~LogSink();

  /// From now on, lines have a time and a level.
  void ShowTimes();

  /// Writes one line. Foreign text in `text`, such as names and messages, needs no cleaning: this
  /// function makes it printable, including newlines.
  void Write(LogLevel level, std::string_view text);

  /// Like `Write`, but a plain line is just `text`, for example "site.txtpb:3:1: unknown field".
  void WriteDiagnostic(LogLevel level, std::string_view text);

  /// Writes whole lines that are already complete, for example with their own times.
  void WriteRendered(LogLevel level, std::string_view lines);

  /// On a terminal, shows `status` below the last line, truncated to the terminal's width, in place
  /// of the previous status; an empty one removes it. Otherwise a no-op.
  void ShowStatus(std::string_view status);

  /// Blocks until everything queued has been written.
  void Flush();

  /// The terminal's current width; 0 if the stream is not a terminal.
  std::size_t columns() const;

 private:
  struct Queue;

  const Options options_;
  // The thread shares the queue, so a thread that is stuck in a write can be left behind.
  const std::shared_ptr<Queue> queue_;
  std::thread writer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_LOG_LOG_SINK_H_
