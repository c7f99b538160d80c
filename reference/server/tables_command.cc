#include "reference/server/tables_command.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "reference/hal/message_fields.h"
#include "reference/text/hex.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {

void PrintAsText(const ServerContents& contents, const KernelComparison* kernel,
                 std::ostream& out) {
  const wire::ServerStatus& status = contents.status;
  out << "generation " << Hex(status.generation()) << ", up " << status.uptime_ms() << " ms, "
      << status.requests() << " requests, " << status.connections() << " connections ("
      << status.refused_connections() << " refused)";
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
    if (kernel == nullptr) continue;
    const std::string text = EntryText(kernel->entries.at(key));
    out << "  in the kernel: " << (text.empty() ? "nothing" : text) << '\n';
  }
}

void PrintAsJson(const ServerContents& contents, const KernelComparison* kernel,
                 std::ostream& out) {
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
    nlohmann::ordered_json entry = {{"id", key.second},
                                    {"fields", FieldsOf(key.first, message, {})}};
    if (kernel != nullptr) {
      const EntryInKernel& in_kernel = kernel->entries.at(key);
      if (in_kernel.refusal != kHalSuccess) {
        entry["kernel_refusal"] = MakeErrorCode(in_kernel.refusal).message();
      }
      nlohmann::ordered_json& objects = entry["kernel_objects"];
      objects = nlohmann::ordered_json::object();
      for (const auto& [name, state] : in_kernel.objects) objects[name] = ObjectStateText(state);
    }
    tables[std::string(HalKindName(key.first))]["entries"].push_back(std::move(entry));
  }
  out << JsonText(json, 2) << '\n';
}

}  // namespace reference
