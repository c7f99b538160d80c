#ifndef ZUSKUX_TESTS_SUPPORT_MAPPED_MEMORY_H_
#define ZUSKUX_TESTS_SUPPORT_MAPPED_MEMORY_H_

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <utility>

namespace testing_support {

/// Pages mapped for the lifetime of this object.
class Mapping {
 public:
  /// Maps `size` bytes, readable and writable, that contain `address` (anywhere if 0).
  Mapping(std::uintptr_t address, std::size_t size);
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping();

  /// The first page; null if the address is in use in this process.
  char* pages() const { return pages_; }

 private:
  char* pages_;
  std::size_t size_;
};

/// A `T` at a fixed address, so that tests can compare a rendering with an address literally.
template <typename T>
class ObjectAt {
 public:
  template <typename... Arguments>
  explicit ObjectAt(std::uintptr_t address, Arguments&&... arguments)
      : mapping_(address, sizeof(T)) {
    if (mapping_.pages() == nullptr) return;
    // The mapping proves that the address can hold an object.
    void* place = reinterpret_cast<void*>(address);  // NOLINT(performance-no-int-to-ptr)
    object_ = new (place) T(std::forward<Arguments>(arguments)...);
  }
  ObjectAt(const ObjectAt&) = delete;
  ObjectAt& operator=(const ObjectAt&) = delete;
  ~ObjectAt() {
    if (object_ != nullptr) object_->~T();
  }

  /// Null if the address is in use in this process.
  T* get() const { return object_; }

 private:
  Mapping mapping_;
  T* object_ = nullptr;
};

/// A copy of some bytes at the end of a page, before an inaccessible page: reading beyond them ends
/// the process. At most one page.
class GuardedBytes {
 public:
  explicit GuardedBytes(std::string_view bytes);

  char* data() const { return data_; }

 private:
  Mapping mapping_;
  char* data_;
};

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_MAPPED_MEMORY_H_
