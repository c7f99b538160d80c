#include "reference/data_plane/pair_set.h"

#include <cstddef>

namespace reference {
namespace {

constexpr std::size_t kMaxBlock = 128;

}  // namespace

void PairSet::Insert(const Pair& pair) {
  const auto block = std::prev(blocks_.upper_bound(pair));
  Block& pairs = block->second;
  const auto place = std::lower_bound(pairs.begin(), pairs.end(), pair);
  if (place != pairs.end() && *place == pair) return;
  pairs.insert(place, pair);
  if (pairs.size() <= kMaxBlock) return;
  const auto middle = pairs.begin() + kMaxBlock / 2;
  blocks_.emplace_hint(std::next(block), *middle, Block(middle, pairs.end()));
  pairs = Block(pairs.begin(), middle);
}

void PairSet::Erase(const Pair& pair) {
  const auto block = std::prev(blocks_.upper_bound(pair));
  Block& pairs = block->second;
  const auto place = std::lower_bound(pairs.begin(), pairs.end(), pair);
  if (place == pairs.end() || *place != pair) return;
  pairs.erase(place);
  if (pairs.empty() && block != blocks_.begin()) blocks_.erase(block);
}

}  // namespace reference
