#include "reference/manager/engine/audit.h"

#include <algorithm>
#include <utility>

#include "reference/manager/engine/adapters.h"

namespace reference {

void AcknowledgedDigests::WillChange(Object* entry) {
  if (!all_read_ || changed_.size() == kMaxChanged) {
    Invalidate();
    return;
  }
  if (std::exchange(entry->in_digest, false)) {
    HalDigest& digest = digests_.of(entry->key.kind);
    --digest.count;
    digest.sum -= entry->digest_hash;
  }
  changed_.push_back(entry->key);
}

bool AcknowledgedDigests::Continue(DestDatabase* database, std::size_t max_entries) {
  for (; !all_read_; --max_entries) {
    Object* const entry = database->NextEntry(last_read_);
    if (entry == nullptr) break;
    if (max_entries == 0) return false;
    last_read_ = entry->key;
    Read(entry);
  }
  all_read_ = true;
  for (; !changed_.empty(); --max_entries) {
    if (max_entries == 0) return false;
    Object* const entry = database->FindEntry(changed_.back());
    changed_.pop_back();
    if (entry != nullptr && !entry->in_digest) Read(entry);
  }
  return true;
}

void AcknowledgedDigests::Read(Object* entry) {
  entry->in_digest = entry->wanted && entry->presence == Presence::kPresent;
  if (!entry->in_digest) return;
  const HalMessage message = TranslateForHal(entry->content);
  entry->digest_hash = EntryHash(message.id, message.payload, digests_.function);
  HalDigest& digest = digests_.of(entry->key.kind);
  ++digest.count;
  digest.sum += entry->digest_hash;
}

bool ReinstallBackoff::Allow(Time now) {
  if (not_before_ && now < *not_before_) return false;
  not_before_ = now + pause_;
  pause_ = std::min(2 * pause_, kLastPause);
  return true;
}

void ReinstallBackoff::InOrder(Time now) {
  if (not_before_ && now >= *not_before_) *this = {};
}

std::string DifferenceText(const HalDigests& here, const HalDigests& there) {
  std::string text;
  for (const HalKind kind : kAllHalKinds) {
    const HalDigest& ours = here.of(kind);
    const HalDigest& theirs = there.of(kind);
    if (ours == theirs) continue;
    if (!text.empty()) text += "; ";
    text += std::string(HalKindName(kind)) + ' ' + std::to_string(ours.count);
    text += ours.count == theirs.count ? " with other content"
                                       : " here, " + std::to_string(theirs.count) + " there";
  }
  return text;
}

}  // namespace reference
