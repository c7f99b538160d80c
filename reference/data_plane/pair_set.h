#ifndef ZUSKUX_REFERENCE_DATA_PLANE_PAIR_SET_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_PAIR_SET_H_

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

namespace reference {

/// An ordered set of pairs of ids, in sorted blocks: a pair takes about 16 bytes, where a std::set
/// takes 48. Every change takes logarithmic time. Used by one thread.
class PairSet {
 public:
  using Pair = std::pair<std::uint32_t, std::uint32_t>;

  /// A no-op if the set has the pair.
  void Insert(const Pair& pair);
  /// A no-op if the set does not have the pair.
  void Erase(const Pair& pair);

  /// Calls `use`, which must not change the set, with the second id of each pair that begins with
  /// `first`, in ascending order.
  template <typename Use>
  void ForEach(std::uint32_t first, Use use) const {
    const Pair least(first, 0);
    for (auto block = BlockFor(least); block != blocks_.end(); ++block) {
      const Block& pairs = block->second;
      for (auto it = std::lower_bound(pairs.begin(), pairs.end(), least); it != pairs.end(); ++it) {
        if (it->first != first) return;
        use(it->second);
      }
    }
  }

 private:
  using Block = std::vector<Pair>;
  // By the least pair that belongs in the block. All its pairs are below the next block's key.
  using Blocks = std::map<Pair, Block>;

  Blocks::const_iterator BlockFor(const Pair& pair) const {
    return std::prev(blocks_.upper_bound(pair));
  }

  // The first block stays, even if it is empty.
  Blocks blocks_ = {{Pair(), Block()}};
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_PAIR_SET_H_
