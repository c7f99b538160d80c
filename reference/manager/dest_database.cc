#include "reference/manager/dest_database.h"

#include <algorithm>
#include <array>
#include <unordered_set>
#include <utility>

namespace reference {
namespace {

// The kinds that other destinations refer to.
constexpr std::array kReferencedKinds = {HalKind::kHost, HalKind::kMpls, HalKind::kVlan};

template <typename SiteObject>
constexpr HalKind kKindOfEntry = HalKind::kVrf;
template <>
constexpr HalKind kKindOfEntry<SiteVlan> = HalKind::kVlan;
template <>
constexpr HalKind kKindOfEntry<SiteHost> = HalKind::kHost;
template <>
constexpr HalKind kKindOfEntry<SiteMpls> = HalKind::kMpls;
template <>
constexpr HalKind kKindOfEntry<SiteEcmp> = HalKind::kEcmp;

template <typename SiteObject>
void AddKeys(const std::vector<SiteObject>& entries,
             std::array<std::unordered_set<std::uint32_t>, kHalKinds>* keys) {
  auto& ids = (*keys)[static_cast<std::size_t>(kKindOfEntry<SiteObject>)];
  ids.reserve(entries.size());
  for (const SiteObject& entry : entries) ids.insert(entry.id);
}

}  // namespace

std::string KeyText(const ObjectKey& key) {
  return std::string(HalKindName(key.kind)) + ':' + std::to_string(key.id);
}

DestDatabase::Changes DestDatabase::Replace(const Site& site) {
  std::array<std::unordered_set<std::uint32_t>, kHalKinds> ids;
  AddKeys(site.vrfs, &ids);
  AddKeys(site.vlans, &ids);
  AddKeys(site.hosts, &ids);
  AddKeys(site.ecmps, &ids);
  AddKeys(site.mpls, &ids);

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
  ReplaceEach(site.vrfs, &changes);
  ReplaceEach(site.vlans, &changes);
  ReplaceEach(site.hosts, &changes);
  ReplaceEach(site.ecmps, &changes);
  ReplaceEach(site.mpls, &changes);
  return changes;
}

template <typename SiteObject>
void DestDatabase::ReplaceEach(const std::vector<SiteObject>& entries, Changes* changes) {
  for (const SiteObject& entry : entries) {
    const ObjectKey key{kKindOfEntry<SiteObject>, entry.id};
    Destination content = MakeDestination(entry);
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
