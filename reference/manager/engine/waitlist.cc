#include "reference/manager/engine/waitlist.h"

namespace reference {

void Waitlist::AddForReference(std::uint32_t id, const ObjectKey& object) {
  for_reference_.emplace(id, object);
}

void Waitlist::AddForRoom(const ObjectKey& object) {
  for_room_.at(static_cast<std::size_t>(object.kind)).insert(object.id);
}

std::vector<ObjectKey> Waitlist::TakeForReference(std::uint32_t id) {
  std::vector<ObjectKey> taken;
  auto entry = for_reference_.lower_bound({id, {}});
  while (entry != for_reference_.end() && entry->first == id) {
    taken.push_back(entry->second);
    entry = for_reference_.erase(entry);
  }
  return taken;
}

std::optional<ObjectKey> Waitlist::TakeForRoom(HalKind kind) {
  auto& ids = for_room_.at(static_cast<std::size_t>(kind));
  if (ids.empty()) return std::nullopt;
  const ObjectKey taken{kind, *ids.begin()};
  ids.erase(ids.begin());
  return taken;
}

void Waitlist::Clear() {
  for_reference_.clear();
  for (auto& ids : for_room_) ids.clear();
}

}  // namespace reference
