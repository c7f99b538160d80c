#include "reference/hal/hal_tables.h"

#include <random>

namespace reference {
namespace {

// A table keeps its memory up to this size, and while an eighth of it is used.
constexpr std::size_t kSmallTable = 1024;
constexpr std::size_t kLeastUse = 8;

std::uint64_t AddByte(std::uint64_t fnv, std::uint8_t byte) { return (fnv ^ byte) * 0x100000001B3; }

// The last step of splitmix64: each bit of the result depends on all bits.
std::uint64_t Mixed(std::uint64_t bits) {
  bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
  bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
  return bits ^ (bits >> 31);
}

}  // namespace

std::uint64_t EntryHash(std::uint32_t id, std::string_view payload) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (int shift = 0; shift < 32; shift += 8) {
    hash = AddByte(hash, static_cast<std::uint8_t>(id >> shift));
  }
  for (const char byte : payload) hash = AddByte(hash, static_cast<std::uint8_t>(byte));
  return Mixed(hash);
}

HalTables::IdHash::IdHash() {
  std::random_device random;
  secret_ = std::uniform_int_distribution<std::uint64_t>()(random);
}

std::size_t HalTables::IdHash::operator()(std::uint32_t id) const { return Mixed(id ^ secret_); }

HalTables::HalTables(std::size_t capacity) : capacity_(capacity) {}

HalReturnCode HalTables::Apply(const HalRequest& request) {
  return VisitKind(KindOf(request.operation), [this, &request](auto row) {
    using Kind = decltype(row);
    typename Kind::Message message;
    if (!message.ParseFromString(request.payload)) return kHalBadRequest;
    return ApplyMessage<Kind>(request, message);
  });
}

HalReturnCode HalTables::Apply(const HalRequest& request,
                               const google::protobuf::Message& message) {
  return VisitKind(KindOf(request.operation), [this, &request, &message](auto row) {
    using Kind = decltype(row);
    return ApplyMessage<Kind>(request, static_cast<const typename Kind::Message&>(message));
  });
}

template <typename Kind>
HalReturnCode HalTables::ApplyMessage(const HalRequest& request,
                                      const typename Kind::Message& message) {
  const auto id = Kind::Id(message);
  if (!id) return kHalBadRequest;

  const HalAction action = ActionOf(request.operation);
  Table* const table = &this->table(Kind::kKind);
  if (action == HalAction::kDestroy) return Destroy(table, *id);

  const auto entry = table->entries.find(*id);
  const bool exists = entry != table->entries.end();
  if (action == HalAction::kReplace && !exists) return kHalNotFound;
  if (action == HalAction::kInstall && exists) {
    const Entry& stored = entry->second;
    if (stored.payload == request.payload && MayStay(stored)) return kHalSuccess;
    if (!reinstalling_ && !Kind::kInstallReplaces) return kHalExists;
  }
  if (!Kind::LabelsInRange(message)) return kHalLabelOutOfRange;
  const auto holds = [this](HalKind kind, std::uint32_t other) { return Holds(kind, other); };
  if (!Kind::ReferencesExist(message, holds)) return kHalMissingReference;
  if (!exists && table->entries.size() >= capacity_) return kHalTableFull;
  Store(table, *id, request.payload);
  return kHalSuccess;
}

HalReturnCode HalTables::Destroy(Table* table, std::uint32_t id) {
  const auto entry = table->entries.find(id);
  if (entry == table->entries.end()) return kHalNotFound;
  table->sum -= EntryHash(id, entry->second.payload);
  table->entries.erase(entry);
  GiveMemoryBack(table);
  return kHalSuccess;
}

void HalTables::Store(Table* table, std::uint32_t id, const std::string& payload) const {
  const auto [place, created] = table->entries.try_emplace(id);
  Entry& entry = place.value();
  if (!created) table->sum -= EntryHash(id, entry.payload);
  entry.payload = payload;
  table->sum += EntryHash(id, payload);
  if (reinstalling_) entry.named_in = reinstall_;
}

void HalTables::BeginReinstall() {
  reinstalling_ = true;
  ++reinstall_;
}

void HalTables::EndReinstall() {
  if (!reinstalling_) return;
  for (Table& table : tables_) {
    for (auto entry = table.entries.begin(); entry != table.entries.end();) {
      if (MayStay(entry->second)) {
        ++entry;
        continue;
      }
      table.sum -= EntryHash(entry->first, entry->second.payload);
      entry = table.entries.erase(entry);
    }
    GiveMemoryBack(&table);
  }
  reinstalling_ = false;
}

// A walk through a table takes as long as the table has memory.
void HalTables::GiveMemoryBack(Table* table) {
  const std::size_t places = table->entries.bucket_count();
  if (places > kSmallTable && table->entries.size() < places / kLeastUse) table->entries.rehash(0);
}

void HalTables::Clear() {
  reinstalling_ = false;
  tables_ = {};
}

bool HalTables::Holds(HalKind kind, std::uint32_t id) const {
  const auto entry = table(kind).entries.find(id);
  return entry != table(kind).entries.end() && MayStay(entry->second);
}

bool HalTables::Contains(HalKind kind, std::uint32_t id) const {
  return table(kind).entries.contains(id);
}

std::size_t HalTables::size(HalKind kind) const { return table(kind).entries.size(); }

std::size_t HalTables::reserved(HalKind kind) const { return table(kind).entries.bucket_count(); }

HalDigest HalTables::digest(HalKind kind) const { return {size(kind), table(kind).sum}; }

std::map<std::uint32_t, std::string> HalTables::Entries(HalKind kind) const {
  std::map<std::uint32_t, std::string> entries;
  for (const auto& [id, entry] : table(kind).entries) entries.emplace(id, entry.payload);
  return entries;
}

TableEntries HalTables::Entries() const {
  TableEntries entries;
  for (const HalKind kind : kAllHalKinds) {
    for (const auto& [id, entry] : table(kind).entries) {
      entries.emplace(std::pair(kind, id), entry.payload);
    }
  }
  return entries;
}

}  // namespace reference
