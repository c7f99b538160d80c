#include "zuskux/hai.h"

#include <atomic>

#include "zuskux/hai_callback.h"

namespace dest_mng {

namespace {

// Out of line, because each request passes GetInstance twice and the construction would make it
// save registers.
[[gnu::noinline, gnu::cold]] Hai* FirstInstance(std::atomic<Hai*>* built) {
  static Hai instance;
  built->store(&instance, std::memory_order_release);
  return &instance;
}

}  // namespace

Hai* Hai::GetInstance() {
  static std::atomic<Hai*> built = nullptr;
  Hai* const instance = built.load(std::memory_order_acquire);
  return instance != nullptr ? instance : FirstInstance(&built);
}

Hai::Hai() : callback_(new HaiDestClientCallback) {}

Hai::~Hai() = default;

}  // namespace dest_mng
