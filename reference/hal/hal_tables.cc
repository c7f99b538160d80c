#include "reference/hal/hal_tables.h"

#include <algorithm>

#include "base_encap_message.pb.h"
#include "reference/hal/message_id.h"

namespace reference {
namespace {

constexpr std::uint32_t kMaxLabel = (1U << 20) - 1;

std::uint64_t AddByte(std::uint64_t fnv, std::uint8_t byte) { return (fnv ^ byte) * 0x100000001B3; }

bool InstallReplaces(HalKind kind) { return kind == HalKind::kVrf || kind == HalKind::kEcmp; }

bool LabelsInRange(const google::protobuf::Message& /*message*/) { return true; }

bool LabelsInRange(const encapsulation::MplsMessage& mpls) {
  return std::all_of(mpls.labels().begin(), mpls.labels().end(),
                     [](std::uint32_t label) { return label <= kMaxLabel; });
}

bool ReferencesExist(const HalTables& /*tables*/, const google::protobuf::Message& /*message*/) {
  return true;
}

bool ReferencesExist(const HalTables& tables, const encapsulation::HostMessage& host) {
  return !host.has_vlan_dest_id() || tables.Holds(HalKind::kVlan, host.vlan_dest_id());
}

bool ReferencesExist(const HalTables& tables, const encapsulation::MplsMessage& mpls) {
  const std::uint32_t id = mpls.vlan_tunnel_dest_id();
  return id == 0 || tables.Holds(HalKind::kVlan, id) || tables.Holds(HalKind::kMpls, id);
}

bool ReferencesExist(const HalTables& tables, const encapsulation::EcmpMessage& ecmp) {
  return std::all_of(ecmp.members().begin(), ecmp.members().end(), [&tables](std::uint32_t member) {
    return tables.Holds(HalKind::kHost, member) || tables.Holds(HalKind::kMpls, member) ||
           tables.Holds(HalKind::kVlan, member);
  });
}

}  // namespace

std::uint64_t EntryHash(std::uint32_t id, std::string_view payload) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (int shift = 0; shift < 32; shift += 8) {
    hash = AddByte(hash, static_cast<std::uint8_t>(id >> shift));
  }
  for (const char byte : payload) hash = AddByte(hash, static_cast<std::uint8_t>(byte));
  hash = (hash ^ (hash >> 30)) * 0xBF58476D1CE4E5B9;
  hash = (hash ^ (hash >> 27)) * 0x94D049BB133111EB;
  return hash ^ (hash >> 31);
}

HalTables::HalTables(std::size_t capacity) : capacity_(capacity) {}

HalReturnCode HalTables::Apply(const HalRequest& request) {
  using Applier = HalReturnCode (HalTables::*)(const HalRequest&);
  static constexpr std::array<Applier, kHalKinds> kAppliers = {
      &HalTables::ApplyPayload<encapsulation::VrfMessage>,
      &HalTables::ApplyPayload<encapsulation::VlanMessage>,
      &HalTables::ApplyPayload<encapsulation::HostMessage>,
      &HalTables::ApplyPayload<encapsulation::EcmpMessage>,
      &HalTables::ApplyPayload<encapsulation::MplsMessage>,
  };
  const HalKind kind = KindOf(request.operation);
  return (this->*kAppliers.at(static_cast<std::size_t>(kind)))(request);
}

HalReturnCode HalTables::Apply(const HalRequest& request,
                               const google::protobuf::Message& message) {
  using Applier = HalReturnCode (HalTables::*)(const HalRequest&, const google::protobuf::Message&);
  static constexpr std::array<Applier, kHalKinds> kAppliers = {
      &HalTables::ApplyMessage<encapsulation::VrfMessage>,
      &HalTables::ApplyMessage<encapsulation::VlanMessage>,
      &HalTables::ApplyMessage<encapsulation::HostMessage>,
      &HalTables::ApplyMessage<encapsulation::EcmpMessage>,
      &HalTables::ApplyMessage<encapsulation::MplsMessage>,
  };
  const HalKind kind = KindOf(request.operation);
  return (this->*kAppliers.at(static_cast<std::size_t>(kind)))(request, message);
}

