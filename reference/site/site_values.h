#ifndef ZUSKUX_REFERENCE_SITE_SITE_VALUES_H_
#define ZUSKUX_REFERENCE_SITE_SITE_VALUES_H_

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "reference/site/site.h"

namespace reference {

// The syntax of single values in a site file, shared by the reader and the writer.

/// A word of the site file and the value that it means.
template <class Value>
struct Keyword {
  std::string_view word;
  Value value;
};

inline constexpr std::array<Keyword<dest_mng::ActionFlags>, 3> kFlagWords = {{
    {"none", dest_mng::ACTION_NONE},
    {"drop", dest_mng::ACTION_DROP},
    {"to-cpu", dest_mng::ACTION_TO_CPU},
}};

inline constexpr std::array<Keyword<dest_mng::VlanCapabilities>, 2> kVlanCapabilityWords = {{
    {"none", dest_mng::VLAN_CAPABILITY_NONE},
    {"routed", dest_mng::VLAN_CAPABILITY_ROUTED},
}};

inline constexpr std::array<Keyword<dest_mng::MplsCapabilities>, 6> kMplsCapabilityWords = {{
    {"none", dest_mng::MPLS_CAPABILITY_NONE},
    {"protection", dest_mng::MPLS_CAPABILITY_PROTECTION},
    {"swap", dest_mng::MPLS_CAPABILITY_SWAP},
    {"push", dest_mng::MPLS_CAPABILITY_PUSH},
    {"forward", dest_mng::MPLS_CAPABILITY_FORWARD},
    {"vc-label", dest_mng::MPLS_CAPABILITY_VC_LABEL},
}};

/// Reads six hexadecimal pairs with colons.
std::optional<Mac> ParseMac(std::string_view text);
/// "02:00:00:00:01:0a".
std::string FormatMac(const Mac& mac);

/// Reads an IPv4 or IPv6 address: 4 or 16 bytes in network byte order.
std::optional<std::string> ParseIp(std::string_view text);
/// The text for 4 or 16 bytes in network byte order.
std::string FormatIp(const std::string& bytes);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_VALUES_H_
