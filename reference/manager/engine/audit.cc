#include "reference/manager/engine/audit.h"

#include <algorithm>

#include "reference/manager/engine/adapters.h"

namespace reference {

bool AcknowledgedDigests::Continue(const DestDatabase& database, std::size_t max_entries) {
  for (; table_ < 2; ++table_, place_.reset()) {
    const bool of_vrfs = table_ == 0;
    const DestDatabase::Objects& entries = of_vrfs ? database.vrf_entries() : database.objects();
    auto next = place_ ? entries.upper_bound(*place_) : entries.begin();
    for (; next != entries.end(); ++next) {
      if (max_entries-- == 0) return false;
      place_ = next->first;
      const Object& entry = next->second;
      const bool held = entry.wanted && entry.presence == Presence::kPresent;
      if (!held || (!of_vrfs && entry.key.kind == HalKind::kVrf)) continue;
      const HalMessage message = TranslateForHal(entry.content);
      HalDigest& digest = digests_.at(static_cast<std::size_t>(entry.key.kind));
      ++digest.count;
      digest.sum += EntryHash(message.id, message.payload);
    }
  }
  return true;
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
    const HalDigest& ours = here.at(static_cast<std::size_t>(kind));
    const HalDigest& theirs = there.at(static_cast<std::size_t>(kind));
    if (ours == theirs) continue;
    if (!text.empty()) text += "; ";
    text += std::string(HalKindName(kind)) + ' ' + std::to_string(ours.count);
    text += ours.count == theirs.count ? " with other content"
                                       : " here, " + std::to_string(theirs.count) + " there";
  }
  return text;
}

}  // namespace reference
