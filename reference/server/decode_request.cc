#include "reference/server/decode_request.h"

#include <array>

#include "base_encap_message.pb.h"
#include "reference/hal/message_id.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {
namespace {

using UseMessage = std::function<void(const google::protobuf::Message&)>;

std::uint32_t SecondaryIdOf(const google::protobuf::Message& /*message*/) { return 0; }

std::uint32_t SecondaryIdOf(const encapsulation::MplsMessage& mpls) {
  return mpls.pass_through_value();
}

template <typename Wrapper, typename Message>
bool Decode(std::string_view frame, HalRequest* request, const UseMessage& use) {
  // A fresh one for each frame: a wrapper does not delete what an earlier frame left in it.
  Wrapper wrapper;
  // The wrapper only reads the frame.
  if (!wrapper.Unserialize(const_cast<char*>(frame.data()))) return false;
  const auto& message = static_cast<const Message&>(*wrapper.message());
  request->id = IdOf(message).value_or(0);
  request->secondary_id = SecondaryIdOf(message);
  if (use) use(message);
  return true;
}

using Decoder = bool (*)(std::string_view frame, HalRequest* request, const UseMessage& use);

constexpr std::array<Decoder, kHalKinds> kDecoders = {
    Decode<VrfEncapsulationMessage, encapsulation::VrfMessage>,
    Decode<VlanEncapsulationMessage, encapsulation::VlanMessage>,
    Decode<HostEncapsulationMessage, encapsulation::HostMessage>,
    Decode<EcmpEncapsulationMessage, encapsulation::EcmpMessage>,
    Decode<MplsEncapsulationMessage, encapsulation::MplsMessage>,
};

}  // namespace

bool DecodeRequest(const FrameSplitter::Frame& frame, HalRequest* request, const UseMessage& use) {
  request->operation = static_cast<HalOperation>(frame.header.type);
  request->id = 0;
  request->secondary_id = 0;
  request->payload = frame.payload;
  const HalKind kind = KindOf(request->operation);
  return kDecoders.at(static_cast<std::size_t>(kind))(frame.whole, request, use);
}

}  // namespace reference
