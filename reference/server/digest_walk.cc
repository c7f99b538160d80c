#include "reference/server/digest_walk.h"

namespace reference {

bool DigestWalk::Continue(const HalTables& tables, std::size_t max_entries) {
  for (; max_entries != 0; --max_entries) {
    const auto entry = tables.Next(&cursor_);
    if (!entry) return true;
    HalDigest& digest = digests_.of(entry->kind);
    ++digest.count;
    digest.sum += EntryHash(entry->id, entry->payload, digests_.function);
  }
  return false;
}

}  // namespace reference
