#include "zuskux/hai.h"

#include "zuskux/hai_callback.h"

namespace dest_mng {

Hai* Hai::GetInstance() {
  static Hai instance;
  return &instance;
}

Hai::Hai() : callback_(new HaiDestClientCallback) {}

Hai::~Hai() = default;

}  // namespace dest_mng
