#ifndef ZUSKUX_REFERENCE_TEXT_OUTPUT_FILE_H_
#define ZUSKUX_REFERENCE_TEXT_OUTPUT_FILE_H_

#include <string>
#include <string_view>

namespace reference {

/// A file that a program writes at the end of its work and opens at the beginning, so that a wrong
/// path is found before the work. Until `Write`, the previous file at the path stays as it is. Used
/// on one thread.
class OutputFile {
 public:
  /// Opens a nameless file in the same folder, or the device or pipe at `path`. Throws
  /// `std::runtime_error`, with a text for the operator.
  explicit OutputFile(const std::string& path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  /// Removes everything except a file that was written.
  ~OutputFile();

  /// Replaces the file at the path in one step. Call once. Throws as the constructor does; the
  /// previous file then stays.
  void Write(std::string_view text);

 private:
  [[noreturn]] void ThrowCannotWrite(int error) const;
  void OpenNameless();
  void WriteAll(std::string_view text) const;

  const std::string path_;
  /// The file to replace; empty for a device or pipe.
  std::string target_;
  /// The new file's name while it has one.
  std::string temporary_;
  int fd_ = -1;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_OUTPUT_FILE_H_
