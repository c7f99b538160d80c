#include "reference/data_plane/ip_commands.h"

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>
#include <variant>

namespace reference {
namespace {

// Quotes the text as one shell word.
std::string Word(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_not_of(
                                          "abcdefghijklmnopqrstuvwxyz"
                                          "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                          "0123456789._:-") == std::string::npos;
  if (plain) return text;
  std::string word = "'";
  for (const char c : text) {
    if (c == '\'') {
      word += "'\\''";
    } else {
      word += c;
    }
  }
  return word + '\'';
}

std::string MacText(const MacAddress& mac) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : mac) {
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

std::string AddressText(const Ipv6Address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, address.data(), text.data(), text.size());
  return text.data();
}

const std::string kMark = std::to_string(kRoutingProtocol);

std::string LabelsText(const std::vector<std::uint32_t>& labels) {
  std::string text;
  for (const std::uint32_t label : labels) {
    if (!text.empty()) text += '/';
    text += std::to_string(label);
  }
  return text;
}

// The commands of one change.
class Writer {
 public:
  std::vector<std::string> Take() { return std::move(lines_); }

  void operator()(const PutDevice& put) {
    if (put.before) return ChangeDevice(put);
    const std::string name = Word(put.name);
    std::visit([this, &name](const auto& device) { Create(name, device); }, put.device);
    Sysctl("ipv6", put.name, "disable_ipv6", false);
    Ip("link set " + name + " addrgenmode none");
    if (const auto* const macvlan = std::get_if<MacvlanDevice>(&put.device)) {
      if (!macvlan->alias.empty()) SetAlias(name, *macvlan);
      if (macvlan->forwarding) SetForwarding(put.name, true);
      // While the device is down; otherwise it would go down and up again.
      if (!macvlan->master.empty()) Ip("link set " + name + " master " + Word(macvlan->master));
    }
    if (std::holds_alternative<VrfDevice>(put.device)) SetForwarding(put.name, true);
    Ip("link set " + name + " up");
  }

  void operator()(const RemoveDevice& removed) { Ip("link del " + Word(removed.name)); }

  void operator()(const PutNeighbour& put) {
    Ip("neigh replace " + AddressText(put.key.second) + " lladdr " + MacText(put.address) +
       " dev " + Word(put.key.first) + " nud permanent protocol " + kMark);
  }

  void operator()(const RemoveNeighbour& removed) {
    Ip("neigh del " + AddressText(removed.key.second) + " dev " + Word(removed.key.first));
  }

  void operator()(const PutNexthop& put) {
    const std::string id = std::to_string(put.id);
    std::visit([this, &id](const auto& nexthop) { PutNexthopOf(id, nexthop); }, put.nexthop);
  }

  void operator()(const RemoveNexthop& removed) {
    Ip("nexthop del id " + std::to_string(removed.id));
  }

 private:
  void Ip(const std::string& command) { lines_.push_back("ip " + command); }

  // With slashes, because device names may contain dots.
  void Sysctl(const std::string& family, const std::string& device, const std::string& setting,
              bool on, const std::string& options = "-qw") {
    const std::string key = "net/" + family + "/conf/" + device + '/' + setting;
    lines_.push_back("sysctl " + options + ' ' + Word(key + '=' + (on ? '1' : '0')));
  }

  void SetForwarding(const std::string& device, bool on) {
    Sysctl("ipv4", device, "forwarding", on);
    Sysctl("ipv6", device, "forwarding", on);
    // Since Linux 6.17. On older kernels, busybox's sysctl fails despite -e.
    Sysctl("ipv6", device, "force_forwarding", on, "-eqw");
    lines_.back() += " || :";
  }

  void SetAlias(const std::string& name, const MacvlanDevice& macvlan) {
    Ip("link set " + name + " alias " + Word(macvlan.alias));
  }

  void Create(const std::string& name, const VrfDevice& vrf) {
    Ip("link add " + name + " group " + kMark + " type vrf table " + std::to_string(vrf.table));
  }

  void Create(const std::string& name, const DummyDevice& /*dummy*/) {
    Ip("link add " + name + " group " + kMark + " type dummy");
  }

  void Create(const std::string& name, const TaggedDevice& tagged) {
    Ip("link add link " + Word(tagged.parent) + " name " + name + " group " + kMark +
       " type vlan id " + std::to_string(tagged.tag));
  }

  void Create(const std::string& name, const MacvlanDevice& macvlan) {
    std::string command = "link add link " + Word(macvlan.parent) + " name " + name + " address " +
                          MacText(macvlan.address) + " group " + kMark;
    if (macvlan.mtu != 0) command += " mtu " + std::to_string(macvlan.mtu);
    Ip(command + " type macvlan mode private");
  }

  void ChangeDevice(const PutDevice& put) {
    const auto& before = std::get<MacvlanDevice>(*put.before);
    const auto& after = std::get<MacvlanDevice>(put.device);
    const std::string name = Word(put.name);
    if (before.address != after.address) {
      Ip("link set " + name + " address " + MacText(after.address));
    }
    if (before.mtu != after.mtu) Ip("link set " + name + " mtu " + MtuText(after));
    if (before.alias != after.alias) SetAlias(name, after);
    if (before.forwarding != after.forwarding) SetForwarding(put.name, after.forwarding);
  }

  static std::string MtuText(const MacvlanDevice& macvlan) {
    if (macvlan.mtu != 0) return std::to_string(macvlan.mtu);
    return "\"$(ip link show " + Word(macvlan.parent) +
           " | sed -n 's/.* mtu \\([0-9]*\\).*/\\1/p')\"";
  }

  void PutNexthopOf(const std::string& id, const BlackholeNexthop& /*blackhole*/) {
    // An IPv6 next hop, because IPv6 routes do not accept an IPv4 one.
    Ip("-6 nexthop replace id " + id + " blackhole protocol " + kMark);
  }

  void PutNexthopOf(const std::string& id, const DeviceNexthop& nexthop) {
    std::string command = "-6 nexthop replace id " + id;
    if (!nexthop.labels.empty()) command += " encap mpls " + LabelsText(nexthop.labels);
    const bool gateway = nexthop.gateway != Ipv6Address{};
    if (gateway) command += " via " + AddressText(nexthop.gateway);
    command += " dev " + Word(nexthop.device);
    if (gateway) command += " onlink";
    Ip(command + " protocol " + kMark);
  }

  void PutNexthopOf(const std::string& id, const NexthopGroup& group) {
    std::string members;
    for (const auto& [member, weight] : group.members) {
      if (!members.empty()) members += '/';
      members += std::to_string(member);
      if (weight != 1) members += ',' + std::to_string(weight);
    }
    Ip("nexthop replace id " + id + " group " + members + " protocol " + kMark);
  }

  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> IpCommands(const KernelChange& change) {
  Writer writer;
  std::visit(writer, change);
  return writer.Take();
}

}  // namespace reference
