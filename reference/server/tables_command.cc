#include "reference/server/tables_command.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>

#include "reference/hal/message_fields.h"
#include "reference/text/hex.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
void PrintAsText(const ServerContents& contents, std::ostream& out) {
  const wire::ServerStatus& status = contents.status;
  out << "generation " << Hex(status.generation()) << ", up " << status.uptime_ms() << " ms, "
      << status.requests() << " requests, " << status.connections() << " connections, "
      << status.refused_connections() << " refused";
  if (status.has_data_plane_writes()) out << ", " << status.data_plane_writes() << " kernel writes";
  if (status.has_data_plane_differences()) {
    out << ", " << status.data_plane_differences() << " differences";
  }
  out << '\n';
  std::string_view separator;
  for (const wire::KindSummary& kind : status.kinds()) {
    out << separator << Printable(kind.kind()) << ' ' << kind.count();
    separator = ", ";
  }
  out << '\n';
  for (const auto& [key, message] : contents.entries) {
    out << HalKindName(key.first) << ' ' << key.second << ": "
        << FieldsText(FieldsOf(key.first, message, {})) << '\n';
  }
}

void PrintAsJson(const ServerContents& contents, std::ostream& out) {
  const wire::ServerStatus& status = contents.status;
  nlohmann::ordered_json json;
  json["generation"] = Hex(status.generation());
  json["uptime_ms"] = status.uptime_ms();
  json["requests"] = status.requests();
  json["connections"] = status.connections();
  json["refused_connections"] = status.refused_connections();
  if (status.has_data_plane_writes()) json["kernel_writes"] = status.data_plane_writes();
  if (status.has_data_plane_differences()) {
    json["kernel_differences"] = status.data_plane_differences();
  }
  nlohmann::ordered_json& tables = json["tables"];
  for (const wire::KindSummary& kind : status.kinds()) {
    tables[kind.kind()] = {{"count", kind.count()},
                           {"digest", Hex(kind.digest())},
                           {"entries", nlohmann::ordered_json::array()}};
  }
  for (const auto& [key, message] : contents.entries) {
    tables[std::string(HalKindName(key.first))]["entries"].push_back(
        {{"id", key.second}, {"fields", FieldsOf(key.first, message, {})}});
  }
  out << JsonText(json, 2) << '\n';
}

}  // namespace reference
