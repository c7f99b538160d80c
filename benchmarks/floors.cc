#include "benchmarks/floors.h"

#include <zlog.h>

#include <array>
#include <boost/variant/get.hpp>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "base_encap_message.pb.h"
#include "benchmarks/objects.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "hal_client/hal_mpls_capabilities.h"
#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

namespace bench {
namespace {

// The smallest message that a client accepts: implements just its two interfaces.
class Carrier final : public AppMessage, public HalL3MplsEncapsulationPrintable {
 public:
  explicit Carrier(google::protobuf::Message* message) : AppMessage(message) {}
  bool Unserialize(void* /*buffer*/) override { return false; }
  std::string ToString(bool /*full*/) const override { return {}; }
};

// The smallest registry: one object, made on first use, behind one function for every kind.
struct Registry {
  [[gnu::noinline]] static Registry* Instance() {
    static Registry instance;
    return &instance;
  }
  Registry() : client(&IdleClient()) {}

  HalL3MplsEncapsulationClient* client;
};

// Sends `message` through a client that may be missing, or replaced between two look-ups.
template <typename Operation>
void Send(Operation operation, google::protobuf::Message* message) {
  Carrier carrier(message);
  if (Registry::Instance()->client == nullptr) return;
  (Registry::Instance()->client->*operation)(&carrier);
}

bool Traced() { return zlog_level_enabled(g_trace, 10) != 0; }

int Integer(dest_mng::DbObject* object, const char* name) {
  const db::Attribute& attribute = object->attributes[name];
  return attribute.present ? boost::get<int>(attribute.value) : 0;
}

// A stack buffer that the benchmarks append to by hand; no text of theirs is longer.
class Line {
 public:
  template <std::size_t N>
  void Put(const char (&literal)[N]) {
    std::memcpy(end_, literal, N - 1);
    end_ += N - 1;
  }
  void Put(const char* text, std::size_t size) {
    std::memcpy(end_, text, size);
    end_ += size;
  }
  template <typename Integer>
  void PutDecimal(Integer value) {
    end_ = std::to_chars(end_, end_ + 20, value).ptr;
  }
  template <typename T>
  void PutHex(const HalL3MplsEncapsulationPrintable& printable, T value, std::size_t width) {
    const std::string text = printable.ToHexString(value, width);
    Put(text.data(), text.size());
  }
  void PutLimId(const HalL3MplsEncapsulationPrintable& printable, const std::string& lim_id) {
    std::uint32_t id = 0;
    std::memcpy(&id, lim_id.data(), lim_id.size() < 4 ? lim_id.size() : 4);
    std::uint8_t type = 0;
    std::uint32_t index;
    char name[64] = {};
    limid_to_type(id, &type);
    limid_to_ifindex(id, &index);
    limid_to_intfname(id, name, sizeof name, 0);
    Put(", lim id(name=");
    Put(name, std::strlen(name));
    Put(", type=");
    PutHex(printable, type, 2);
    Put(", value=");
    PutHex(printable, index & 0xFFFFFF, 6);
    Put(")");
  }
  void PutMac(const std::string& mac) {
    const std::string text =
        nettypes::MACAddr(reinterpret_cast<const std::uint8_t*>(mac.data())).to_string();
    Put("mac address(");
    Put(text.data(), text.size());
    Put(")");
  }
  std::string str() const {
    return {buffer_.data(), static_cast<std::size_t>(end_ - buffer_.data())};
  }

 private:
  std::array<char, 1024> buffer_;
  char* end_ = buffer_.data();
};

// The smallest message to a controller, with the members that the framework expects.
class Notice final : public AppMessage {
 public:
  explicit Notice(google::protobuf::Message* record) : AppMessage(record) {}
  bool Unserialize(void* /*buffer*/) override { return false; }

