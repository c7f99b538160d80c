#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_LOG_SETUP_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_LOG_SETUP_H_

#include <array>
#include <string>
#include <thread>

#include "reference/log/log_sink.h"

namespace reference {

/// The library's log for the lifetime of the object: starts zlog and opens the category that the
/// library logs to. Create it before the first request and destroy it after the library's last use.
/// One at a time.
class LibraryLog {
 public:
  /// Logs to `sink`, which is not owned, with or without the trace lines. zlog writes to a pipe
  /// that a thread of this object drains, so a slow reader of the sink never blocks it. Throws
  /// `std::runtime_error`.
  LibraryLog(bool trace, LogSink* sink);

  /// Logs as the configuration file says. Throws `std::runtime_error` after zlog has named the
  /// mistake on stderr.
  explicit LibraryLog(const std::string& config_path);

  LibraryLog(const LibraryLog&) = delete;
  LibraryLog& operator=(const LibraryLog&) = delete;
  ~LibraryLog();

 private:
  void Close();

  // The reader's and the writer's end; -1 without a pipe.
  std::array<int, 2> pipe_ = {-1, -1};
  std::thread reader_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_LOG_SETUP_H_
