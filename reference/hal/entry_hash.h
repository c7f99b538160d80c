#ifndef ZUSKUX_REFERENCE_HAL_ENTRY_HASH_H_
#define ZUSKUX_REFERENCE_HAL_ENTRY_HASH_H_

#include <cstdint>
#include <string_view>

namespace reference {

/// The hash functions that builds use for digests. Digests can be compared only if they use the
/// same one.
enum class EntryHashFunction : std::uint8_t {
  /// 64-bit FNV-1a over the id (4 bytes, little-endian) and the payload, mixed by the last step of
  /// splitmix64. The only one that builds before XXH3 know.
  kFnv1a,
  /// The 64-bit XXH3 of the payload, with the id as the seed.
  kXxh3,
};

/// The hash of one entry, the same in every build. Sums of many hashes stay distinct.
std::uint64_t EntryHash(std::uint32_t id, std::string_view payload,
                        EntryHashFunction function = EntryHashFunction::kXxh3);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_ENTRY_HASH_H_
