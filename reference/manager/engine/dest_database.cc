#include "reference/manager/engine/dest_database.h"

#include <array>
#include <charconv>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace reference {
namespace {

// The kinds that other destinations refer to.
constexpr std::array kReferencedKinds = {HalKind::kHost, HalKind::kMpls, HalKind::kVlan};

// The type of the entries in a site's list.
template <typename Entries>
using EntryOf = typename std::decay_t<Entries>::value_type;

/// Which objects a site has.
class SiteKeys {
 public:
  explicit SiteKeys(const Site& site) {
    ForEachList(site, [this](const auto& entries) {
      auto& of_kind = ids_[static_cast<std::size_t>(KindOfEntry<EntryOf<decltype(entries)>>())];
      of_kind.reserve(entries.size());
      for (const auto& entry : entries) of_kind.insert(entry.id);
    });
  }

  bool Contains(const ObjectKey& key) const {
    return ids_.at(static_cast<std::size_t>(key.kind)).count(key.id) != 0;
  }

 private:
  std::array<std::unordered_set<std::uint32_t>, kHalKinds> ids_;
};

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

Standing StandingOf(const Object& object) {
  switch (object.state()) {
    case ObjectState::kPending:
      return Standing::kPending;
    case ObjectState::kInstalled:
      return IsInactive(object.content) ? Standing::kInactive : Standing::kInstalled;
    case ObjectState::kSent:
      return Standing::kSent;
    case ObjectState::kFailed:
      return Standing::kFailed;
    case ObjectState::kRemoved:
      break;
  }
  return Standing::kRemoved;
}

DestDatabase::Removals DestDatabase::RemovalsBy(const Site& site) const {
  const SiteKeys kept(site);
  Removals removals;
  for (const auto& [key, object] : objects_) {
    if (!object.wanted) continue;
    ++removals.present;
    if (!kept.Contains(key)) removals.objects.push_back(&object);
  }
  return removals;
}

DestDatabase::Changes DestDatabase::Replace(const Site& site) {
  const SiteKeys kept(site);
  Changes changes;
  for (auto entry = objects_.begin(); entry != objects_.end();) {
    Object& object = entry->second;
    if (object.state() == ObjectState::kRemoved) {
      --CountOf(object);
      if (object.key.kind == HalKind::kVrf) numbers_of_vrf_.erase(object.key.id);
      entry = objects_.erase(entry);
      continue;
    }
    ++entry;
    if (kept.Contains(object.key)) continue;
    if (object.key.kind == HalKind::kVrf) {
      object.wanted = false;
    } else {
      Drop(&object, &changes);
    }
  }
  ForEachList(site, [this, &changes](const auto& entries) { ReplaceEach(entries, &changes); });
  return changes;
}

// A failed removal is tried again.
void DestDatabase::Drop(Object* entry, Changes* changes) {
  if (entry->wanted || entry->state() == ObjectState::kFailed) changes->dropped.push_back(entry);
  entry->wanted = false;
}

void DestDatabase::ReplaceEach(const std::vector<SiteVrf>& vrfs, Changes* changes) {
  Changes of_vrfs;
  ReplaceEach<SiteVrf>(vrfs, &of_vrfs);

  std::map<std::uint32_t, const SiteVrf*> wanted;
  for (const SiteVrf& vrf : vrfs) {
    wanted.emplace(vrf.vrf_id, &vrf);
    numbers_of_vrf_[vrf.id].insert(vrf.vrf_id);
    vrfs_of_number_[vrf.vrf_id].insert(vrf.id);
  }
  for (auto place = vrf_entries_.begin(); place != vrf_entries_.end();) {
    Object& entry = place->second;
    if (entry.state() == ObjectState::kRemoved) {
      if (wanted.count(entry.key.id) == 0) vrfs_of_number_.erase(entry.key.id);
      place = vrf_entries_.erase(place);
      continue;
    }
    ++place;
    if (wanted.count(entry.key.id) == 0) Drop(&entry, changes);
  }
  for (const auto& [number, vrf] : wanted) {
    const ObjectKey key{HalKind::kVrf, number};
    const auto [found, created] = vrf_entries_.try_emplace(key);
    Object& entry = found->second;
    entry.name = vrf->name;
    if (!created && entry.wanted) continue;
    entry.key = key;
    entry.content = MakeHaiObject(*vrf);
    entry.wanted = true;
    changes->changed.push_back(&entry);
  }
  for (const auto& [id, numbers] : numbers_of_vrf_) UpdateVrf(Find({HalKind::kVrf, id}));
}

template <typename SiteObject>
void DestDatabase::ReplaceEach(const std::vector<SiteObject>& entries, Changes* changes) {
  for (const SiteObject& entry : entries) {
    HaiObject content = MakeHaiObject(entry);
    const ObjectKey key{KindOf(content), entry.id};
    const auto [found, created] = objects_.try_emplace(key);
    Object& object = found->second;
    object.key = key;
    object.name = entry.name;
    if (!created && object.wanted && SameContent(object.content, content)) continue;
    object.wanted = true;
    if (!created) --CountOf(object);
    object.content = std::move(content);
    ++CountOf(object);
    changes->changed.push_back(&object);
  }
}

Object* DestDatabase::FindEntry(const ObjectKey& key) {
  if (key.kind != HalKind::kVrf) return Find(key);
  const auto found = vrf_entries_.find(key);
  return found == vrf_entries_.end() ? nullptr : &found->second;
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
  const Object* const object = FindReferenced(id);
  return object != nullptr && object->wanted && object->presence == Presence::kPresent;
}

void DestDatabase::SetState(Object* entry, ObjectState state) {
  if (entry->key.kind != HalKind::kVrf) {
    SetStateOf(entry, state);
    return;
  }
  entry->state_ = state;
  const std::set<std::uint32_t> vrfs = vrfs_of_number_[entry->key.id];
  for (const std::uint32_t id : vrfs) UpdateVrf(Find({HalKind::kVrf, id}));
}

// A VRF has the state of its number's entry, unless the entry of an earlier number of its still
// exists.
void DestDatabase::UpdateVrf(Object* vrf) {
  const std::uint32_t own_number = std::get<dest_mng::VrfData>(vrf->content).vrf_id;
  ObjectState state = ObjectState::kRemoved;
  HalReturnCode code = kHalSuccess;
  std::string reason;
  bool broken = false;
  auto& numbers = numbers_of_vrf_[vrf->key.id];
  for (auto number = numbers.begin(); number != numbers.end();) {
    const Object& entry = vrf_entries_.at({HalKind::kVrf, *number});
    const bool own = vrf->wanted && *number == own_number;
    if (!own && (entry.wanted || entry.state() == ObjectState::kRemoved)) {
      vrfs_of_number_[*number].erase(vrf->key.id);
      number = numbers.erase(number);
      continue;
    }
    ++number;
    const bool left_is_there =
        entry.state() == ObjectState::kPending || entry.state() == ObjectState::kFailed;
    if ((own && state == ObjectState::kRemoved) || (!own && left_is_there)) {
      state = entry.state();
      code = entry.code;
      reason = entry.reason;
      broken = entry.broken;
    }
  }
  vrf->code = code;
  vrf->reason = std::move(reason);
  vrf->broken = broken;
  SetStateOf(vrf, state);
}

void DestDatabase::SetStateOf(Object* object, ObjectState state) {
  const bool changes = object->state() != state;
  --CountOf(*object);
  object->state_ = state;
  ++CountOf(*object);
  if (changes && changed_) changed_(*object);
}

std::size_t& DestDatabase::CountOf(const Object& object) {
  return counts_.at(static_cast<std::size_t>(object.key.kind))
      .at(static_cast<std::size_t>(StandingOf(object)));
}

}  // namespace reference
