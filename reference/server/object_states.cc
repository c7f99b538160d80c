#include "reference/server/object_states.h"

namespace reference {

void ObjectStates::SetAll(const std::vector<HalObjectState>& broken) {
  for (const auto& [key, state] : broken_) untold_.insert(key);
  broken_.clear();
  for (const HalObjectState& state : broken) Set(state);
}

void ObjectStates::Set(const HalObjectState& state) {
  const Key key(state.kind, state.id);
  if (state.code == kHalSuccess) {
    broken_.erase(key);
  } else {
    broken_[key] = state;
  }
  untold_.insert(key);
}

void ObjectStates::Remove(HalKind kind, std::uint32_t id) {
  const Key key(kind, id);
  broken_.erase(key);
  told_.erase(key);
  untold_.erase(key);
}

bool ObjectStates::TellAgain(HalKind kind, std::uint32_t id) {
  const Key key(kind, id);
  told_.erase(key);
  if (broken_.count(key) == 0) return false;
  untold_.insert(key);
  return true;
}

void ObjectStates::NoteRefusal(HalKind kind, std::uint32_t id, HalReturnCode code,
                               std::size_t limit) {
  if (told_.size() < limit) told_[Key(kind, id)] = {kind, id, code, {}};
}

void ObjectStates::TellOfRefusals() {
  for (const auto& [key, state] : told_) untold_.insert(key);
}

void ObjectStates::TellAll() {
  told_.clear();
  untold_.clear();
  for (const auto& [key, state] : broken_) untold_.insert(key);
}

std::vector<HalObjectState> ObjectStates::TakeNews(std::size_t limit) {
  std::vector<HalObjectState> news;
  while (!untold_.empty() && news.size() < limit) {
    const Key key = *untold_.begin();
    untold_.erase(untold_.begin());
    const auto now = broken_.find(key);
    const auto told = told_.find(key);
    if (now == broken_.end()) {
      if (told == told_.end()) continue;
      news.push_back({key.first, key.second, kHalSuccess, {}});
      told_.erase(told);
    } else if (told == told_.end() || told->second != now->second) {
      news.push_back(now->second);
      told_[key] = now->second;
    }
  }
  return news;
}

}  // namespace reference
