#include "reference/wire/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/system/system_error.hpp>
#include <cerrno>

namespace reference {
namespace {

[[noreturn]] void Fail(int error) {
  throw boost::system::system_error(
      boost::system::error_code(error, boost::system::system_category()));
}

}  // namespace

FileLock::FileLock(const std::string& path)
    : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR)) {
  if (file_ < 0) Fail(errno);
  if (flock(file_, LOCK_EX | LOCK_NB) == 0) return;
  const int error = errno;
  close(file_);
  Fail(error);
}

FileLock::~FileLock() {
  // A forked child that has not called exec yet shares the lock; closing the file would leave it
  // held.
  flock(file_, LOCK_UN);
  close(file_);
}

}  // namespace reference
