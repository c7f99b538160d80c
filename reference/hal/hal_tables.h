#ifndef ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_
#define ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_

#include <google/protobuf/message.h>
#include <tsl/robin_map.h>

#include <array>
#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/hal/data_plane.h"
#include "reference/hal/entry_hash.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"
#include "reference/support/id_hash.h"

namespace reference {

/// Two sides compare digests of one hash function to check whether they hold the same entries.
/// Independent of order.
struct HalDigest {
  /// Number of entries.
  std::size_t count = 0;
  /// Sum of the entries' `EntryHash`, modulo 2^64.
  std::uint64_t sum = 0;
};

inline bool operator==(const HalDigest& a, const HalDigest& b) {
  return a.count == b.count && a.sum == b.sum;
}
inline bool operator!=(const HalDigest& a, const HalDigest& b) { return !(a == b); }

/// The digests of all tables.
struct HalDigests {
  HalDigest& of(HalKind kind) { return kinds.at(static_cast<std::size_t>(kind)); }
  const HalDigest& of(HalKind kind) const { return kinds.at(static_cast<std::size_t>(kind)); }

  /// The function that all of them use.
  EntryHashFunction function = EntryHashFunction::kXxh3;
  std::array<HalDigest, kHalKinds> kinds{};
};

/// Serialised messages, by kind and id.
using TableEntries = std::map<std::pair<HalKind, std::uint32_t>, std::string>;

/// A position in a reading of the tables; a new one is at the beginning. Stays valid while the
/// tables change.
struct TableCursor {
  std::size_t kind = 0;
  /// How many entries of the kind, counted from the first, are still unread; may exceed the size.
  std::size_t unread = std::numeric_limits<std::size_t>::max();
};

/// An entry as read. The payload stays valid until the tables change.
struct TableEntryView {
  HalKind kind{};
  std::uint32_t id = 0;
  std::string_view payload;
};

/// The former state of an entry, which may not have existed.
struct SavedEntry {
  HalKind kind{};
  std::uint32_t id = 0;
  std::optional<std::string> payload;
  /// The last reinstall that named it; 0 for none.
  std::uint64_t named_in = 0;
};

/// The forwarding tables behind a HAL server: the installed entries, and the checks that hardware
/// would make. Used by one thread at a time.
class HalTables {
 public:
  /// `capacity` is the maximum number of entries in each table. `data_plane` must accept every
  /// new entry and gets every change; not owned, null for none.
  explicit HalTables(std::size_t capacity, DataPlane* data_plane = nullptr);

  /// Carries out one request, whose id is the payload's. Checks, in this order:
  /// 1. the payload decodes and carries an id, for destinations not 0 (else `kHalBadRequest`);
  /// 2. a replace or destroy names an existing entry (`kHalNotFound`);
  /// 3. an install names a new id, or an existing one with the same payload, which succeeds at
  ///    once; another payload is `kHalExists`, except that an install always replaces an entry of
  ///    a kind with `kInstallReplaces`, and within a reinstall an entry of any kind;
  /// 4. the kind's `LabelsInRange` (`kHalLabelOutOfRange`);
  /// 5. the kind's `ReferencesExist` (`kHalMissingReference`);
  /// 6. there is room for a new entry (`kHalTableFull`);
  /// 7. the data plane agrees to new content.
  ///
  /// An entry that the current reinstall has not named yet may be gone at its end. So nothing can
  /// refer to it (5), and an install of the same payload is checked like any other (3).
  ///
  /// A destroy does not check for remaining references to the entry. A failed request changes
  /// nothing.
  HalReturnCode Apply(const HalRequest& request);

  /// The same for a payload that is already decoded into `message`, which is of the kind's class.
  HalReturnCode Apply(HalOperation operation, std::string_view payload,
                      const google::protobuf::Message& message);

  /// For undoing requests, the latest one first: `Restore` brings back what `Save` returned before
  /// the request.
  SavedEntry Save(HalKind kind, std::uint32_t id) const;
  void Restore(const SavedEntry& saved);

  /// Opens a reinstall; restarts one that is open.
  void BeginReinstall();

  /// Removes the entries that no successful install or replace has named since `BeginReinstall`; a
  /// no-op without one.
  void EndReinstall();

  /// A part of `EndReinstall` that examines `max_entries` entries at most. Returns whether the end
  /// has been reached. Until then the reinstall stays open, and `BeginReinstall` restarts it.
  bool EndReinstallInPart(std::size_t max_entries);

  /// Empties the tables and drops an open reinstall, as a restart does.
  void Clear();

