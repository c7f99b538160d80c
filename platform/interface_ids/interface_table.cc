#include "interface_ids/interface_table.h"

#include <utility>

#include "interface_ids/lim_id.h"

namespace interface_ids {

InterfaceTable& InterfaceTable::Global() {
  // Never destroyed: the HAL client library's thread may still trace while the process exits.
  static auto* const table = new InterfaceTable;
  return *table;
}

void InterfaceTable::Set(std::uint32_t lim_id, Interface interface) {
  const std::lock_guard lock(mutex_);
  interfaces_[lim_id] = std::move(interface);
}

void InterfaceTable::Clear() {
  const std::lock_guard lock(mutex_);
  interfaces_.clear();
}

std::optional<Interface> InterfaceTable::Find(std::uint32_t lim_id) const {
  const std::lock_guard lock(mutex_);
  const auto found = interfaces_.find(lim_id);
  if (found == interfaces_.end()) return std::nullopt;
  return found->second;
}

}  // namespace interface_ids

using interface_ids::InterfaceTable;

int limid_to_type(std::uint32_t lim_id, std::uint8_t* type) {
  const auto interface = InterfaceTable::Global().Find(lim_id);
  if (!interface) return -1;
  *type = interface->type;
  return 0;
}

int limid_to_ifindex(std::uint32_t lim_id, std::uint32_t* ifindex) {
  const auto interface = InterfaceTable::Global().Find(lim_id);
  if (!interface) return -1;
  *ifindex = interface->ifindex;
  return 0;
}

int limid_to_intfname(std::uint32_t lim_id, char* name, std::size_t size, int /*flags*/) {
  const auto interface = InterfaceTable::Global().Find(lim_id);
  if (!interface || size == 0) return -1;
  name[interface->name.copy(name, size - 1)] = '\0';
  return 0;
}
