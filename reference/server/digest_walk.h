#ifndef ZUSKUX_REFERENCE_SERVER_DIGEST_WALK_H_
#define ZUSKUX_REFERENCE_SERVER_DIGEST_WALK_H_

#include <cstddef>

#include "reference/hal/hal_tables.h"

namespace reference {

/// Computes the digests of all tables with a function other than the tables' own. Goes in steps,
/// because it reads every entry; the tables must not change in between. A value, used on the thread
/// of the tables.
class DigestWalk {
 public:
  explicit DigestWalk(EntryHashFunction function) { digests_.function = function; }

  /// Adds at most `max_entries` entries. Returns whether the digests are complete.
  bool Continue(const HalTables& tables, std::size_t max_entries);

  /// Complete once `Continue` has returned true.
  const HalDigests& digests() const { return digests_; }

 private:
  TableCursor cursor_;
  HalDigests digests_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_DIGEST_WALK_H_
