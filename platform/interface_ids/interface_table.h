#ifndef ZUSKUX_PLATFORM_INTERFACE_IDS_INTERFACE_TABLE_H_
#define ZUSKUX_PLATFORM_INTERFACE_IDS_INTERFACE_TABLE_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace interface_ids {

/// What the platform knows about one logical interface.
struct Interface {
  std::string name;
  std::uint8_t type = 0;
  std::uint32_t ifindex = 0;
};

/// The table behind `limid_to_type`, `limid_to_ifindex` and `limid_to_intfname`. The host fills the
/// global instance, which those functions read. Every operation is thread-safe.
class InterfaceTable {
 public:
  /// The table that the `limid_to_*` functions read.
  static InterfaceTable& Global();

  /// Adds or replaces the interface of `lim_id`.
  void Set(std::uint32_t lim_id, Interface interface);

  /// Removes every interface.
  void Clear();

  /// The interface of `lim_id`, if there is one.
  std::optional<Interface> Find(std::uint32_t lim_id) const;

  /// Calls `read(const Interface&)` with the interface of `lim_id`, under the table's lock. Returns
  /// whether there is one.
  template <typename Read>
  bool Look(std::uint32_t lim_id, Read read) const {
    const std::lock_guard lock(mutex_);
    const auto found = interfaces_.find(lim_id);
    if (found == interfaces_.end()) return false;
    read(found->second);
    return true;
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, Interface> interfaces_;
};

}  // namespace interface_ids

#endif  // ZUSKUX_PLATFORM_INTERFACE_IDS_INTERFACE_TABLE_H_
