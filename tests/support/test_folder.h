#ifndef ZUSKUX_TESTS_SUPPORT_TEST_FOLDER_H_
#define ZUSKUX_TESTS_SUPPORT_TEST_FOLDER_H_

#include <cstdlib>
#include <filesystem>
#include <string>

namespace reference {

/// A new, empty folder, removed on destruction.
class TestFolder {
 public:
  TestFolder() : path_(std::filesystem::temp_directory_path() / "zuskux-test-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() { std::filesystem::remove_all(path_); }

  std::string Path(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_TEST_FOLDER_H_
