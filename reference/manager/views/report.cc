#include "reference/manager/views/report.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <stdexcept>

#include "reference/hal/hal_code.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

struct StandingText {
  std::string_view name;
  // One sentence. The man page has the same ones.
  std::string_view meaning;
};

// In the order of `Standing`.
constexpr std::array<StandingText, kStandings> kStandingTexts = {{
    {"pending", "Its request is still to be sent, or has no result yet."},
    {"installed", "The HAL has confirmed that it holds the object."},
    {"inactive", "The HAL holds it, but it drops packets: it has no active neighbor."},
    {"sent", "The HAL has accepted the request; a VRF gets no other confirmation."},
    {"failed", "The HAL refused it, gave no answer, or lost it since; see REASON."},
    {"removed", "The site no longer has the object, and neither has the HAL."},
}};

// Fits every state.
constexpr std::size_t kStateWidth = 9;

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

std::vector<ObjectRow> RowsOf(const DestDatabase& database) {
  std::vector<ObjectRow> rows;
  rows.reserve(database.objects().size());
  for (const auto& [key, object] : database.objects()) rows.push_back(RowOf(object));
  return rows;
}

void WriteMeaning(Standing standing, std::ostream* out) {
  const StandingText& text = kStandingTexts.at(static_cast<std::size_t>(standing));
  *out << Padded(text.name, kStateWidth) << "  " << text.meaning << '\n';
}

}  // namespace

std::string_view StandingName(Standing standing) {
  return kStandingTexts.at(static_cast<std::size_t>(standing)).name;
}

Standing ParseStanding(const std::string& name) {
  for (std::size_t i = 0; i < kStandings; ++i) {
    if (kStandingTexts.at(i).name == name) return static_cast<Standing>(i);
  }
  throw std::runtime_error("unknown state " + Quote(name));
}

std::string ReasonOf(const Object& object) {
  switch (StandingOf(object)) {
    case Standing::kInactive:
      return "no active neighbor: dropping";
    case Standing::kFailed:
      return OutcomeText(object.code, object.reason());
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

Summary::Summary(const nlohmann::ordered_json& json) {
  for (std::size_t i = 0; i < kStandings; ++i) {
    counts_.at(i) = json.at(std::string(kStandingTexts.at(i).name)).get<std::size_t>();
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

nlohmann::ordered_json Summary::json() const {
  nlohmann::ordered_json totals;
  totals["objects"] = objects();
  for (const Standing standing : kSummaryOrder) {
    totals[std::string(StandingName(standing))] = count(standing);
  }
  return totals;
}

ObjectRow RowOf(const Object& object) {
  return {object.key, object.name, StandingOf(object), static_cast<std::uint32_t>(object.code),
          ReasonOf(object)};
}

nlohmann::ordered_json RowAsJson(const ObjectRow& row) {
  nlohmann::ordered_json json;
  json["kind"] = HalKindName(row.key.kind);
  json["id"] = row.key.id;
  json["name"] = row.name;
  json["state"] = StandingName(row.standing);
  json["code"] = row.code;
  json["reason"] = row.reason;
  return json;
}

ObjectRow RowOfJson(const nlohmann::ordered_json& json) {
  const auto key = ParseObjectKey(json.at("kind").get<std::string>() + ':' +
                                  std::to_string(json.at("id").get<std::uint32_t>()));
  if (!key) throw std::runtime_error("unknown kind " + json.at("kind").dump());
  return {*key, json.at("name").get<std::string>(),
          ParseStanding(json.at("state").get<std::string>()), json.at("code").get<std::uint32_t>(),
          json.at("reason").get<std::string>()};
}

void WriteRows(const std::vector<ObjectRow>& rows, std::ostream* out) {
  if (rows.empty()) return;
  const std::array<std::string, 5> header = {"KIND", "ID", "NAME", "STATE", "REASON"};
  // The minimum widths fit every kind and state.
  std::array<std::size_t, 4> widths = {4, 2, 4, kStateWidth};
  for (const ObjectRow& row : rows) {
    widths[1] = std::max(widths[1], std::to_string(row.key.id).size());
    widths[2] = std::max(widths[2], Width(Printable(row.name)));
  }
  WriteRow(header, widths, out);
  std::set<Standing> occurring;
  for (const ObjectRow& row : rows) {
    occurring.insert(row.standing);
    WriteRow({std::string(HalKindName(row.key.kind)), std::to_string(row.key.id),
              Printable(row.name), std::string(StandingName(row.standing)), Printable(row.reason)},
             widths, out);
  }
  *out << '\n';
  for (const Standing standing : occurring) WriteMeaning(standing, out);
}

void WriteStandings(std::ostream* out) {
  for (std::size_t i = 0; i < kStandings; ++i) WriteMeaning(static_cast<Standing>(i), out);
}

void WriteRowsAsJson(const std::vector<ObjectRow>& rows, const Summary& summary,
                     std::ostream* out) {
  *out << "{\"objects\":[";
  const char* separator = "\n";
  for (const ObjectRow& row : rows) {
    *out << separator << JsonText(RowAsJson(row), -1);
    separator = ",\n";
  }
  *out << "\n],\n\"summary\":" << JsonText(summary.json(), -1) << "}\n";
}

void WriteTable(const DestDatabase& database, std::ostream* out) {
  WriteRows(RowsOf(database), out);
  *out << Summary(database).text() << '\n';
}

void WriteJson(const DestDatabase& database, std::ostream* out) {
  WriteRowsAsJson(RowsOf(database), Summary(database), out);
}

}  // namespace reference
