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

/// Makes a closed pipe, and a limit on the size of files, an error of the write that meets it
/// instead of the end of the program. For programs with work to do besides writing.
void IgnoreWriteSignals();

/// A program's standard error. Logging never blocks or ends the work: a line goes into a bounded
/// queue, which a thread writes out. When nobody reads, the queue fills up and further lines are
/// dropped; their number is written as soon as there is room again.
///
/// A line is plain at first ("zuskux-hal: TEXT"), which suits commands that answer and end. After
/// `ShowTimes` it has a time and a level: "2024-05-17 08:15:30.123456 INFO zuskux-hal: TEXT". When
/// systemd's journal reads the stream it is "<6>TEXT" in both cases: the journal adds the rest.
///
/// Owned by the program, one for each stream. Every operation is callable on any thread.
class LogSink {
 public:
  struct Options {
    /// Not owned.
    int fd = STDERR_FILENO;
    /// As much text may wait to be written.
    std::size_t max_queued_bytes = std::size_t{4} << 20;
    /// `Flush` and the destructor wait no longer than this.
    std::chrono::milliseconds flush_timeout{1000};
  };

  LogSink(std::string program, const Options& options);
  explicit LogSink(std::string program) : LogSink(std::move(program), Options()) {}
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  ~LogSink();

  /// From here on lines have a time and a level.
  void ShowTimes();

  /// Writes one line. What `text` has of others' names and messages needs no cleaning: it is made
  /// printable here, newlines included.
  void Write(LogLevel level, std::string_view text);

  /// As `Write`, but a plain line is just `text`, for example "site.txtpb:3:1: unknown field".
  void WriteDiagnostic(LogLevel level, std::string_view text);

  /// Writes whole lines that already have what a reader needs, a time for example.
  void WriteRendered(LogLevel level, std::string_view lines);

  /// On a terminal, shows `status` below the last line in place of the previous one, cut to the
  /// terminal's width; an empty one is removed. Elsewhere a no-op.
  void ShowStatus(std::string_view status);

  /// Waits until what is queued has been written.
  void Flush();

  /// The terminal's present width, 0 if the stream is not a terminal.
  std::size_t columns() const;

 private:
  struct Queue;

  const Options options_;
  // The thread keeps the queue alive: a thread that is stuck in a write is left behind.
  const std::shared_ptr<Queue> queue_;
  std::thread writer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_LOG_LOG_SINK_H_
