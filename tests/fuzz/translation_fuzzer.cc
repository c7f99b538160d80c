// The translation of any destination object: it throws exactly if an attribute that it reads holds
// another type; otherwise the HAL receives what the object says.
//
// Input: the kind and whether tracing is on (1 byte), then what the kind's function reads.

#include <zlog.h>

#include <boost/variant/get.hpp>
#include <cstdarg>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base_encap_message.pb.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "dest_mng.pb.h"
#include "reference/hal/hal_connection.h"
#include "tests/fuzz/fuzz_input.h"
#include "zuskux/hai.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vrf_hai.h"

namespace {

bool trace_enabled = false;

}  // namespace

// Replaces the logging library: formats every line and drops it.
int zlog_level_enabled(zlog_category_t* /*category*/, const int level) {
  return level != 10 || trace_enabled ? 1 : 0;
}

void zlog(zlog_category_t* /*category*/, const char* /*file*/, size_t /*filelen*/,
          const char* /*func*/, size_t /*funclen*/, long /*line*/, int /*level*/,
          const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int size = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  fuzz::Check(size > 0, "a line without a text");
}

namespace {

using dest_mng::DbHostObject;
using dest_mng::DbMplsObject;
using dest_mng::DbVlanObject;
using dest_mng::DestHostMessage;
using dest_mng::DestMplsMessage;
using dest_mng::DestVlanMessage;
using fuzz::Check;
using fuzz::Input;

// Keeps the last request.
class LastRequest : public reference::HalConnection {
 public:
  void Start(reference::HalReports /*reports*/) override {}
  bool HasRoom() override { return true; }
  reference::HalConnectionCounters counters() const override { return {}; }
  reference::HalLatencies latencies() const override { return {}; }

  std::optional<reference::HalRequest> Take() { return std::exchange(request_, std::nullopt); }

 protected:
  void SubmitBeginReinstall() override {}
  void SubmitEndReinstall() override {}
  reference::HalReturnCode Submit(reference::HalRequest* request) override {
    Check(!request_, "more than one request");
    request_ = std::move(*request);
    return reference::kHalSuccess;
  }

