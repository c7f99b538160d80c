#include "interface_ids/interface_table.h"

#include <utility>

#include "interface_ids/lim_id.h"

namespace interface_ids {

InterfaceTable& InterfaceTable::Global() {
  // Never destroyed: the HAL client library's thread may still trace during process exit.
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
  std::optional<Interface> copy;
  Look(lim_id, [&copy](const Interface& interface) { copy = interface; });
  return copy;
}

}  // namespace interface_ids

using interface_ids::Interface;
using interface_ids::InterfaceTable;

int limid_to_type(std::uint32_t lim_id, std::uint8_t* type) {
  const auto read = [type](const Interface& interface) { *type = interface.type; };
  return InterfaceTable::Global().Look(lim_id, read) ? 0 : -1;
}

int limid_to_ifindex(std::uint32_t lim_id, std::uint32_t* ifindex) {
  *ifindex = 0;
  const auto read = [ifindex](const Interface& interface) { *ifindex = interface.ifindex; };
  return InterfaceTable::Global().Look(lim_id, read) ? 0 : -1;
}

int limid_to_intfname(std::uint32_t lim_id, char* name, std::size_t size, int /*flags*/) {
  if (size == 0) return -1;
  const auto read = [name, size](const Interface& interface) {
    name[interface.name.copy(name, size - 1)] = '\0';
  };
  return InterfaceTable::Global().Look(lim_id, read) ? 0 : -1;
}
