#include "reference/socket_client/reinstall_check.h"

#include <algorithm>
#include <string_view>

#include "reference/hal/hal_tables.h"

namespace reference {
namespace {

HalDigest DigestOf(const EntryHashes& hashes) {
  HalDigest digest{hashes.size(), 0};
  for (const auto& [id, hash] : hashes) digest.sum += hash;
  return digest;
}

// A kind that the summary does not name is empty.
HalDigest DigestOf(const wire::TableSummary& summary, std::string_view kind) {
  const auto found =
      std::find_if(summary.kinds().begin(), summary.kinds().end(),
                   [kind](const wire::KindSummary& entry) { return entry.kind() == kind; });
  return found == summary.kinds().end() ? HalDigest() : HalDigest{found->count(), found->digest()};
}

std::string DifferenceText(std::string_view kind, const HalDigest& here, const HalDigest& there) {
  std::string text(kind);
  text += ' ' + std::to_string(here.count);
  if (here.count == there.count) return text + " with other content";
  return text + " here, " + std::to_string(there.count) + " there";
}

}  // namespace

void ReinstallCheck::Acknowledge(std::uint32_t reinstall, const HalRequest& request,
                                 std::uint64_t hash) {
  if (reinstall < reinstall_) return;
  if (reinstall > reinstall_) Clear();
  reinstall_ = reinstall;
  EntryHashes& hashes = hashes_.at(static_cast<std::size_t>(KindOf(request.operation)));
  if (ActionOf(request.operation) == HalAction::kDestroy) {
    hashes.erase(request.id);
  } else {
    hashes[request.id] = hash;
  }
}

std::optional<std::string> ReinstallCheck::End(std::uint32_t reinstall,
                                               const wire::TableSummary& summary) {
  if (reinstall != reinstall_) Clear();
  std::string differences;
  for (const HalKind kind : kAllHalKinds) {
    const std::string_view name = HalKindName(kind);
    const HalDigest here = DigestOf(hashes_.at(static_cast<std::size_t>(kind)));
    const HalDigest there = DigestOf(summary, name);
    if (here == there) continue;
    if (!differences.empty()) differences += "; ";
    differences += DifferenceText(name, here, there);
  }
  Clear();
  if (differences.empty()) return std::nullopt;
  return differences;
}

void ReinstallCheck::Clear() {
  reinstall_ = 0;
  hashes_ = {};
}

HalDigests DigestsOf(const wire::TableSummary& summary, EntryHashFunction function) {
  HalDigests digests;
  digests.function = function;
  for (const HalKind kind : kAllHalKinds) digests.of(kind) = DigestOf(summary, HalKindName(kind));
  return digests;
}

std::string SummaryText(const wire::TableSummary& summary) {
  std::string text;
  for (const HalKind kind : kAllHalKinds) {
    const std::string_view name = HalKindName(kind);
    if (!text.empty()) text += ", ";
    text.append(name).append(" ").append(std::to_string(DigestOf(summary, name).count));
  }
  return text + " (" + std::to_string(summary.removed()) + " removed)";
}

}  // namespace reference
