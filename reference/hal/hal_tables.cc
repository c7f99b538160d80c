#include "reference/hal/hal_tables.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace reference {
namespace {

// An index does not release memory up to this size, nor while an eighth of it is in use.
constexpr std::size_t kSmallIndex = 1024;
constexpr std::size_t kLeastUse = 8;

}  // namespace

HalTables::HalTables(std::size_t capacity, DataPlane* data_plane)
    : capacity_(capacity), data_plane_(data_plane) {}

HalReturnCode HalTables::Apply(const HalRequest& request) {
  const OperationTraits& traits = TraitsOf(request.operation);
  return VisitKind(traits.kind, [this, &traits, &request](auto row) {
    using Kind = decltype(row);
    // So that parsing mostly reuses memory.
    thread_local typename Kind::Message message;
    if (!message.ParseFromString(request.payload)) return kHalBadRequest;
    return ApplyMessage<Kind>(traits.action, request.payload, message);
  });
}

HalReturnCode HalTables::Apply(HalOperation operation, std::string_view payload,
                               const google::protobuf::Message& message) {
  const OperationTraits& traits = TraitsOf(operation);
  return VisitKind(traits.kind, [this, &traits, payload, &message](auto row) {
    using Kind = decltype(row);
    return ApplyMessage<Kind>(traits.action, payload,
                              static_cast<const typename Kind::Message&>(message));
  });
}

template <typename Kind>
HalReturnCode HalTables::ApplyMessage(HalAction action, std::string_view payload,
                                      const typename Kind::Message& message) {
  const auto id = Kind::Id(message);
  if (!id) return kHalBadRequest;

  Table* const table = &this->table(Kind::kKind);
  if (action == HalAction::kDestroy) return Destroy(Kind::kKind, *id);

  const Entry* const stored = table->Find(*id);
  const bool exists = stored != nullptr;
  if (action == HalAction::kReplace && !exists) return kHalNotFound;
  if (action == HalAction::kInstall && exists) {
    if (stored->payload() == payload && MayStay(*stored)) return kHalSuccess;
    if (!reinstalling_ && !Kind::kInstallReplaces) return kHalExists;
  }
  if (!Kind::LabelsInRange(message)) return kHalLabelOutOfRange;
  const auto holds = [this](HalKind kind, std::uint32_t other) { return Holds(kind, other); };
  if (!Kind::ReferencesExist(message, holds)) return kHalMissingReference;
  if (!exists && table->entries.size() >= capacity_) return kHalTableFull;
  if (data_plane_ != nullptr && (!exists || stored->payload() != payload)) {
    const HalReturnCode code = data_plane_->Store(Kind::kKind, *id, message);
    if (code != kHalSuccess) return code;
  }
  Store(table, *id, payload);
  return kHalSuccess;
}

HalReturnCode HalTables::Destroy(HalKind kind, std::uint32_t id) {
  Table& table = this->table(kind);
  const auto place = table.places.find(id);
  if (place == table.places.end()) return kHalNotFound;
  Remove(kind, place->second);
  table.GiveMemoryBack();
  return kHalSuccess;
}

void HalTables::Remove(HalKind kind, std::size_t place) {
  Table& table = this->table(kind);
  if (data_plane_ != nullptr) data_plane_->Remove(kind, table.entries[place].id);
  table.Remove(place);
}

SavedEntry HalTables::Save(HalKind kind, std::uint32_t id) const {
  const Entry* const entry = table(kind).Find(id);
  if (entry == nullptr) return {kind, id, std::nullopt, 0};
  return {kind, id, std::string(entry->payload()), entry->named_in};
}

void HalTables::Restore(const SavedEntry& saved) {
  if (!saved.payload) {
    Destroy(saved.kind, saved.id);
    return;
  }
  Table* const table = &this->table(saved.kind);
  const Entry* const present = table->Find(saved.id);
  if (data_plane_ != nullptr && (present == nullptr || present->payload() != *saved.payload)) {
    VisitKind(saved.kind, [this, &saved](auto row) {
      typename decltype(row)::Message message;
      message.ParseFromString(*saved.payload);
      data_plane_->Store(saved.kind, saved.id, message);
    });
  }
  Store(table, saved.id, *saved.payload);
  table->FindOrAdd(saved.id)->named_in = saved.named_in;
}

void HalTables::Store(Table* table, std::uint32_t id, std::string_view payload) const {
  const std::size_t before = table->entries.size();
  Entry* const entry = table->FindOrAdd(id);
  if (table->entries.size() == before) table->sum -= EntryHash(id, entry->payload());
  entry->bytes.assign(payload.data(), payload.data() + payload.size());
  table->sum += EntryHash(id, payload);
  if (reinstalling_) entry->named_in = reinstall_;
}

