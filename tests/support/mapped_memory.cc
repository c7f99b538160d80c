#include "tests/support/mapped_memory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace testing_support {
namespace {

std::size_t PageSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

}  // namespace

Mapping::Mapping(std::uintptr_t address, std::size_t size)
    : pages_(nullptr), size_(address % PageSize() + size) {
  const std::uintptr_t page = address - address % PageSize();
  // The kernel decides whether the address is available.
  void* wanted = reinterpret_cast<void*>(page);  // NOLINT(performance-no-int-to-ptr)
  void* given = mmap(wanted, size_, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | (page == 0 ? 0 : MAP_FIXED_NOREPLACE), -1, 0);
  if (given != MAP_FAILED) pages_ = static_cast<char*>(given);
}

Mapping::~Mapping() {
  if (pages_ != nullptr) munmap(pages_, size_);
}

GuardedBytes::GuardedBytes(std::string_view bytes)
    : mapping_(0, 2 * PageSize()), data_(mapping_.pages() + PageSize() - bytes.size()) {
  if (mapping_.pages() == nullptr || bytes.size() > PageSize() ||
      mprotect(mapping_.pages() + PageSize(), PageSize(), PROT_NONE) != 0) {
    ADD_FAILURE() << "no guarded page for " << bytes.size() << " bytes";
    std::abort();
  }
  bytes.copy(data_, bytes.size());
}

}  // namespace testing_support
