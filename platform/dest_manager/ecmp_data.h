#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_ECMP_DATA_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_ECMP_DATA_H_

#include <cstdint>
#include <vector>

namespace dest_mng {

/// An ECMP group: spreads traffic over several next-hop destinations. Owned by the destination
/// manager.
///
/// The position of `db_id` is part of the binary interface.
struct __attribute__((visibility("default"))) EcmpData {
  /// The group's database id.
  std::uint32_t db_id = 0;
  /// Database ids of the next-hop destinations, in the group's order; an id may be repeated.
  std::vector<unsigned int> nhops;

  /// A copy of `nhops`.
  std::vector<unsigned int> NhopsDestId() const;
};

}  // namespace dest_mng

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_ECMP_DATA_H_
