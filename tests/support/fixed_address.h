#ifndef ZUSKUX_TESTS_SUPPORT_FIXED_ADDRESS_H_
#define ZUSKUX_TESTS_SUPPORT_FIXED_ADDRESS_H_

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>
#include <system_error>
#include <utility>

namespace testing_support {

/// Zeroed memory at a given address for as long as the object lives. Throws `std::system_error`
/// when something else of the process is there.
class FixedMemory {
 public:
  FixedMemory(std::uintptr_t address, std::size_t size) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t offset = address % page;
    length_ = offset + size;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a chosen address is the point.
    pages_ = ::mmap(reinterpret_cast<void*>(address - offset), length_, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (pages_ == MAP_FAILED) {
      throw std::system_error(errno, std::generic_category(), "mapping a chosen address");
    }
    start_ = static_cast<char*>(pages_) + offset;
  }
  ~FixedMemory() { ::munmap(pages_, length_); }
  FixedMemory(const FixedMemory&) = delete;
  FixedMemory& operator=(const FixedMemory&) = delete;

  void* start() const { return start_; }

 private:
  std::size_t length_;
  void* pages_;
  void* start_;
};

/// A `T` at a given address, for texts that show the address of an object.
template <typename T>
class AtAddress {
 public:
  template <typename... Arguments>
  explicit AtAddress(std::uintptr_t address, Arguments&&... arguments)
      : memory_(address, sizeof(T)),
        object_(new (memory_.start()) T(std::forward<Arguments>(arguments)...)) {}
  ~AtAddress() { object_->~T(); }
  AtAddress(const AtAddress&) = delete;
  AtAddress& operator=(const AtAddress&) = delete;

  T* operator->() const { return object_; }

 private:
  FixedMemory memory_;
  T* object_;
};

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FIXED_ADDRESS_H_
