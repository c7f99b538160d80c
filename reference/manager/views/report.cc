#include "reference/manager/views/report.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <numeric>

#include "reference/hal/hal_code.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::array<std::string_view, kStandings> kNames = {"pending", "installed", "inactive",
                                                             "sent",    "failed",    "removed"};

// The order of the summary.
constexpr std::array kSummaryOrder = {Standing::kInstalled, Standing::kInactive, Standing::kSent,
                                      Standing::kRemoved,   Standing::kPending,  Standing::kFailed};

// Characters, not bytes.
std::size_t Width(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string Padded(std::string_view text, std::size_t width) {
  std::string padded(text);
  padded.append(width - std::min(width, Width(text)), ' ');
  return padded;
}

void WriteRow(const std::array<std::string, 5>& cells, const std::array<std::size_t, 4>& widths,
              std::ostream* out) {
  std::string row;
  for (std::size_t i = 0; i < widths.size(); ++i) row += Padded(cells[i], widths[i]) + "  ";
  row += cells.back();
  row.erase(row.find_last_not_of(' ') + 1);
  *out << row << '\n';
}

}  // namespace

std::string_view StandingName(Standing standing) {
  return kNames.at(static_cast<std::size_t>(standing));
}

std::string ReasonOf(const Object& object) {
  switch (StandingOf(object)) {
    case Standing::kInactive:
      return "no active neighbor: dropping";
    case Standing::kFailed:
      return MakeErrorCode(object.code).message();
    default:
      return {};
  }
}

Summary::Summary(const DestDatabase& database) {
  for (const HalKind kind : kAllHalKinds) {
    const DestDatabase::StandingCounts& of_kind = database.counts(kind);
    for (std::size_t i = 0; i < kStandings; ++i) counts_[i] += of_kind[i];
  }
}

std::size_t Summary::objects() const {
  return std::accumulate(counts_.begin(), counts_.end(), std::size_t{0});
}

std::string Summary::text() const {
  std::string text = std::to_string(objects()) + (objects() == 1 ? " object" : " objects");
  const char* separator = ": ";
  for (const Standing standing : kSummaryOrder) {
    if (count(standing) == 0) continue;
    text += separator + std::to_string(count(standing)) + ' ' + std::string(StandingName(standing));
    separator = ", ";
  }
  return text;
}

void WriteTable(const DestDatabase& database, std::ostream* out) {
  const std::array<std::string, 5> header = {"KIND", "ID", "NAME", "STATE", "REASON"};
  // The minimum widths fit every kind and state.
  std::array<std::size_t, 4> widths = {4, 2, 4, 9};
  for (const auto& [key, object] : database.objects()) {
    widths[1] = std::max(widths[1], std::to_string(key.id).size());
    widths[2] = std::max(widths[2], Width(Printable(object.name)));
  }
  if (!database.objects().empty()) WriteRow(header, widths, out);
  for (const auto& [key, object] : database.objects()) {
    WriteRow({std::string(HalKindName(key.kind)), std::to_string(key.id), Printable(object.name),
              std::string(StandingName(StandingOf(object))), ReasonOf(object)},
             widths, out);
  }
  *out << Summary(database).text() << '\n';
}

void WriteJson(const DestDatabase& database, std::ostream* out) {
  *out << "{\"objects\":[";
  const char* separator = "\n";
  for (const auto& [key, object] : database.objects()) {
    nlohmann::ordered_json entry;
    entry["kind"] = HalKindName(key.kind);
    entry["id"] = key.id;
    entry["name"] = object.name;
    entry["state"] = StandingName(StandingOf(object));
    entry["code"] = static_cast<std::uint32_t>(object.code);
    entry["reason"] = ReasonOf(object);
    *out << separator << JsonText(entry, -1);
    separator = ",\n";
  }
  const Summary summary(database);
  nlohmann::ordered_json totals;
  totals["objects"] = summary.objects();
  for (const Standing standing : kSummaryOrder) {
    totals[std::string(StandingName(standing))] = summary.count(standing);
  }
  *out << "\n],\n\"summary\":" << JsonText(totals, -1) << "}\n";
}

}  // namespace reference
