#include "reference/hal/entry_hash.h"

// Compiles the functions into this file, so that short payloads take no call.
#define XXH_INLINE_ALL
#include <xxhash.h>

#include "reference/support/id_hash.h"

namespace reference {
namespace {

std::uint64_t AddByte(std::uint64_t fnv, std::uint8_t byte) { return (fnv ^ byte) * 0x100000001B3; }

std::uint64_t Fnv1a(std::uint32_t id, std::string_view payload) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (int shift = 0; shift < 32; shift += 8) {
    hash = AddByte(hash, static_cast<std::uint8_t>(id >> shift));
  }
  for (const char byte : payload) hash = AddByte(hash, static_cast<std::uint8_t>(byte));
  return MixBits(hash);
}

}  // namespace

std::uint64_t EntryHash(std::uint32_t id, std::string_view payload, EntryHashFunction function) {
  return function == EntryHashFunction::kXxh3
             ? XXH3_64bits_withSeed(payload.data(), payload.size(), id)
             : Fnv1a(id, payload);
}

}  // namespace reference
