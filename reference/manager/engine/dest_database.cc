#include "reference/manager/engine/dest_database.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <utility>

namespace reference {
namespace {

// The kinds that other destinations refer to.
constexpr std::array kReferencedKinds = {HalKind::kHost, HalKind::kMpls, HalKind::kVlan};
constexpr std::uint32_t kMaxId = std::numeric_limits<std::uint32_t>::max();

std::uint32_t NumberOf(const Object& vrf) {
  return std::get<dest_mng::VrfData>(vrf.content).vrf_id;
}

template <typename SiteObject>
bool IsAsWanted(const Object& object, const SiteObject& entry) {
  return object.wanted && object.name == entry.name &&
         SameContent(object.content, MakeHaiObject(entry));
}

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

SiteDifference DestDatabase::Compare(Site site) const {
  SiteDifference difference;
  KeepChanged(&site.vrfs, &difference);
  KeepChanged(&site.vlans, &difference);
  KeepChanged(&site.hosts, &difference);
  KeepChanged(&site.ecmps, &difference);
  KeepChanged(&site.mpls, &difference);
  difference.changed = std::move(site);
  return difference;
}

// Removes the entries that are as their objects. Walks over entries and objects side by side.
template <typename SiteObject>
void DestDatabase::KeepChanged(std::vector<SiteObject>* entries, SiteDifference* difference) const {
  const auto lower_id = [](const SiteObject& a, const SiteObject& b) { return a.id < b.id; };
  if (!std::is_sorted(entries->begin(), entries->end(), lower_id)) {
    std::sort(entries->begin(), entries->end(), lower_id);
  }
  const HalKind kind = KindOfEntry<SiteObject>();
  auto object = objects_.lower_bound({kind, 0});
  const auto last = objects_.upper_bound({kind, kMaxId});
  // Walks past the objects with lower ids than `id`.
  const auto pass = [&](std::uint64_t id) {
    for (; object != last && object->first.id < id; ++object) {
      if (!object->second.wanted) continue;
      ++difference->present;
      difference->gone.push_back(&object->second);
    }
  };
  auto kept = entries->begin();
  for (SiteObject& entry : *entries) {
    pass(entry.id);
    const bool exists = object != last && object->first.id == entry.id;
    const bool as_wanted = exists && IsAsWanted(object->second, entry);
    if (exists) {
      if (object->second.wanted) ++difference->present;
      ++object;
    }
    if (as_wanted) continue;
    if (&*kept != &entry) *kept = std::move(entry);
    ++kept;
  }
  pass(std::uint64_t{kMaxId} + 1);
  entries->erase(kept, entries->end());
  // Whoever applies the difference shall not have to free the memory of a whole site.
  if (entries->size() < entries->capacity() / 2) entries->shrink_to_fit();
}

DestDatabase::Changes DestDatabase::Replace(SiteDifference difference) {
  Changes changes;
  ForgetRemoved();
  Site& changed = difference.changed;
  changes.changed.reserve(CountObjects(changed));
  ReplaceEach(std::move(changed.vlans), &changes);
  ReplaceEach(std::move(changed.hosts), &changes);
  ReplaceEach(std::move(changed.ecmps), &changes);
  ReplaceEach(std::move(changed.mpls), &changes);
  Numbers numbers;
  ReplaceVrfs(&difference, &numbers);
  for (const std::uint32_t number : numbers) {
    if (const Object* const vrf = VrfWithNumber(number)) WantNumber(number, *vrf, &changes);
  }
  RetryRemovals(&changes);
  for (const Object* const gone : difference.gone) {
    if (gone->key.kind == HalKind::kVrf) continue;
    Object* const object = Find(gone->key);
    object->wanted = false;
    unwanted_.insert(object->key);
    changes.dropped.push_back(object);
  }
  for (const std::uint32_t number : numbers) {
    if (VrfWithNumber(number) == nullptr) DropNumber(number, &changes);
  }
  for (const std::uint32_t number : numbers) UpdateVrfsOfNumber(number);
  return changes;
}

void DestDatabase::ForgetRemoved() {
  found_last_ = objects_.end();
  for (auto key = unwanted_.begin(); key != unwanted_.end();) {
    const auto object = objects_.find(*key);
    if (object->second.state() != ObjectState::kRemoved) {
      ++key;
      continue;
    }
    --CountOf(object->second);
    if (key->kind == HalKind::kVrf) numbers_of_vrf_.erase(key->id);
    objects_.erase(object);
    key = unwanted_.erase(key);
  }
  for (auto number = unwanted_numbers_.begin(); number != unwanted_numbers_.end();) {
    const auto entry = vrf_entries_.find({HalKind::kVrf, *number});
    if (entry->second.state() != ObjectState::kRemoved) {
      ++number;
      continue;
    }
    vrfs_of_number_.erase(*number);
    vrf_entries_.erase(entry);
    number = unwanted_numbers_.erase(number);
  }
}

// Frees the entries at its end: otherwise a large site would be in memory twice.
template <typename SiteObject>
void DestDatabase::ReplaceEach(std::vector<SiteObject> entries, Changes* changes) {
  auto hint = objects_.end();
  for (SiteObject& entry : entries) {
    HaiObject content = MakeHaiObject(entry);
    const ObjectKey key{KindOf(content), entry.id};
    const std::size_t before = objects_.size();
    const auto found = objects_.try_emplace(hint, key);
    const bool created = objects_.size() != before;
    hint = std::next(found);
    Object& object = found->second;
    object.key = key;
    object.name = std::move(entry.name);
    if (!created && object.wanted && SameContent(object.content, content)) continue;
    if (!object.wanted) unwanted_.erase(key);
    object.wanted = true;
    if (!created) --CountOf(object);
    object.content = std::move(content);
    ++CountOf(object);
    changes->changed.push_back(&object);
  }
}

// Adds the numbers whose entries may have to change to `numbers`.
void DestDatabase::ReplaceVrfs(SiteDifference* difference, Numbers* numbers) {
  for (const SiteVrf& vrf : difference->changed.vrfs) {
    if (const Object* const before = Find({HalKind::kVrf, vrf.id})) {
      numbers->insert(NumberOf(*before));
    }
    numbers->insert(vrf.vrf_id);
    numbers_of_vrf_[vrf.id].insert(vrf.vrf_id);
    vrfs_of_number_[vrf.vrf_id].insert(vrf.id);
  }
  // The requests concern the entries.
  Changes of_vrfs;
  ReplaceEach(std::move(difference->changed.vrfs), &of_vrfs);
  for (const Object* const gone : difference->gone) {
    if (gone->key.kind != HalKind::kVrf) continue;
    Find(gone->key)->wanted = false;
    unwanted_.insert(gone->key);
    numbers->insert(NumberOf(*gone));
  }
}

void DestDatabase::RetryRemovals(Changes* changes) {
  for (const ObjectKey& key : unwanted_) {
    if (key.kind == HalKind::kVrf) continue;
    Object* const object = Find(key);
    if (object->state() == ObjectState::kFailed) changes->dropped.push_back(object);
  }
  for (const std::uint32_t number : unwanted_numbers_) {
    Object* const entry = FindEntry({HalKind::kVrf, number});
    if (entry->state() == ObjectState::kFailed) changes->dropped.push_back(entry);
  }
}

// The VRF that the number's entry is named after: the first by id. Null if the site has none.
const Object* DestDatabase::VrfWithNumber(std::uint32_t number) const {
  const auto vrfs = vrfs_of_number_.find(number);
  if (vrfs == vrfs_of_number_.end()) return nullptr;
  for (const std::uint32_t id : vrfs->second) {
    const Object* const vrf = Find({HalKind::kVrf, id});
    if (vrf->wanted && NumberOf(*vrf) == number) return vrf;
  }
  return nullptr;
}

void DestDatabase::WantNumber(std::uint32_t number, const Object& vrf, Changes* changes) {
  const ObjectKey key{HalKind::kVrf, number};
  const auto [found, created] = vrf_entries_.try_emplace(key);
  Object& entry = found->second;
  entry.name = vrf.name;
  if (!created && entry.wanted) return;
  if (!entry.wanted) unwanted_numbers_.erase(number);
  entry.key = key;
  entry.content = std::get<dest_mng::VrfData>(vrf.content);
  entry.wanted = true;
  changes->changed.push_back(&entry);
}

void DestDatabase::DropNumber(std::uint32_t number, Changes* changes) {
  Object* const entry = FindEntry({HalKind::kVrf, number});
  if (entry == nullptr || !entry->wanted) return;
  entry->wanted = false;
  unwanted_numbers_.insert(number);
  changes->dropped.push_back(entry);
}

Object* DestDatabase::FindEntry(const ObjectKey& key) {
  if (key.kind == HalKind::kVrf) {
    const auto found = vrf_entries_.find(key);
    return found == vrf_entries_.end() ? nullptr : &found->second;
  }
  if (found_last_ != objects_.end()) ++found_last_;
  if (found_last_ == objects_.end() || !(found_last_->first == key)) {
    found_last_ = objects_.find(key);
  }
  return found_last_ == objects_.end() ? nullptr : &found_last_->second;
}

Object* DestDatabase::NextEntry(const std::optional<ObjectKey>& previous) {
  ObjectKey after{HalKind::kVrf, kMaxId};
  if (!previous || previous->kind == HalKind::kVrf) {
    const auto next = previous ? vrf_entries_.upper_bound(*previous) : vrf_entries_.begin();
    if (next != vrf_entries_.end()) return &next->second;
  } else {
    after = *previous;
  }
  const auto next = objects_.upper_bound(after);
  return next == objects_.end() ? nullptr : &next->second;
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
  UpdateVrfsOfNumber(entry->key.id);
}

void DestDatabase::UpdateVrfsOfNumber(std::uint32_t number) {
  const auto vrfs = vrfs_of_number_.find(number);
  if (vrfs == vrfs_of_number_.end()) return;
  // A copy, because an update may remove a VRF from the set.
  for (const std::uint32_t id : std::set<std::uint32_t>(vrfs->second)) {
    UpdateVrf(Find({HalKind::kVrf, id}));
  }
}

// A VRF has the state of its number's entry, unless the entry of an earlier number of its still
// exists.
void DestDatabase::UpdateVrf(Object* vrf) {
  const std::uint32_t own_number = NumberOf(*vrf);
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
      reason = entry.reason();
      broken = entry.broken;
    }
  }
  vrf->code = code;
  vrf->set_reason(reason);
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
