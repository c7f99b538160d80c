#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_HANDLER_MEMORY_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_HANDLER_MEMORY_H_

#include <array>
#include <cstddef>
#include <new>
#include <utility>

namespace reference {

/// Memory for one asynchronous operation at a time, so that a loop of reads or writes does not
/// allocate. Larger operations fall back to the heap. Used by one thread at a time.
class HandlerMemory {
 public:
  HandlerMemory() = default;
  HandlerMemory(const HandlerMemory&) = delete;
  HandlerMemory& operator=(const HandlerMemory&) = delete;

  void* Allocate(std::size_t size) {
    if (in_use_ || size > bytes_.size()) return ::operator new(size);
    in_use_ = true;
    return bytes_.data();
  }

  void Free(void* pointer) {
    if (pointer == bytes_.data()) {
      in_use_ = false;
    } else {
      ::operator delete(pointer);
    }
  }

 private:
  alignas(std::max_align_t) std::array<std::byte, 512> bytes_{};
  bool in_use_ = false;
};

/// The allocator that an operation obtains from its handler.
template <typename T>
class HandlerAllocator {
 public:
  using value_type = T;

  explicit HandlerAllocator(HandlerMemory* memory) : memory_(memory) {}
  template <typename Other>
  HandlerAllocator(const HandlerAllocator<Other>& other)  // NOLINT(google-explicit-constructor)
      : memory_(other.memory()) {}

  T* allocate(std::size_t count) { return static_cast<T*>(memory_->Allocate(sizeof(T) * count)); }
  void deallocate(T* pointer, std::size_t /*count*/) { memory_->Free(pointer); }
  HandlerMemory* memory() const { return memory_; }

 private:
  HandlerMemory* memory_;
};

template <typename T, typename Other>
bool operator==(const HandlerAllocator<T>& a, const HandlerAllocator<Other>& b) {
  return a.memory() == b.memory();
}
template <typename T, typename Other>
bool operator!=(const HandlerAllocator<T>& a, const HandlerAllocator<Other>& b) {
  return !(a == b);
}

/// A handler whose operation lives in `memory`. The memory must outlive the operation; the handler
/// can ensure that by owning the object that contains it.
template <typename Handler>
class HandlerIn {
 public:
  using allocator_type = HandlerAllocator<void>;

  HandlerIn(HandlerMemory* memory, Handler handler)
      : memory_(memory), handler_(std::move(handler)) {}

  template <typename... Arguments>
  void operator()(Arguments&&... arguments) {
    handler_(std::forward<Arguments>(arguments)...);
  }

  allocator_type get_allocator() const noexcept { return allocator_type{memory_}; }

 private:
  HandlerMemory* memory_;
  Handler handler_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_HANDLER_MEMORY_H_