  bool Contains(HalKind kind, std::uint32_t id) const;
  /// Whether other entries may refer to this one: it exists and, within a reinstall, was named in
  /// it.
  bool Holds(HalKind kind, std::uint32_t id) const;
  std::size_t size(HalKind kind) const;
  /// The number of entries of the kind for which memory is allocated: at most 8 times the number of
  /// entries or 1024, whatever the ids.
  std::size_t reserved(HalKind kind) const;
  /// The digest by XXH3; takes constant time.
  HalDigest digest(HalKind kind) const;
  HalDigests digests() const;

  /// The entries of a table: serialised messages by id, in order of ids.
  std::map<std::uint32_t, std::string> Entries(HalKind kind) const;
  /// The entries of all tables.
  TableEntries Entries() const;

  /// The next entry, ordered by kind but not within a kind; nothing after the last one. The tables
  /// may change between calls. An entry that exists from the first call to the last is read at
  /// least once, with a payload that it had in that time; if it is read twice, the later payload is
  /// the newer one. Other entries may or may not be read. Each call takes constant, short time.
  std::optional<TableEntryView> Next(TableCursor* cursor) const;

 private:
  // The default load factor (0.5) costs memory without faster lookups.
  static constexpr float kMaxLoad = 0.8F;

  // Nearly all messages fit into that many bytes, so an entry seldom allocates memory of its own.
  static constexpr std::size_t kInlinePayload = 32;

  // A move takes over a block of the heap, or copies into its own inline bytes: it cannot throw.
  // NOLINTNEXTLINE(bugprone-exception-escape)
  struct Entry {
    std::string_view payload() const { return {bytes.data(), bytes.size()}; }

    std::uint32_t id = 0;
    boost::container::small_vector<char, kInlinePayload> bytes;
    // The last reinstall that named it; 0 for none.
    std::uint64_t named_in = 0;
  };

  /// The entries of a table without gaps, in blocks that are allocated as a whole. A table that
  /// grows moves none of them and leaves less than a block unused.
  class EntryBlocks {
   public:
    std::size_t size() const { return size_; }
    /// The number of entries for which memory is allocated.
    std::size_t reserved() const { return blocks_.size() * kBlock; }

    Entry& operator[](std::size_t place) { return blocks_[place / kBlock][place % kBlock]; }
    const Entry& operator[](std::size_t place) const {
      return blocks_[place / kBlock][place % kBlock];
    }

    Entry& Append() {
      if (size_ == reserved()) blocks_.emplace_back().reserve(kBlock);
      ++size_;
      return blocks_.back().emplace_back();
    }
    void RemoveLast() {
      --size_;
      blocks_.back().pop_back();
      if (blocks_.back().empty()) blocks_.pop_back();
    }

   private:
    static constexpr std::size_t kBlock = 256;

    std::size_t size_ = 0;
    std::vector<std::vector<Entry>> blocks_;
  };

  struct Table {
    Table() { places.max_load_factor(kMaxLoad); }

    const Entry* Find(std::uint32_t id) const;
    /// The entry with that id, added if missing.
    Entry* FindOrAdd(std::uint32_t id);
    void Remove(std::size_t place);
    void GiveMemoryBack();

    // Without gaps: new entries go to the end, and the last entry fills a gap. Entries therefore
    // move only towards the beginning. A reading starts at the end, so it misses none.
    EntryBlocks entries;
    // The index of each id's entry. Colliding entries are adjacent in memory.
    tsl::robin_map<std::uint32_t, std::uint32_t, IdHash> places;
    // Sum of the entries' hashes.
    std::uint64_t sum = 0;
  };

  template <typename Kind>
  HalReturnCode ApplyMessage(HalAction action, std::string_view payload,
                             const typename Kind::Message& message);

  HalReturnCode Destroy(HalKind kind, std::uint32_t id);
  void Store(Table* table, std::uint32_t id, std::string_view payload) const;
  void Remove(HalKind kind, std::size_t place);
  bool MayStay(const Entry& entry) const { return !reinstalling_ || entry.named_in == reinstall_; }

  Table& table(HalKind kind) { return tables_[static_cast<std::size_t>(kind)]; }
  const Table& table(HalKind kind) const { return tables_[static_cast<std::size_t>(kind)]; }

  std::size_t capacity_;
  DataPlane* data_plane_;
  bool reinstalling_ = false;
  // The latest reinstall, counted from 1.
  std::uint64_t reinstall_ = 0;
  // The progress of its end.
  TableCursor unended_;
  std::array<Table, kHalKinds> tables_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_