 private:
  [[maybe_unused]] std::int32_t number_ = 0;
  std::string text_;
};

// The smallest controller, around the framework's own.
class Notified : public msg_ctrl::MessageController {
 public:
  using MessageController::MessageController;
  virtual void Handle() {}
};

// Not inlined, so that the handler is called as an unknown one.
[[gnu::noinline]] void Notify(Notified* controller) { controller->Handle(); }

void LogEntryPoint() {
  static constexpr char kFile[] = "src/hai/hai_callback";
  static constexpr char kFunction[] = "ResCallback";
  zlog(g_trace, kFile, sizeof kFile - 1, kFunction, sizeof kFunction - 1, 1, 10, "Entry Point");
}

}  // namespace

void FloorVlan(dest_mng::DbVlanObject* vlan) {
  const auto& record = static_cast<const dest_mng::DestVlanMessage&>(*vlan->record);
  auto message = std::make_unique<encapsulation::VlanMessage>();
  if (record.has_vlan_dest_id()) message->set_vlan_destination_id(record.vlan_dest_id());
  message->set_lim_id(record.lim_id());
  if (record.has_vrf()) message->set_vrf(record.vrf());
  if (record.has_mtu()) message->set_mtu(record.mtu());
  if (record.has_source_mac()) message->set_source_mac_address(record.source_mac());
  for (const int capability : record.capabilities()) {
    message->add_capabilities(static_cast<encapsulation::VlanCapabilities>(capability == 1));
  }
  for (const db::Attribute& value : vlan->attribute_lists[vlan->list_attribute_name].second) {
    if (!value.present) continue;
    const auto& text = boost::get<std::string>(value.value);
    if (!text.empty()) message->add_list_values(text);
  }
  if (Traced()) return;
  Send(&HalL3MplsEncapsulationClient::InstallVlanOutgoingEncapsulation, message.get());
}

void FloorHost(dest_mng::DbHostObject* host) {
  const auto& record = static_cast<const dest_mng::DestHostMessage&>(*host->record);
  auto message = std::make_unique<encapsulation::HostMessage>();
  if (record.has_dest_id()) message->set_dest_id(record.dest_id());
  if (record.has_lim_id()) message->set_lim_id(record.lim_id());
  if (record.has_dest_mac()) message->set_dest_mac(record.dest_mac());
  if (Integer(host, "vlan_dest_id") != 0) {
    message->set_vlan_dest_id(static_cast<std::uint32_t>(Integer(host, "vlan_dest_id")));
  }
  for (const int flag : record.flags()) {
    message->add_flags(static_cast<encapsulation::ActionFlags>(flag));
  }
  if (Traced()) return;
  Send(&HalL3MplsEncapsulationClient::InstallHostOutgoingEncapsulation, message.get());
}

void FloorMpls(dest_mng::DbMplsObject* mpls) {
  const auto& record = static_cast<const dest_mng::DestMplsMessage&>(*mpls->record);
  auto message = std::make_unique<encapsulation::MplsMessage>();
  if (record.has_mpls_dest_id()) message->set_dest_id(record.mpls_dest_id());
  message->set_vlan_tunnel_dest_id(mpls->HasVcLabel()
                                       ? record.tunnel_dest_id()
                                       : static_cast<std::uint32_t>(Integer(mpls, "vlan_dest_id")));
  if (record.has_lim_id()) message->set_lim_id(record.lim_id());
  if (record.has_dest_mac()) message->set_dest_mac(record.dest_mac());
  if (record.has_label()) message->add_labels(record.label());
  if (record.has_pass_through_value()) {
    message->set_pass_through_value(record.pass_through_value());
  }
  for (const int capability : record.capabilities()) {
    message->add_capabilities(static_cast<encapsulation::MplsCapabilities>(capability));
  }
  if (Integer(mpls, "host_dest_id") == 0) message->set_flag(encapsulation::ACTION_DROP);
  if (Traced()) return;
  Send(&HalL3MplsEncapsulationClient::InstallMplsUnprotectedOutgoingEncapsulation, message.get());
}

void FloorEcmp(const dest_mng::EcmpData& ecmp) {
  const std::vector<unsigned int> members = ecmp.NhopsDestId();
  encapsulation::EcmpMessage message;
  message.set_db_id(ecmp.db_id);
  for (const unsigned int member : members) message.add_members(member);
  if (Traced()) return;
  Send(&HalL3MplsEncapsulationClient::InstallEcmpEncap, &message);
}

void FloorVrf(const dest_mng::VrfData& vrf) {
  encapsulation::VrfMessage message;
  message.set_vrf_id(vrf.vrf_id);
  if (Traced()) return;
  Carrier carrier(&message);
  // No check: a VRF's client is never missing.
  Registry::Instance()->client->InstallVrfIngressInterface(&carrier);
}

std::string FloorRender(const encapsulation::VlanMessage& vlan,
                        const HalL3MplsEncapsulationPrintable& printable) {
  Line line;
  line.Put("VlanEncapsulationMessage(this=");
  line.PutHex(printable, reinterpret_cast<unsigned long>(&printable), 16);
  line.Put("): VlanMessage(vlan destination id(");
  line.PutDecimal(vlan.vlan_destination_id());
  line.Put(")");
  if (vlan.has_lim_id()) line.PutLimId(printable, vlan.lim_id());
  if (vlan.has_vrf()) line.Put(", vrf=");
  line.PutDecimal(vlan.vrf());
  if (vlan.mtu() != 0) line.Put(", mtu=");
  line.PutDecimal(vlan.mtu());
  line.Put(", source ");
  if (vlan.has_source_mac_address()) line.PutMac(vlan.source_mac_address());
  line.Put(")");
  return line.str();
}

std::string FloorRender(const encapsulation::HostMessage& host,
                        const HalL3MplsEncapsulationPrintable& printable) {
  static constexpr std::array<std::string_view, 3> kLabels = {"None", "Drop Packet", "To CPU"};
  Line line;
  line.Put("HostEncapsulationMessage(this=");
  line.PutHex(printable, reinterpret_cast<unsigned long>(&printable), 16);
  line.Put("): HostMessage(host destination id(");
  line.PutDecimal(host.dest_id());
  line.Put(")");
  if (host.has_vlan_dest_id()) line.Put(", vlan destination id(");
  line.PutDecimal(host.vlan_dest_id());
  line.Put(")");
  if (host.has_lim_id()) line.PutLimId(printable, host.lim_id());
  const std::vector<int> flags(host.flags().begin(), host.flags().end());
  line.Put(", HAL Flags(");
  for (std::size_t place = 0; place < flags.size(); ++place) {
    if (place != 0) line.Put(", ");
    const std::string_view label = kLabels[static_cast<std::size_t>(flags[place])];
    line.Put(label.data(), label.size());
  }
  line.Put(")");
  if (host.has_dest_mac()) line.Put(", destination ");
  line.PutMac(host.dest_mac());
  line.Put(")");
  return line.str();
}

std::string FloorRender(const encapsulation::MplsMessage& mpls,
                        const HalL3MplsEncapsulationPrintable& printable) {
  static constexpr std::array<std::string_view, 6> kNames = {"None",    "Protection", "Swap",
                                                             "Forward", "Push",       "VCLabel"};
  Line line;
  line.Put("MplsEncapsulationMessage(this=");
  line.PutHex(printable, reinterpret_cast<unsigned long>(&printable), 16);
  line.Put("): MplsMessage(mpls destination id(");
  line.PutDecimal(mpls.dest_id());
  line.Put(")");
  if (mpls.has_vlan_tunnel_dest_id()) line.Put(", vlan/tunnel destination id(");
  line.PutDecimal(mpls.vlan_tunnel_dest_id());
  line.Put(")");
  if (mpls.has_lim_id()) line.PutLimId(printable, mpls.lim_id());
  if (mpls.has_dest_mac()) line.Put(", destination ");
  line.PutMac(mpls.dest_mac());
  line.Put(", labels(size=");
  line.PutDecimal(mpls.labels_size());
  for (const std::uint32_t label : mpls.labels()) {
    line.Put(", label(");
    line.PutDecimal(label);
    line.Put(")");
  }
  line.Put(")");
  const std::vector<int> capabilities(mpls.capabilities().begin(), mpls.capabilities().end());
  line.Put(", MPLS Capabilities(");
  for (std::size_t place = 0; place < capabilities.size(); ++place) {
    if (place != 0) line.Put(", ");
    const std::string_view name = kNames[static_cast<std::size_t>(capabilities[place])];
    line.Put(name.data(), name.size());
  }
  line.Put(")");
  line.Put(", HAL Flag(None)");
  line.Put(")");
  return line.str();
}

std::string FloorRender(const encapsulation::EcmpMessage& ecmp,
                        const HalL3MplsEncapsulationPrintable& printable) {
  Line line;
  line.Put("EcmpEncapsulationMessage(this=");
  line.PutHex(printable, reinterpret_cast<unsigned long>(&printable), 16);
  line.Put("): EcmpMessage(destination id(");
  line.PutDecimal(ecmp.db_id());
  line.Put(")");
  if (ecmp.members_size() != 0) {
    line.Put(" EcmpMembers[ ");
    for (const std::uint32_t member : ecmp.members()) {
      line.PutDecimal(member);
      line.Put(" ");
    }
    line.Put("]");
  }
  line.Put(")");
  return line.str();
}

std::string FloorRender(const encapsulation::VrfMessage& vrf) {
  Line line;
  line.Put("VrfEncapsulationMessage(");
  if (vrf.has_vrf_id()) line.Put("VRF id(");
  line.PutDecimal(vrf.vrf_id());
  line.Put(")");
  line.Put(")");
  return line.str();
}

void FloorVlanResult(unsigned int db_id) {
  LogEntryPoint();
  dest_mng::DestVlanMessage record;
  Notified controller(new Notice(&record));
  dynamic_cast<dest_mng::DestVlanMessage&>(*controller.message()->message()).set_db_id(db_id);
  Notify(&controller);
}

void FloorHostResult(unsigned int db_id) {
  LogEntryPoint();
  dest_mng::DestHostMessage record;
  Notified controller(new Notice(&record));
  dynamic_cast<dest_mng::DestHostMessage&>(*controller.message()->message()).set_db_id(db_id);
  Notify(&controller);
}

void FloorEcmpResult(unsigned int db_id) {
  LogEntryPoint();
  dest_mng::DestEcmpRouteMessage record;
  record.set_db_id(db_id);
  Notified controller(new Notice(&record));
  Notify(&controller);
}

void FloorMplsResult(unsigned int db_id, unsigned int secondary_id) {
  LogEntryPoint();
  dest_mng::DestMplsMessage record;
  Notified controller(new Notice(&record));
  dynamic_cast<dest_mng::DestMplsMessage&>(*controller.message()->message()).set_db_id(db_id);
  dynamic_cast<dest_mng::DestMplsMessage&>(*controller.message()->message())
      .set_secondary_id(secondary_id);
  Notify(&controller);
}

}  // namespace bench
