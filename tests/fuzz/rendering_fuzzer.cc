// The rendering of any message of every kind: all labels appear in order, the short form is a
// prefix of the long one, and the platform's knowledge of interfaces changes nothing else.
//
// Input: the kind (1 byte), an interface (lim id, type, index, name), the serialised message. The
// message may be truncated or invalid: the part that parses is rendered.

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "base_encap_message.pb.h"
#include "interface_ids/interface_table.h"
#include "tests/fuzz/fuzz_input.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace {

using fuzz::Check;
using Labels = std::initializer_list<std::string_view>;

constexpr std::string_view kThis = "(this=0x";
constexpr std::size_t kAddressDigits = 16;

// Searches for `labels` one after the other. Ignores what lies between them, because an interface
// name can be any text.
bool InOrder(std::string_view text, Labels labels) {
  for (const std::string_view label : labels) {
    const std::size_t place = text.find(label);
    if (place == std::string_view::npos) return false;
    text.remove_prefix(place + label.size());
  }
  return true;
}

template <typename Message>
std::unique_ptr<Message> Parse(std::string_view bytes) {
  auto message = std::make_unique<Message>();
  // Keeps what parsed up to the first mistake.
  static_cast<void>(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
  return message;
}

void CheckText(const HalL3MplsEncapsulationPrintable& printable, std::string_view class_name,
               Labels labels) {
  const std::string brief = printable.ToString(false);
  const std::string text = printable.ToString(true);
  Check(brief.size() == class_name.size() + kThis.size() + kAddressDigits + 1, "brief: size");
  Check(brief.compare(0, class_name.size(), class_name) == 0, "brief: class");
  Check(brief.compare(class_name.size(), kThis.size(), kThis) == 0, "brief: address");
  Check(brief.back() == ')', "brief: end");
  Check(text.compare(0, brief.size(), brief) == 0, "the long form begins with the short one");
  Check(text.back() == ')', "end");
  Check(InOrder(std::string_view(text).substr(brief.size()), labels), "labels");
  Check(text == printable.ToString(true), "the same text again");
}

void RunVlan(std::string_view bytes) {
  const VlanEncapsulationMessage wrapper(Parse<encapsulation::VlanMessage>(bytes));
  CheckText(wrapper, "VlanEncapsulationMessage",
            {": VlanMessage(vlan destination id(", ", lim id(", ", vrf=", ", mtu=", ", source "});
}

void RunHost(std::string_view bytes) {
  const HostEncapsulationMessage wrapper(Parse<encapsulation::HostMessage>(bytes));
  CheckText(wrapper, "HostEncapsulationMessage",
            {": HostMessage(host destination id(", ", vlan destination id(", ", lim id(",
             ", HAL Flags(", ", destination mac address("});
}

void RunMpls(std::string_view bytes) {
  const MplsEncapsulationMessage wrapper(Parse<encapsulation::MplsMessage>(bytes));
  CheckText(
      wrapper, "MplsEncapsulationMessage",
      {": MplsMessage(mpls destination id(", ", vlan/tunnel destination id(", ", lim id(",
       ", destination mac address(", ", labels(size=", ", MPLS Capabilities(", ", HAL Flag("});
}

void RunEcmp(std::string_view bytes) {
  EcmpEncapsulationMessage wrapper;
  wrapper.encap()->Swap(Parse<encapsulation::EcmpMessage>(bytes).get());
  CheckText(wrapper, "EcmpEncapsulationMessage", {": EcmpMessage(destination id("});
}

void RunVrf(std::string_view bytes) {
  VrfEncapsulationMessage wrapper;
  wrapper.encap()->Swap(Parse<encapsulation::VrfMessage>(bytes).get());
  const std::string id = wrapper.encap()->has_vrf_id()
                             ? "VRF id(" + std::to_string(wrapper.encap()->vrf_id()) + ")"
                             : "empty";
  Check(wrapper.ToString(true) == "VrfEncapsulationMessage(" + id + ")", "VRF");
  Check(wrapper.ToString(false) == wrapper.ToString(true), "VRF: one form");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t kind = input.Byte();
  const std::uint32_t lim_id = input.Number();
  const std::uint8_t type = input.Byte();
  const std::uint32_t index = input.Number();
  interface_ids::InterfaceTable::Global().Set(lim_id, {input.Text(), type, index});
  switch (kind % 5) {
    case 0:
      RunVlan(input.Rest());
      break;
    case 1:
      RunHost(input.Rest());
      break;
    case 2:
      RunMpls(input.Rest());
      break;
    case 3:
      RunEcmp(input.Rest());
      break;
    default:
      RunVrf(input.Rest());
  }
  interface_ids::InterfaceTable::Global().Clear();
  return 0;
}
