#ifndef ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_
#define ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_

#include <google/protobuf/message.h>
#include <tsl/robin_map.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"

namespace reference {

/// What two sides compare to see whether they hold the same: independent of order.
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

/// The hash of one entry: 64-bit FNV-1a over the id (4 bytes, little-endian) and the payload, mixed
/// by the last step of splitmix64 so that the sum of many hashes keeps them apart. The same in
/// every build.
std::uint64_t EntryHash(std::uint32_t id, std::string_view payload);

/// Serialised messages, by kind and id.
using TableEntries = std::map<std::pair<HalKind, std::uint32_t>, std::string>;

/// A place in a reading of the tables. A new one is at the beginning. May be kept while the tables
/// change.
struct TableCursor {
  std::size_t kind = 0;
  /// So many entries of the kind, the first ones, are unread, if there are so many.
  std::size_t unread = std::numeric_limits<std::size_t>::max();
};

/// An entry as it is read. The payload is valid until the tables change.
struct TableEntryView {
  HalKind kind{};
  std::uint32_t id = 0;
  std::string_view payload;
};

/// The forwarding tables behind a HAL server: what is installed, and the checks that hardware would
/// make. Used by one thread at a time.
class HalTables {
 public:
  /// `capacity`: how many entries each table takes.
  explicit HalTables(std::size_t capacity);

  /// Carries out one request, whose id is the payload's. Checks, in this order:
  /// 1. the payload decodes and carries an id, for destinations not 0 (else `kHalBadRequest`);
  /// 2. a replace or destroy names an existing entry (`kHalNotFound`);
  /// 3. an install names a new id, or an existing one with the same payload, which is a success at
  ///    once; another payload is `kHalExists`, except that an install always replaces an entry of
  ///    a kind with `kInstallReplaces`, and within a reinstall an entry of any kind;
  /// 4. the kind's `LabelsInRange` (`kHalLabelOutOfRange`);
  /// 5. the kind's `ReferencesExist` (`kHalMissingReference`);
  /// 6. there is room for a new entry (`kHalTableFull`).
  ///
  /// Within a reinstall, an entry that it has not named may be gone at its end: nothing can refer
  /// to it (5), and an install of the same payload is checked like any other (3).
  ///
  /// A destroy does not ask who still refers to the entry. A request that fails changes nothing.
  HalReturnCode Apply(const HalRequest& request);

  /// The same for a payload that has been decoded: to `message`, of the kind's class.
  HalReturnCode Apply(const HalRequest& request, const google::protobuf::Message& message);

  /// Opens a reinstall; one that is open starts over.
  void BeginReinstall();

  /// Removes what no install or replace has named, with success, since `BeginReinstall`; without
  /// one, does nothing.
  void EndReinstall();

  /// Forgets everything, an open reinstall included, as a restart does.
  void Clear();

  bool Contains(HalKind kind, std::uint32_t id) const;
  /// Whether others may refer to the entry: it is there and, within a reinstall, was named in it.
  bool Holds(HalKind kind, std::uint32_t id) const;
  std::size_t size(HalKind kind) const;
  /// For how many entries of that kind there is memory: whatever the ids were, at most 8 times as
  /// many as there are, or 1024.
  std::size_t reserved(HalKind kind) const;
  HalDigest digest(HalKind kind) const;

  /// The entries of a table: serialised messages by id, in order of ids.
  std::map<std::uint32_t, std::string> Entries(HalKind kind) const;
  /// Those of all tables.
  TableEntries Entries() const;

  /// The next entry, by kind, without order within a kind; nothing after the last one. The tables
  /// may change between two calls. An entry that is there from the first call to the last one is
  /// read at least once, with a payload that it had meanwhile; where it is read twice, the later
  /// payload is the newer one. An entry that was not there all the time may be read or not. Each
  /// call takes the same short time.
  std::optional<TableEntryView> Next(TableCursor* cursor) const;

 private:
  // Half full, the map's own limit, takes more memory and finds no sooner.
  static constexpr float kMaxLoad = 0.8F;

  // Clients choose the ids. No client knows this hash, so none can choose ids that collide.
  class IdHash {
   public:
    IdHash();
    std::size_t operator()(std::uint32_t id) const;

   private:
    std::uint64_t secret_;
  };

  struct Entry {
    std::uint32_t id = 0;
    std::string payload;
    // The last reinstall that has named it, 0 for none.
    std::uint64_t named_in = 0;
  };

  struct Table {
    Table() { places.max_load_factor(kMaxLoad); }

    const Entry* Find(std::uint32_t id) const;
    /// The entry of that id, a new one where there is none.
    Entry* FindOrAdd(std::uint32_t id);
    void Remove(std::size_t place);
    void GiveMemoryBack();

    // Without gaps. New entries go to the end, and the last one moves into a gap: towards the
    // beginning, so that a reading, which begins at the end, does not miss it.
    std::vector<Entry> entries;
    // Where an id's entry is. What collides lies side by side in memory.
    tsl::robin_map<std::uint32_t, std::uint32_t, IdHash> places;
    // Of the entries' hashes.
    std::uint64_t sum = 0;
  };

  template <typename Kind>
  HalReturnCode ApplyMessage(const HalRequest& request, const typename Kind::Message& message);

  static HalReturnCode Destroy(Table* table, std::uint32_t id);
  void Store(Table* table, std::uint32_t id, const std::string& payload) const;
  bool MayStay(const Entry& entry) const { return !reinstalling_ || entry.named_in == reinstall_; }

  Table& table(HalKind kind) { return tables_[static_cast<std::size_t>(kind)]; }
  const Table& table(HalKind kind) const { return tables_[static_cast<std::size_t>(kind)]; }

  std::size_t capacity_;
  bool reinstalling_ = false;
  // The latest reinstall; they count from 1.
  std::uint64_t reinstall_ = 0;
  std::array<Table, kHalKinds> tables_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_TABLES_H_
