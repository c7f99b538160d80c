#include "reference/text/file_remedy.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace reference {

std::string FileRemedy(const std::string& path, int error) {
  const std::string folder = std::filesystem::path(path).parent_path();
  std::error_code ignored;
  switch (error) {
    case ENOENT:
      if (folder.empty() || std::filesystem::exists(folder, ignored)) break;
      return "create the folder first with mkdir -p " + folder + ", or correct the path";
    case EACCES:
    case EPERM:
    case EROFS:
      return "name a file in a folder that you may write to";
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return "free space there, or name a file elsewhere";
    default:
      break;
  }
  return "name another file";
}

}  // namespace reference
