#include "reference/wire/socket_access.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

namespace reference {
namespace {

std::string UserName(uid_t id) {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return std::to_string(id);
}

// The owner of the socket or, if its folder hides it, of the innermost folder that is visible.
uid_t OwnerOf(const std::string& path) {
  struct stat found {};
  std::filesystem::path place = std::filesystem::absolute(path);
  while (stat(place.c_str(), &found) != 0 && place.has_relative_path()) {
    place = place.parent_path();
  }
  return found.st_uid;
}

}  // namespace

void CheckSocketAccess(const std::string& path) {
  if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 || errno != EACCES) return;
  const uid_t owner = OwnerOf(path);
  const std::string name = UserName(owner);
  throw std::runtime_error("only " + (owner == 0 ? name : "user " + name + " and root") +
                           " may connect to " + path + "; run this as " + name);
}

}  // namespace reference
