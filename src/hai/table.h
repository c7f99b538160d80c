#ifndef ZUSKUX_HAI_TABLE_H_
#define ZUSKUX_HAI_TABLE_H_

#include <array>
#include <cstddef>

namespace dest_mng {

/// The entry of `table` at `value`, or `fallback` if `value` is out of range.
template <typename T, std::size_t N>
constexpr T EntryOr(const std::array<T, N>& table, int value, T fallback) {
  const auto index = static_cast<unsigned int>(value);
  return index < N ? table[index] : fallback;
}

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_TABLE_H_
