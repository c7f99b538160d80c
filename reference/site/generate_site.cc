#include "reference/site/generate_site.h"

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace reference {
namespace {

constexpr std::size_t kVlansPerInterface = 16;
constexpr std::size_t kMaxInterfaces = 64;
constexpr std::uint32_t kFirstLimId = 0x01000001;
constexpr std::uint32_t kMaxIdGap = 16;
constexpr std::uint32_t kMaxMembers = 8;
constexpr std::uint32_t kLabelCount = 1U << 20;
constexpr std::uint32_t kFirstLabel = 16;

// Number of objects of each kind in a site.
struct Counts {
  explicit Counts(std::size_t objects) {
    const auto percent = [objects](std::size_t share) { return objects * share / 100; };
    vrfs = std::min(objects, std::max<std::size_t>(1, percent(1)));
    vlans = percent(8);
    tunnels = percent(6);
    circuits = tunnels == 0 ? 0 : percent(12);
    ecmps = percent(13);
    hosts = objects - vrfs - vlans - tunnels - circuits - ecmps;
    interfaces = std::min(kMaxInterfaces, 1 + vlans / kVlansPerInterface);
  }

  std::size_t interfaces;
  std::size_t vrfs;
  std::size_t vlans;
  std::size_t hosts;
  std::size_t tunnels;
  std::size_t circuits;
  std::size_t ecmps;
};

class SiteGenerator {
 public:
  SiteGenerator(std::uint32_t seed, std::size_t objects) : random_(seed), counts_(objects) {}

  Site Generate() {
    Fill(site_.interfaces, counts_.interfaces, &SiteGenerator::Interface);
    Fill(site_.vrfs, counts_.vrfs, &SiteGenerator::Vrf);
    Fill(site_.vlans, counts_.vlans, &SiteGenerator::Vlan);
    Fill(site_.hosts, counts_.hosts, &SiteGenerator::Host);
    site_.mpls.reserve(counts_.tunnels + counts_.circuits);
    Fill(site_.mpls, counts_.tunnels, &SiteGenerator::Tunnel);
    Fill(site_.mpls, counts_.circuits, &SiteGenerator::Circuit);
    Fill(site_.ecmps, counts_.ecmps, &SiteGenerator::Ecmp);
    return std::move(site_);
  }

 private:
  template <class Object>
  void Fill(std::vector<Object>& objects, std::size_t count,
            Object (SiteGenerator::*make)(std::size_t)) {
    objects.reserve(objects.size() + count);
    for (std::size_t i = 1; i <= count; ++i) objects.push_back((this->*make)(i));
  }

  // Uniform over 0 .. `count` - 1. The standard library's distributions differ between
  // implementations; this one does not.
  std::uint32_t Below(std::size_t count) {
    return static_cast<std::uint32_t>((std::uint64_t{Word()} * count) >> 32U);
  }

  std::uint32_t Word() { return static_cast<std::uint32_t>(random_()); }

  bool OneIn(std::uint32_t count) { return Below(count) == 0; }

  template <class Value>
  const Value& OneOf(const std::vector<Value>& values) {
    return values[Below(values.size())];
  }

  template <class Object>
  std::uint32_t IdOfOne(const std::vector<Object>& objects) {
    return objects.empty() ? 0 : OneOf(objects).id;
  }

  std::uint32_t NextId() { return last_id_ += 1 + Below(kMaxIdGap); }

  // Locally administered.
  Mac RandomMac() {
    Mac mac{0x02};
    for (std::size_t i = 1; i < mac.size(); ++i) mac[i] = static_cast<std::uint8_t>(Below(256));
    return mac;
  }

  // From 198.18.0.0/15 or 2001:db8::/32.
  std::string RandomIp() {
    const bool ipv6 = OneIn(4);
    std::string ip = ipv6 ? std::string("\x20\x01\x0d\xb8", 4)
                          : std::string{'\xc6', static_cast<char>(18 + Below(2))};
    const std::size_t size = ipv6 ? 16 : 4;
    while (ip.size() < size) ip += static_cast<char>(Below(256));
    return ip;
  }

  std::uint32_t Label() { return kFirstLabel + Below(kLabelCount - kFirstLabel); }

  template <class Object>
  Object Named(const char* prefix, std::size_t number) {
    Object object;
    object.id = NextId();
    object.name = prefix + std::to_string(number);
    return object;
  }

  template <class Object>
  Object OnInterface(const char* prefix, std::size_t number) {
    auto object = Named<Object>(prefix, number);
    object.lim_id = OneOf(site_.interfaces).lim_id;
    return object;
  }

  SiteInterface Interface(std::size_t number) {
    const auto ifindex = static_cast<std::uint32_t>(number);
    return {"eth" + std::to_string(number - 1), kFirstLimId + ifindex - 1, 1, ifindex};
  }

  SiteVrf Vrf(std::size_t number) {
    auto vrf = Named<SiteVrf>("vrf-", number);
    vrf.vrf_id = static_cast<std::uint32_t>(number);
    return vrf;
  }

  SiteVlan Vlan(std::size_t number) {
    static const std::vector<std::uint32_t> kMtus = {1500, 1600, 4470, 9000};
    auto vlan = OnInterface<SiteVlan>("vlan-", number);
    if (!OneIn(16)) vlan.source_mac = RandomMac();
    if (!OneIn(4)) vlan.vrf = OneOf(site_.vrfs).vrf_id;
    if (!OneIn(8)) vlan.mtu = OneOf(kMtus);
    if (!OneIn(4)) vlan.capabilities = {dest_mng::VLAN_CAPABILITY_ROUTED};
    if (OneIn(4)) vlan.list_values = {"unit-" + std::to_string(number)};
    return vlan;
  }

  SiteHost Host(std::size_t number) {
    auto host = OnInterface<SiteHost>("host-", number);
    if (!OneIn(16)) host.mac = RandomMac();
    if (!OneIn(16)) host.ip_address = RandomIp();
    if (!OneIn(4)) host.vrf = OneOf(site_.vrfs).vrf_id;
    host.vlan = IdOfOne(site_.vlans);
    if (OneIn(32)) host.flags = {OneIn(2) ? dest_mng::ACTION_DROP : dest_mng::ACTION_TO_CPU};
    return host;
  }

  SiteMpls LabelSwitched(const char* prefix, std::size_t number) {
    auto mpls = OnInterface<SiteMpls>(prefix, number);
    if (!OneIn(16)) mpls.mac = RandomMac();
    if (!OneIn(16)) mpls.label = Label();
    if (!OneIn(8)) mpls.neighbor = IdOfOne(site_.hosts);
    if (OneIn(2)) mpls.pass_through_value = Word();
    return mpls;
  }

  SiteMpls Tunnel(std::size_t number) {
    static const std::vector<std::vector<dest_mng::MplsCapabilities>> kCapabilities = {
        {},
        {dest_mng::MPLS_CAPABILITY_PUSH},
        {dest_mng::MPLS_CAPABILITY_SWAP},
        {dest_mng::MPLS_CAPABILITY_PUSH, dest_mng::MPLS_CAPABILITY_PROTECTION},
        {dest_mng::MPLS_CAPABILITY_FORWARD}};
    SiteMpls tunnel = LabelSwitched("tunnel-", number);
    tunnel.vlan = IdOfOne(site_.vlans);
    tunnel.capabilities = OneOf(kCapabilities);
    return tunnel;
  }

  SiteMpls Circuit(std::size_t number) {
    SiteMpls circuit = LabelSwitched("circuit-", number);
    circuit.vc_label = Label();
    circuit.tunnel = site_.mpls[Below(counts_.tunnels)].id;
    circuit.capabilities = {dest_mng::MPLS_CAPABILITY_VC_LABEL};
    return circuit;
  }

  SiteEcmp Ecmp(std::size_t number) {
    auto ecmp = Named<SiteEcmp>("ecmp-", number);
    const std::uint32_t members = OneIn(20) ? 0 : 1 + Below(kMaxMembers);
    ecmp.members.reserve(members);
    for (std::uint32_t i = 0; i < members; ++i) ecmp.members.push_back(Member(ecmp));
    return ecmp;
  }

  std::uint32_t Member(const SiteEcmp& ecmp) {
    if (!ecmp.members.empty() && OneIn(8)) return OneOf(ecmp.members);
    if (!site_.mpls.empty() && OneIn(4)) return OneOf(site_.mpls).id;
    return OneOf(site_.hosts).id;
  }

  std::mt19937 random_;
  const Counts counts_;
  std::uint32_t last_id_ = 0;
  Site site_;
};

}  // namespace

Site GenerateSite(std::uint32_t seed, std::size_t objects) {
  return SiteGenerator(seed, objects).Generate();
}

}  // namespace reference
