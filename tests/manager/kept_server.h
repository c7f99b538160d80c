#ifndef ZUSKUX_TESTS_MANAGER_KEPT_SERVER_H_
#define ZUSKUX_TESTS_MANAGER_KEPT_SERVER_H_

#include <sys/types.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace reference {

/// A zuskux-hal that is restarted, without its initial options, whenever it ends.
class KeptServer {
 public:
  /// `program` is zuskux-hal's path.
  KeptServer(std::string program, std::string socket, const std::vector<std::string>& options = {});
  KeptServer(const KeptServer&) = delete;
  KeptServer& operator=(const KeptServer&) = delete;
  ~KeptServer();

  /// Kills the process with SIGKILL; false if it has ended and has not been restarted yet.
  bool Kill();
  /// How often it has been started so far.
  int starts() const;

 private:
  // Call both with `mutex_` held.
  void Start(const std::vector<std::string>& options);
  bool Signal();
  void Keep();

  const std::string program_;
  const std::string socket_;
  mutable std::mutex mutex_;
  // Guarded by `mutex_`:
  pid_t child_ = -1;
  int starts_ = 0;
  bool killed_ = false;
  bool closing_ = false;

  std::thread keeper_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_KEPT_SERVER_H_