void HalTables::BeginReinstall() {
  reinstalling_ = true;
  ++reinstall_;
  unended_ = {};
}

void HalTables::EndReinstall() { EndReinstallInPart(std::numeric_limits<std::size_t>::max()); }

bool HalTables::EndReinstallInPart(std::size_t max_entries) {
  if (!reinstalling_) return true;
  for (; unended_.kind < kHalKinds; unended_ = {unended_.kind + 1}) {
    Table& table = tables_[unended_.kind];
    std::size_t& place = unended_.unread;
    place = std::min(place, table.entries.size());
    // Backwards: the entry that moves into a gap has already been looked at.
    while (place != 0) {
      if (max_entries-- == 0) return false;
      if (!MayStay(table.entries[--place])) Remove(static_cast<HalKind>(unended_.kind), place);
    }
    table.GiveMemoryBack();
  }
  reinstalling_ = false;
  return true;
}

const HalTables::Entry* HalTables::Table::Find(std::uint32_t id) const {
  const auto place = places.find(id);
  return place == places.end() ? nullptr : &entries[place->second];
}

HalTables::Entry* HalTables::Table::FindOrAdd(std::uint32_t id) {
  const auto [place, added] = places.try_emplace(id, static_cast<std::uint32_t>(entries.size()));
  if (!added) return &entries[place->second];
  Entry& entry = entries.Append();
  entry.id = id;
  return &entry;
}

void HalTables::Table::Remove(std::size_t place) {
  Entry& removed = entries[place];
  sum -= EntryHash(removed.id, removed.payload());
  places.erase(removed.id);
  if (place + 1 != entries.size()) {
    removed = std::move(entries[entries.size() - 1]);
    places[removed.id] = static_cast<std::uint32_t>(place);
  }
  entries.RemoveLast();
}

void HalTables::Table::GiveMemoryBack() {
  const std::size_t reserved = places.bucket_count();
  if (reserved > kSmallIndex && entries.size() < reserved / kLeastUse) places.rehash(0);
}

void HalTables::Clear() {
  reinstalling_ = false;
  if (data_plane_ != nullptr) {
    for (const HalKind kind : kAllHalKinds) {
      const EntryBlocks& entries = table(kind).entries;
      for (std::size_t place = 0; place < entries.size(); ++place) {
        data_plane_->Remove(kind, entries[place].id);
      }
    }
  }
  tables_ = {};
}

bool HalTables::Holds(HalKind kind, std::uint32_t id) const {
  const Entry* const entry = table(kind).Find(id);
  return entry != nullptr && MayStay(*entry);
}

bool HalTables::Contains(HalKind kind, std::uint32_t id) const {
  return table(kind).places.contains(id);
}

std::size_t HalTables::size(HalKind kind) const { return table(kind).entries.size(); }

std::size_t HalTables::reserved(HalKind kind) const {
  return std::max(table(kind).entries.reserved(), table(kind).places.bucket_count());
}

HalDigest HalTables::digest(HalKind kind) const { return {size(kind), table(kind).sum}; }

HalDigests HalTables::digests() const {
  HalDigests digests;
  for (const HalKind kind : kAllHalKinds) digests.of(kind) = digest(kind);
  return digests;
}

std::map<std::uint32_t, std::string> HalTables::Entries(HalKind kind) const {
  std::map<std::uint32_t, std::string> entries;
  TableCursor cursor{static_cast<std::size_t>(kind)};
  for (auto entry = Next(&cursor); entry && entry->kind == kind; entry = Next(&cursor)) {
    entries.emplace(entry->id, entry->payload);
  }
  return entries;
}

TableEntries HalTables::Entries() const {
  TableEntries entries;
  TableCursor cursor;
  while (const auto entry = Next(&cursor)) {
    entries.emplace(std::pair(entry->kind, entry->id), entry->payload);
  }
  return entries;
}

std::optional<TableEntryView> HalTables::Next(TableCursor* cursor) const {
  for (; cursor->kind < kHalKinds; *cursor = {cursor->kind + 1}) {
    const auto kind = static_cast<HalKind>(cursor->kind);
    const EntryBlocks& entries = table(kind).entries;
    cursor->unread = std::min(cursor->unread, entries.size());
    if (cursor->unread == 0) continue;
    const Entry& entry = entries[--cursor->unread];
    return TableEntryView{kind, entry.id, entry.payload()};
  }
  return std::nullopt;
}

}  // namespace reference
