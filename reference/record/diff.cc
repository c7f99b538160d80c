#include "reference/record/diff.h"

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>

#include "reference/text/printable.h"

namespace reference {
namespace {

using Entries = std::map<std::uint32_t, std::string>;

void PrintSide(const DiffSide& side, HalKind kind, const Entries& entries, std::uint32_t id,
               std::ostream* out) {
  const auto entry = entries.find(id);
  *out << "  " << Printable(side.name) << ": "
       << (entry == entries.end() ? "not installed" : side.schema->Text(kind, entry->second))
       << '\n';
}

bool Equal(const Entries& a, const Entries& b, std::uint32_t id) {
  const auto in_a = a.find(id);
  const auto in_b = b.find(id);
  return in_a != a.end() && in_b != b.end() && in_a->second == in_b->second;
}

std::size_t PrintKind(const DiffSide& a, const DiffSide& b, HalKind kind, std::ostream* out) {
  const Entries in_a = a.tables->Entries(kind);
  const Entries in_b = b.tables->Entries(kind);
  std::set<std::uint32_t> ids;
  for (const auto& entry : in_a) ids.insert(entry.first);
  for (const auto& entry : in_b) ids.insert(entry.first);

  std::size_t differences = 0;
  for (const std::uint32_t id : ids) {
    if (Equal(in_a, in_b, id)) continue;
    ++differences;
    *out << HalKindName(kind) << ' ' << id << ":\n";
    PrintSide(a, kind, in_a, id, out);
    PrintSide(b, kind, in_b, id, out);
  }
  return differences;
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

std::size_t PrintDiff(const DiffSide& a, const DiffSide& b, std::ostream* out) {
  std::size_t differences = 0;
  for (const HalKind kind : kAllHalKinds) differences += PrintKind(a, b, kind, out);
  return differences;
}

}  // namespace reference
