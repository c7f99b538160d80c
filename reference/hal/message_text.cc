#include "reference/hal/message_text.h"

#include <array>

#include "base_encap_message.pb.h"

namespace reference {
namespace {

template <typename Message>
std::string TextOf(const std::string& payload) {
  Message message;
  message.ParseFromString(payload);
  return message.ShortDebugString();
}

using Shower = std::string (*)(const std::string& payload);

constexpr std::array<Shower, kHalKinds> kShowers = {
    TextOf<encapsulation::VrfMessage>,  TextOf<encapsulation::VlanMessage>,
    TextOf<encapsulation::HostMessage>, TextOf<encapsulation::EcmpMessage>,
    TextOf<encapsulation::MplsMessage>,
};

}  // namespace

std::string MessageText(HalKind kind, const std::string& payload) {
  return kShowers.at(static_cast<std::size_t>(kind))(payload);
}

void DumpEntries(const TableEntries& entries, std::ostream* out) {
  for (const auto& [key, payload] : entries) {
    *out << HalKindName(key.first) << ':' << key.second << ' ' << MessageText(key.first, payload)
         << '\n';
  }
}

}  // namespace reference