template <typename Message>
HalReturnCode HalTables::ApplyPayload(const HalRequest& request) {
  Message message;
  if (!message.ParseFromString(request.payload)) return kHalBadRequest;
  return ApplyMessage<Message>(request, message);
}

template <typename Message>
HalReturnCode HalTables::ApplyMessage(const HalRequest& request,
                                      const google::protobuf::Message& decoded) {
  const auto& message = static_cast<const Message&>(decoded);
  const auto id = IdOf(message);
  if (!id) return kHalBadRequest;

  const HalKind kind = KindOf(request.operation);
  const HalAction action = ActionOf(request.operation);
  Table* const table = &this->table(kind);
  if (action == HalAction::kDestroy) return Destroy(table, *id);

  const auto entry = table->entries.find(*id);
  const bool exists = entry != table->entries.end();
  if (action == HalAction::kReplace && !exists) return kHalNotFound;
  if (action == HalAction::kInstall && exists) {
    if (entry->second == request.payload && Holds(kind, *id)) return kHalSuccess;
    if (!reinstalling_ && !InstallReplaces(kind)) return kHalExists;
  }
  if (!LabelsInRange(message)) return kHalLabelOutOfRange;
  if (!ReferencesExist(*this, message)) return kHalMissingReference;
  if (!exists && table->entries.size() >= capacity_) return kHalTableFull;
  Store(table, *id, request.payload);
  MarkNamed(table, *id);
  return kHalSuccess;
}

HalReturnCode HalTables::Destroy(Table* table, std::uint32_t id) {
  const auto entry = table->entries.find(id);
  if (entry == table->entries.end()) return kHalNotFound;
  table->sum -= EntryHash(id, entry->second);
  table->entries.erase(entry);
  return kHalSuccess;
}

void HalTables::Store(Table* table, std::uint32_t id, const std::string& payload) {
  const auto [entry, created] = table->entries.try_emplace(id);
  if (!created) table->sum -= EntryHash(id, entry->second);
  entry->second = payload;
  table->sum += EntryHash(id, payload);
}

void HalTables::MarkNamed(Table* table, std::uint32_t id) const {
  if (reinstalling_) table->named.insert(id);
}

void HalTables::BeginReinstall() {
  reinstalling_ = true;
  for (Table& table : tables_) table.named.clear();
}

void HalTables::EndReinstall() {
  if (!reinstalling_) return;
  reinstalling_ = false;
  for (Table& table : tables_) {
    for (auto entry = table.entries.begin(); entry != table.entries.end();) {
      if (table.named.count(entry->first) != 0) {
        ++entry;
        continue;
      }
      table.sum -= EntryHash(entry->first, entry->second);
      entry = table.entries.erase(entry);
    }
    table.named.clear();
  }
}

void HalTables::Clear() {
  reinstalling_ = false;
  tables_ = {};
}

bool HalTables::Holds(HalKind kind, std::uint32_t id) const {
  return Contains(kind, id) && (!reinstalling_ || table(kind).named.count(id) != 0);
}

bool HalTables::Contains(HalKind kind, std::uint32_t id) const {
  return table(kind).entries.count(id) != 0;
}

std::size_t HalTables::size(HalKind kind) const { return table(kind).entries.size(); }

HalDigest HalTables::digest(HalKind kind) const { return {size(kind), table(kind).sum}; }

std::map<std::uint32_t, std::string> HalTables::Entries(HalKind kind) const {
  return {table(kind).entries.begin(), table(kind).entries.end()};
}

TableEntries HalTables::Entries() const {
  TableEntries entries;
  for (std::size_t index = 0; index < kHalKinds; ++index) {
    const auto kind = static_cast<HalKind>(index);
    for (const auto& [id, payload] : table(kind).entries) {
      entries.emplace(std::pair(kind, id), payload);
    }
  }
  return entries;
}

}  // namespace reference
