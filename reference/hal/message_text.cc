#include "reference/hal/message_text.h"

namespace reference {

std::string MessageText(HalKind kind, const std::string& payload) {
  return VisitKind(kind, [&payload](auto row) {
    typename decltype(row)::Message message;
    message.ParseFromString(payload);
    return message.ShortDebugString();
  });
}

void DumpEntries(const TableEntries& entries, std::ostream* out) {
  for (const auto& [key, payload] : entries) {
    *out << HalKindName(key.first) << ':' << key.second << ' ' << MessageText(key.first, payload)
         << '\n';
  }
}

}  // namespace reference
