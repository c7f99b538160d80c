#include "reference/record/diff.h"

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

using Entries = std::map<std::uint32_t, std::string>;

MessageFields FieldsAt(const DiffSide& side, HalKind kind, const Entries& entries,
                       std::uint32_t id) {
  const auto entry = entries.find(id);
  return entry == entries.end() ? MessageFields()
                                : side.schema->Fields(kind, entry->second, *side.interfaces);
}

bool Equal(const Entries& a, const Entries& b, std::uint32_t id) {
  const auto in_a = a.find(id);
  const auto in_b = b.find(id);
  return in_a != a.end() && in_b != b.end() && in_a->second == in_b->second;
}

void Compare(const DiffSide& a, const DiffSide& b, HalKind kind, std::vector<Difference>* found) {
  const Entries in_a = a.tables->Entries(kind);
  const Entries in_b = b.tables->Entries(kind);
  std::set<std::uint32_t> ids;
  for (const auto& entry : in_a) ids.insert(entry.first);
  for (const auto& entry : in_b) ids.insert(entry.first);
  for (const std::uint32_t id : ids) {
    if (Equal(in_a, in_b, id)) continue;
    found->push_back({kind, id, FieldsAt(a, kind, in_a, id), FieldsAt(b, kind, in_b, id)});
  }
}

void WriteSide(const DiffSide& side, const MessageFields& fields, std::ostream* out) {
  *out << "  " << Printable(side.name) << ": "
       << (fields.is_null() ? "not installed" : FieldsText(fields)) << '\n';
}

void Apply(const Step& step, EndState* state) {
  const bool has_result = HasResult(step.request.operation);
  if (has_result && step.code != kHalSuccess) return;
  const HalReturnCode code = state->tables.Apply(step.request);
  if (has_result && code != kHalSuccess) ++state->not_applied;
}

}  // namespace

EndState ComputeEndState(const std::vector<Step>& steps) {
  EndState state{HalTables(std::numeric_limits<std::size_t>::max())};
  for (const Step& step : steps) {
    switch (step.kind) {
      case Step::Kind::kServerFound:
        state.tables.Clear();
        break;
      case Step::Kind::kBeginReinstall:
        state.tables.BeginReinstall();
        break;
      case Step::Kind::kEndReinstall:
        state.tables.EndReinstall();
        break;
      case Step::Kind::kRequest:
        Apply(step, &state);
        break;
    }
  }
  return state;
}

std::vector<Difference> FindDifferences(const DiffSide& a, const DiffSide& b) {
  std::vector<Difference> found;
  for (const HalKind kind : kAllHalKinds) Compare(a, b, kind, &found);
  return found;
}

void WriteDiff(const DiffSide& a, const DiffSide& b, const std::vector<Difference>& differences,
               std::ostream* out) {
  for (const Difference& difference : differences) {
    *out << HalKindName(difference.kind) << ' ' << difference.id << ":\n";
    if (difference.a.is_null() || difference.b.is_null()) {
      WriteSide(a, difference.a, out);
      WriteSide(b, difference.b, out);
    } else {
      *out << "  " << ChangesText(ChangedFields(difference.a, difference.b)) << '\n';
    }
  }
  *out << "differences " << differences.size() << '\n';
}

void WriteDiffAsJson(const DiffSide& a, const DiffSide& b,
                     const std::vector<Difference>& differences, std::ostream* out) {
  nlohmann::ordered_json json = {{"a", a.name}, {"b", b.name}};
  json["differences"] = nlohmann::ordered_json::array();
  for (const Difference& difference : differences) {
    nlohmann::ordered_json entry = {{"kind", HalKindName(difference.kind)}, {"id", difference.id}};
    if (difference.a.is_null() || difference.b.is_null()) {
      entry["a"] = difference.a;
      entry["b"] = difference.b;
    } else {
      entry["changes"] = ChangedFields(difference.a, difference.b);
    }
    json["differences"].push_back(std::move(entry));
  }
  *out << JsonText(json, 1) << '\n';
}

}  // namespace reference
