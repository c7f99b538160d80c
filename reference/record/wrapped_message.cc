#include "reference/record/wrapped_message.h"

#include <array>

#include "reference/wire/frame.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {
namespace {

template <typename Wrapper>
WrappedMessage Unserialize(std::string* frame) {
  auto wrapper = std::make_unique<Wrapper>();
  if (!wrapper->Unserialize(frame->data())) return {};
  const HalL3MplsEncapsulationPrintable* const printable = wrapper.get();
  return {std::move(wrapper), printable};
}

constexpr std::array<WrappedMessage (*)(std::string*), kHalKinds> kUnserialize = {
    Unserialize<VrfEncapsulationMessage>,  Unserialize<VlanEncapsulationMessage>,
    Unserialize<HostEncapsulationMessage>, Unserialize<EcmpEncapsulationMessage>,
    Unserialize<MplsEncapsulationMessage>,
};

}  // namespace

WrappedMessage WrapMessage(HalKind kind, const std::string& payload) {
  // The type in the frame is not looked at.
  std::string frame;
  AppendFrame(FrameType{}, 0, payload, &frame);
  return kUnserialize.at(static_cast<std::size_t>(kind))(&frame);
}

std::string Render(const WrappedMessage& wrapped, std::optional<std::uint64_t> address) {
  const HalL3MplsEncapsulationPrintable& printable = *wrapped.printable;
  const auto own_address = reinterpret_cast<std::uintptr_t>(wrapped.message.get());
  const std::string own = "(this=" + printable.ToHexString(own_address, 16) + ")";
  std::string text = printable.ToString(true);
  const std::size_t place = text.find(own);
  if (place != std::string::npos) {
    const std::string recorded = address ? printable.ToHexString(*address, 16) : "unknown";
    text.replace(place, own.size(), "(this=" + recorded + ")");
  }
  return text;
}

}  // namespace reference
