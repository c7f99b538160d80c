#include "reference/manager/dest_database.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace reference {
namespace {

// The kinds that other destinations refer to.
constexpr std::array kReferencedKinds = {HalKind::kHost, HalKind::kMpls, HalKind::kVlan};

// What a list of a site holds.
template <typename Entries>
using EntryOf = typename std::decay_t<Entries>::value_type;

}  // namespace

std::string KeyText(const ObjectKey& key) {
  return std::string(HalKindName(key.kind)) + ':' + std::to_string(key.id);
}

std::optional<ObjectKey> ParseObjectKey(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return std::nullopt;
  std::uint32_t id = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, id);
  if (error != std::errc() || rest != end) return std::nullopt;
  for (const HalKind kind : kAllHalKinds) {
    if (text.compare(0, colon, HalKindName(kind)) == 0) return ObjectKey{kind, id};
  }
  return std::nullopt;
}

DestDatabase::Changes DestDatabase::Replace(const Site& site) {
  std::array<std::unordered_set<std::uint32_t>, kHalKinds> ids;
  ForEachList(site, [&ids](const auto& entries) {
    auto& of_kind = ids[static_cast<std::size_t>(KindOfEntry<EntryOf<decltype(entries)>>())];
    of_kind.reserve(entries.size());
    for (const auto& entry : entries) of_kind.insert(entry.id);
  });

  Changes changes;
  for (auto entry = objects_.begin(); entry != objects_.end();) {
    Object& object = entry->second;
    if (object.state == ObjectState::kRemoved) {
      entry = objects_.erase(entry);
      continue;
    }
    ++entry;
    if (ids[static_cast<std::size_t>(object.key.kind)].count(object.key.id) != 0) continue;
    // A removal that failed is tried again.
    if (object.wanted || object.state == ObjectState::kFailed) changes.dropped.push_back(&object);
    object.wanted = false;
  }
  ForEachList(site, [this, &changes](const auto& entries) { ReplaceEach(entries, &changes); });
  return changes;
}

template <typename SiteObject>
void DestDatabase::ReplaceEach(const std::vector<SiteObject>& entries, Changes* changes) {
  for (const SiteObject& entry : entries) {
    Destination content = MakeDestination(entry);
    const ObjectKey key{KindOf(content), entry.id};
    const auto [found, created] = objects_.try_emplace(key);
    Object& object = found->second;
    object.key = key;
    object.name = entry.name;
    if (!created && object.wanted && SameContent(object.content, content)) continue;
    object.wanted = true;
    object.content = std::move(content);
    changes->changed.push_back(&object);
  }
}

Object* DestDatabase::Find(const ObjectKey& key) {
  const auto found = objects_.find(key);
  return found == objects_.end() ? nullptr : &found->second;
}

const Object* DestDatabase::Find(const ObjectKey& key) const {
  const auto found = objects_.find(key);
  return found == objects_.end() ? nullptr : &found->second;
}

const Object* DestDatabase::FindReferenced(std::uint32_t id) const {
  const Object* older = nullptr;
  for (const HalKind kind : kReferencedKinds) {
    const Object* const object = Find({kind, id});
    if (object == nullptr) continue;
    if (object->wanted) return object;
    older = object;
  }
  return older;
}

bool DestDatabase::InHal(std::uint32_t id) const {
  return std::any_of(kReferencedKinds.begin(), kReferencedKinds.end(), [this, id](HalKind kind) {
    const Object* const object = Find({kind, id});
    return object != nullptr && object->presence == Presence::kPresent;
  });
}

}  // namespace reference
