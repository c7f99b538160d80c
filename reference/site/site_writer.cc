#include "reference/site/site_writer.h"

#include <google/protobuf/text_format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "reference/site/site_values.h"
#include "site.pb.h"

namespace reference {
namespace {

class SiteWriter {
 public:
  explicit SiteWriter(const Site& site) : site_(site) {
    printer_.SetSingleLineMode(true);
    printer_.SetUseUtf8StringEscaping(true);
    for (const SiteInterface& interface : site.interfaces) {
      interfaces_.emplace(interface.lim_id, &interface.name);
    }
    AddNames(site.vlans);
    AddNames(site.hosts);
    AddNames(site.mpls);
    AddNames(site.ecmps);
  }

  std::string Write() {
    text_ = "object_count: " + std::to_string(CountObjects(site_)) + '\n';
    WriteAll("interface", site_.interfaces);
    WriteAll("vrf", site_.vrfs);
    WriteAll("vlan", site_.vlans);
    WriteAll("host", site_.hosts);
    WriteAll("mpls", site_.mpls);
    WriteAll("ecmp", site_.ecmps);
    return std::move(text_);
  }

 private:
  template <class Object>
  void AddNames(const std::vector<Object>& objects) {
    for (const Object& object : objects) names_.emplace(object.id, &object.name);
  }

  // One message at a time: all messages of a large site together would take far more memory than
  // its text.
  template <class Object>
  void WriteAll(const char* kind, const std::vector<Object>& objects) {
    std::string fields;
    for (const Object& object : objects) {
      printer_.PrintToString(ToMessage(object), &fields);
      text_.append(kind).append(" { ").append(fields).append("}\n");
    }
  }

  static site::Interface ToMessage(const SiteInterface& interface) {
    site::Interface message;
    message.set_name(interface.name);
    message.set_lim_id(interface.lim_id);
    message.set_type(interface.type);
    message.set_ifindex(interface.ifindex);
    return message;
  }

  static site::Vrf ToMessage(const SiteVrf& vrf) {
    site::Vrf message;
    message.set_id(vrf.id);
    message.set_name(vrf.name);
    message.set_vrf_id(vrf.vrf_id);
    return message;
  }

  site::Vlan ToMessage(const SiteVlan& vlan) const {
    auto message = OnInterface<site::Vlan>(vlan);
    if (vlan.source_mac) message.set_source_mac(FormatMac(*vlan.source_mac));
    if (vlan.vrf) message.set_vrf(*vlan.vrf);
    if (vlan.mtu) message.set_mtu(*vlan.mtu);
    for (const auto value : vlan.capabilities) {
      message.add_capability(Word(kVlanCapabilityWords, value));
    }
    for (const std::string& value : vlan.list_values) message.add_list_value(value);
    return message;
  }

  site::Host ToMessage(const SiteHost& host) const {
    auto message = OnInterface<site::Host>(host);
    if (host.mac) message.set_mac(FormatMac(*host.mac));
    if (!host.ip_address.empty()) message.set_ip(FormatIp(host.ip_address));
    if (host.vrf) message.set_vrf(*host.vrf);
    if (host.vlan != 0) message.set_vlan(*names_.at(host.vlan));
    for (const auto value : host.flags) message.add_flag(Word(kFlagWords, value));
    return message;
  }

  site::Mpls ToMessage(const SiteMpls& mpls) const {
    auto message = OnInterface<site::Mpls>(mpls);
    if (mpls.mac) message.set_mac(FormatMac(*mpls.mac));
    if (mpls.label) message.set_label(*mpls.label);
    if (mpls.vc_label) message.set_vc_label(*mpls.vc_label);
    if (mpls.vlan != 0) message.set_vlan(*names_.at(mpls.vlan));
    if (mpls.tunnel != 0) message.set_tunnel(*names_.at(mpls.tunnel));
    if (mpls.neighbor != 0) message.set_neighbor(*names_.at(mpls.neighbor));
    if (mpls.pass_through_value) message.set_pass_through_value(*mpls.pass_through_value);
    for (const auto value : mpls.capabilities) {
      message.add_capability(Word(kMplsCapabilityWords, value));
    }
    return message;
  }

  site::Ecmp ToMessage(const SiteEcmp& ecmp) const {
    site::Ecmp message;
    message.set_id(ecmp.id);
    message.set_name(ecmp.name);
    for (const std::uint32_t member : ecmp.members) message.add_member(*names_.at(member));
    return message;
  }

  template <class Message, class Object>
  Message OnInterface(const Object& object) const {
    Message message;
    message.set_id(object.id);
    message.set_name(object.name);
    message.set_interface(*interfaces_.at(object.lim_id));
    return message;
  }

  template <class Value, std::size_t size>
  static std::string Word(const std::array<Keyword<Value>, size>& table, Value value) {
    for (const Keyword<Value>& keyword : table) {
      if (keyword.value == value) return std::string(keyword.word);
    }
    return {};
  }

  const Site& site_;
  google::protobuf::TextFormat::Printer printer_;
  std::unordered_map<std::uint32_t, const std::string*> interfaces_;
  std::unordered_map<std::uint32_t, const std::string*> names_;
  std::string text_;
};

}  // namespace

std::string WriteSite(const Site& site) { return SiteWriter(site).Write(); }

}  // namespace reference
