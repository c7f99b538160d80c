#ifndef ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_
#define ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_

#include <string>

namespace reference {

/// An exclusive lock among processes, held from construction to destruction or the end of the
/// process. The empty lock file (0600) stays: to remove it would let two holders lock two files of
/// the same name.
class FileLock {
 public:
  /// Does not wait. Throws `boost::system::system_error`: `EWOULDBLOCK` while somebody else holds
  /// the lock, or what kept the file from being opened.
  explicit FileLock(const std::string& path);
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

 private:
  int file_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_FILE_LOCK_H_