 private:
  std::optional<reference::HalRequest> request_;
};

LastRequest& Hal() {
  static LastRequest hal;
  return hal;
}

void CheckSent(reference::HalOperation operation, const google::protobuf::Message& expected) {
  const auto request = Hal().Take();
  Check(request.has_value(), "no request");
  Check(request->operation == operation, "another operation");
  Check(request->payload == expected.SerializeAsString(), "another message");
}

db::Attribute AttributeOf(Input* input) {
  db::Attribute attribute;
  const std::uint8_t form = input->Byte();
  attribute.present = (form & 4) != 0;
  switch (form & 3) {
    case 0:
      attribute.value = static_cast<int>(input->Number());
      break;
    case 1:
      attribute.value = input->Text();
      break;
    case 2:
      attribute.value = std::uint64_t{input->Number()};
      break;
    default: {
      const std::string bytes = input->Text();
      attribute.value = db::Attribute::Bytes(bytes.begin(), bytes.end());
    }
  }
  return attribute;
}

// The attribute, read as an integer; nothing if that throws.
std::optional<int> Integer(const dest_mng::DbObject& object, const char* name) {
  const auto found = object.attributes.find(name);
  if (found == object.attributes.end() || !found->second.present) return 0;
  const int* const value = boost::get<int>(&found->second.value);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

void AddAttributes(Input* input, std::initializer_list<const char*> names,
                   dest_mng::DbObject* object) {
  for (const char* const name : names) {
    if (input->Bool()) object->attributes[name] = AttributeOf(input);
  }
}

// Whether `translate` returned. The only exception it may throw is that of a wrong type.
template <typename Translate>
bool Returns(Translate translate) {
  try {
    translate();
    return true;
  } catch (const boost::bad_get&) {
    return false;
  }
}

// Checks that all three operations of an adapter send `expected`.
template <typename Adapter>
void CheckOperations(Adapter* adapter, void* object, reference::HalOperation install,
                     reference::HalOperation destroy, reference::HalOperation replace,
                     const google::protobuf::Message& expected) {
  Check(adapter->CreateDestination(object) == 0, "create");
  CheckSent(install, expected);
  Check(adapter->DeleteDestination(object) == 0, "delete");
  CheckSent(destroy, expected);
  Check(adapter->UpdateDestination(object) == 0, "update");
  CheckSent(replace, expected);
}

int MappedVlanCapability(int value) { return value == 1 ? 1 : 0; }
int MappedFlag(int value) { return value == 1 || value == 2 ? value : 0; }

// 3 and 4 are swapped; 0 and unknown values become "Forward".
int MappedMplsCapability(int value) {
  switch (value) {
    case 1:
    case 2:
    case 5:
      return value;
    case 3:
      return 4;
    default:
      return 3;
  }
}

void RunVlan(Input* input) {
  DbVlanObject object;
  auto owned = std::make_unique<DestVlanMessage>();
  DestVlanMessage& record = *owned;
  object.record = std::move(owned);
  object.list_attribute_name = input->Text();
  encapsulation::VlanMessage expected;
  expected.set_lim_id("");

  const std::uint8_t present = input->Byte();
  if ((present & 1) != 0) record.set_lim_id(input->Text());
  if ((present & 2) != 0) record.set_source_mac(input->Text());
  if ((present & 4) != 0) record.set_vlan_dest_id(input->Number());
  if ((present & 8) != 0) record.set_vrf(input->Number());
  if ((present & 16) != 0) record.set_mtu(input->Number());
  if ((present & 1) != 0) expected.set_lim_id(record.lim_id());
  if ((present & 2) != 0) expected.set_source_mac_address(record.source_mac());
  if ((present & 4) != 0) expected.set_vlan_destination_id(record.vlan_dest_id());
  if ((present & 8) != 0) expected.set_vrf(record.vrf());
  if ((present & 16) != 0) expected.set_mtu(record.mtu());
  for (int count = input->Byte() % 8; count > 0; --count) {
    const auto value = static_cast<int>(input->Number());
    record.add_capabilities(static_cast<dest_mng::VlanCapabilities>(value));
    expected.add_capabilities(
        static_cast<encapsulation::VlanCapabilities>(MappedVlanCapability(value)));
  }

  bool readable = true;
  const bool has_list = input->Bool();
  if (has_list) {
    auto& list = object.attribute_lists[object.list_attribute_name].second;
    for (int count = input->Byte() % 8; count > 0; --count) {
      list.push_back(AttributeOf(input));
      if (!list.back().present) continue;
      const auto* const text = boost::get<std::string>(&list.back().value);
      readable = readable && text != nullptr;
      if (text != nullptr && !text->empty()) expected.add_list_values(*text);
    }
  }

  dest_mng::HaiL3MplsEncapsulationVlan adapter;
  encapsulation::VlanMessage message;
  const bool returned =
      Returns([&] { adapter.TranslateVlanObjectToEncapMessage(&object, &message); });
  Check(returned == readable, "VLAN: exception");
  Check(object.attribute_lists.count(object.list_attribute_name) == 1, "VLAN: the list exists");
  if (!returned) return;
  Check(message.SerializeAsString() == expected.SerializeAsString(), "VLAN: message");
  CheckOperations(&adapter, static_cast<DbVlanObject*>(&object),
                  reference::HalOperation::kInstallVlan, reference::HalOperation::kDestroyVlan,
                  reference::HalOperation::kReplaceVlan, expected);
}

void RunHost(Input* input) {
  DbHostObject object;
  auto owned = std::make_unique<DestHostMessage>();
  DestHostMessage& record = *owned;
  object.record = std::move(owned);
  encapsulation::HostMessage expected;

  const std::uint8_t present = input->Byte();
  if ((present & 1) != 0) record.set_dest_id(input->Number());
  if ((present & 2) != 0) record.set_lim_id(input->Text());
  if ((present & 4) != 0) record.set_dest_mac(input->Text());
  if ((present & 8) != 0) record.set_ip_address(input->Text());
  if ((present & 1) != 0) expected.set_dest_id(record.dest_id());
  if ((present & 2) != 0) expected.set_lim_id(record.lim_id());
  if ((present & 4) != 0) expected.set_dest_mac(record.dest_mac());
  for (int count = input->Byte() % 8; count > 0; --count) {
    const auto value = static_cast<int>(input->Number());
    record.add_flags(static_cast<dest_mng::ActionFlags>(value));
    expected.add_flags(static_cast<encapsulation::ActionFlags>(MappedFlag(value)));
  }
  AddAttributes(input, {"vlan_dest_id", "host_dest_id"}, &object);

  const std::optional<int> vlan = Integer(object, "vlan_dest_id");
  if (vlan.value_or(0) != 0) expected.set_vlan_dest_id(static_cast<std::uint32_t>(*vlan));

  dest_mng::HaiL3MplsEncapsulationHost adapter;
  encapsulation::HostMessage message;
  const bool returned =
      Returns([&] { adapter.TranslateHostObjectToEncapMessage(&object, &message); });
  Check(returned == vlan.has_value(), "host: exception");
  Check(object.attributes.count("vlan_dest_id") == 1, "host: the attribute exists");
  if (!returned) return;
  Check(message.SerializeAsString() == expected.SerializeAsString(), "host: message");
  CheckOperations(&adapter, static_cast<DbHostObject*>(&object),
                  reference::HalOperation::kInstallHost, reference::HalOperation::kDestroyHost,
                  reference::HalOperation::kReplaceHost, expected);
}

void RunMpls(Input* input) {
  DbMplsObject object;
  auto owned = std::make_unique<DestMplsMessage>();
  DestMplsMessage& record = *owned;
  object.record = std::move(owned);
  encapsulation::MplsMessage expected;

  const std::uint8_t present = input->Byte();
  if ((present & 1) != 0) record.set_mpls_dest_id(input->Number());
  if ((present & 2) != 0) record.set_tunnel_dest_id(input->Number());
  if ((present & 4) != 0) record.set_lim_id(input->Text());
  if ((present & 8) != 0) record.set_dest_mac(input->Text());
  if ((present & 16) != 0) record.set_label(input->Number());
  if ((present & 32) != 0) record.set_pass_through_value(input->Number());
  if ((present & 64) != 0) record.set_vc_label(input->Number());
  if ((present & 1) != 0) expected.set_dest_id(record.mpls_dest_id());
  if ((present & 4) != 0) expected.set_lim_id(record.lim_id());
  if ((present & 8) != 0) expected.set_dest_mac(record.dest_mac());
  if ((present & 16) != 0) expected.add_labels(record.label());
  if ((present & 32) != 0) expected.set_pass_through_value(record.pass_through_value());
  for (int count = input->Byte() % 8; count > 0; --count) {
    const auto value = static_cast<int>(input->Number());
    record.add_capabilities(static_cast<dest_mng::MplsCapabilities>(value));
    expected.add_capabilities(
        static_cast<encapsulation::MplsCapabilities>(MappedMplsCapability(value)));
  }
  AddAttributes(input, {"vlan_dest_id", "host_dest_id"}, &object);

  // A virtual circuit rides on its tunnel; its "vlan_dest_id" is not even read.
  const bool circuit = (present & 64) != 0;
  const std::optional<int> vlan = circuit ? std::optional(static_cast<int>(record.tunnel_dest_id()))
                                          : Integer(object, "vlan_dest_id");
  const std::optional<int> host = Integer(object, "host_dest_id");
  expected.set_vlan_tunnel_dest_id(static_cast<std::uint32_t>(vlan.value_or(0)));
  if (host.value_or(0) == 0) expected.set_flag(encapsulation::ACTION_DROP);

  const bool had_vlan = object.attributes.count("vlan_dest_id") == 1;
  dest_mng::HaiL3MplsEncapsulationMpls adapter;
  encapsulation::MplsMessage message;
  const bool returned =
      Returns([&] { adapter.TranslateMplsObjectToEncapMessage(&object, &message); });
  Check(returned == (vlan.has_value() && host.has_value()), "MPLS: exception");
  Check((object.attributes.count("vlan_dest_id") == 1) == (had_vlan || !circuit),
        "MPLS: the VLAN attribute exists");
  if (!returned) return;
  Check(object.attributes.count("host_dest_id") == 1, "MPLS: the host attribute exists");
  Check(message.SerializeAsString() == expected.SerializeAsString(), "MPLS: message");
  CheckOperations(&adapter, static_cast<DbMplsObject*>(&object),
                  reference::HalOperation::kInstallMpls, reference::HalOperation::kDestroyMpls,
                  reference::HalOperation::kReplaceMpls, expected);
}

void RunEcmp(Input* input) {
  dest_mng::EcmpData data;
  data.db_id = input->Number();
  while (!input->empty()) data.nhops.push_back(input->Number());

  encapsulation::EcmpMessage expected;
  expected.set_db_id(data.db_id);
  dest_mng::HaiL3MplsEncapsulationEcmp adapter;
  adapter.DestroyEcmp(data);
  CheckSent(reference::HalOperation::kDestroyEcmp, expected);
  for (const unsigned int member : data.nhops) expected.add_members(member);
  adapter.InstallEcmp(data);
  CheckSent(reference::HalOperation::kInstallEcmp, expected);
}

void RunVrf(Input* input) {
  dest_mng::VrfData data;
  data.vrf_id = input->Number();
  data.db_id = input->Number();
  encapsulation::VrfMessage expected;
  expected.set_vrf_id(data.vrf_id);
  dest_mng::HaiL3MplsEncapsulationVrf adapter;
  Check(adapter.InstallVrf(data) == 0, "install");
  CheckSent(reference::HalOperation::kInstallVrf, expected);
  Check(adapter.DestroyVrf(data) == 0, "destroy");
  CheckSent(reference::HalOperation::kDestroyVrf, expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  dest_mng::Hai::GetInstance()->set_client(&Hal());
  Input input(data, size);
  const std::uint8_t kind = input.Byte();
  trace_enabled = (kind & 0x80) != 0;
  switch ((kind & 0x7F) % 5) {
    case 0:
      RunVlan(&input);
      break;
    case 1:
      RunHost(&input);
      break;
    case 2:
      RunMpls(&input);
      break;
    case 3:
      RunEcmp(&input);
      break;
    default:
      RunVrf(&input);
  }
  dest_mng::Hai::GetInstance()->set_client(nullptr);
  return 0;
}
