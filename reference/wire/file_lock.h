#ifndef ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_
#define ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_

#include <string>

namespace reference {

/// An exclusive lock between processes, held from construction until destruction or the end of the
/// process. The empty lock file (0600) stays: if it were removed, two holders could lock two files
/// of the same name.
class FileLock {
 public:
  /// Does not block. Throws `boost::system::system_error`: `EWOULDBLOCK` if the lock is held, else
  /// the reason why the file could not be opened.
  explicit FileLock(const std::string& path);
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

 private:
  int file_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_
