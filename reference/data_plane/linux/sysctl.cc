#include "reference/data_plane/linux/sysctl.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace reference {

std::string ReadSysctl(const std::string& path) {
  std::ifstream file(path);
  std::string value;
  std::getline(file, value);
  return value;
}

int WriteSysctl(const std::string& path, const std::string& value) {
  const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) return errno;
  const int error = write(file, value.data(), value.size()) < 0 ? errno : 0;
  close(file);
  return error;
}

}  // namespace reference
