#ifndef ZUSKUX_REFERENCE_SUPPORT_ID_HASH_H_
#define ZUSKUX_REFERENCE_SUPPORT_ID_HASH_H_

#include <cstddef>
#include <cstdint>
#include <random>

namespace reference {

/// The last step of splitmix64: each bit of the result depends on every bit of the input.
inline std::uint64_t MixBits(std::uint64_t bits) {
  bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
  bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
  return bits ^ (bits >> 31);
}

/// The hash of a table whose keys are ids. Clients choose the ids. Each table draws a secret, so
/// clients cannot provoke collisions.
class IdHash {
 public:
  IdHash() {
    std::random_device random;
    secret_ = std::uniform_int_distribution<std::uint64_t>()(random);
  }
  std::size_t operator()(std::uint32_t id) const { return MixBits(id ^ secret_); }

 private:
  std::uint64_t secret_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SUPPORT_ID_HASH_H_
