#include "reference/manager/log_setup.h"

#include <unistd.h>
#include <zlog.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "dest_manager/trace.h"

namespace reference {
namespace {

constexpr char kCategory[] = "zuskux";

// The levels are those that the library logs with; without a limit no line is cut off.
constexpr std::string_view kConfig = R"([global]
buffer max = 0

[levels]
TRACE = 10
HAL_ERROR = 12

[formats]
line = "%d(%F %T).%us %-9V %F:%L %U: %m%n"

[rules]
)";

/// A file in the directory for temporary files, removed again.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view text) {
    const int file = mkstemp(path_.data());
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) close(file);
    if (written) return;
    Remove();
    throw std::runtime_error("cannot write " + path_ + "; set TMPDIR to a directory with room");
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { Remove(); }

  const std::string& path() const { return path_; }

 private:
  void Remove() { unlink(path_.c_str()); }

  std::string path_ = std::filesystem::temp_directory_path() / "zuskux-log-XXXXXX";
};

}  // namespace

void StartLogging(bool trace) {
  std::string config(kConfig);
  config += std::string(kCategory) + (trace ? ".TRACE" : ".HAL_ERROR") + " >stderr; line\n";
  const TemporaryFile file(config);
  StartConfiguredLogging(file.path());
}

void StartConfiguredLogging(const std::string& config_path) {
  if (zlog_init(config_path.c_str()) != 0) {
    throw std::runtime_error("cannot start logging with " + config_path +
                             "; correct the log configuration");
  }
  g_trace = zlog_get_category(kCategory);
}

}  // namespace reference
