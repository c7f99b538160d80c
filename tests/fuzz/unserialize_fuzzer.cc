// `Unserialize` of every wrapper on any frame: accepts exactly what protobuf accepts, reads nothing
// beyond the frame, and can be repeated.
//
// Input: the wrapper's kind (1 byte), the frame.

#include <boost/endian/conversion.hpp>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "base_encap_message.pb.h"
#include "tests/fuzz/fuzz_input.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace {

using fuzz::Check;

constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kPayloadOffset = 8;
constexpr std::uint32_t kLargest = std::numeric_limits<std::int32_t>::max();

// A frame in memory of exactly its size.
class Frame {
 public:
  // The caller of `Unserialize` provides the whole frame, so a length beyond the end is clamped to
  // the available bytes. A length that protobuf cannot handle is kept.
  explicit Frame(std::string_view bytes) : size_(bytes.size()), bytes_(new char[bytes.size()]) {
    bytes.copy(bytes_.get(), size_);
    if (length() <= kLargest && length() > size_ - kPayloadOffset) {
      boost::endian::store_big_u32(length_bytes(),
                                   static_cast<std::uint32_t>(size_ - kPayloadOffset));
    }
  }

  void* data() { return bytes_.get(); }
  std::uint32_t length() const { return boost::endian::load_big_u32(length_bytes()); }
  const char* payload() const { return bytes_.get() + kPayloadOffset; }

 private:
  unsigned char* length_bytes() const {
    return reinterpret_cast<unsigned char*>(bytes_.get()) + kLengthOffset;
  }

  const std::size_t size_;
  const std::unique_ptr<char[]> bytes_;
};

template <typename Wrapper, typename Message>
void CheckOnce(Wrapper* wrapper, Frame* frame) {
  Message expected;
  const bool parses = frame->length() <= kLargest &&
                      expected.ParseFromArray(frame->payload(), static_cast<int>(frame->length()));

  Check(wrapper->Unserialize(frame->data()) == parses, "a result other than protobuf's");
  Check(wrapper->message() != nullptr, "no message");
  Check(wrapper->message()->SerializeAsString() == expected.SerializeAsString(),
        "a message other than protobuf's");
}

template <typename Wrapper, typename Message>
void Run(Frame* frame) {
  constexpr bool kOnHeap = std::is_default_constructible_v<Wrapper> &&
                           std::is_constructible_v<Wrapper, std::unique_ptr<Message>>;
  Wrapper wrapper;
  CheckOnce<Wrapper, Message>(&wrapper, frame);
  // A wrapper deliberately does not delete the message of an earlier frame.
  const std::unique_ptr<google::protobuf::Message> earlier(kOnHeap ? wrapper.message() : nullptr);
  CheckOnce<Wrapper, Message>(&wrapper, frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 + kPayloadOffset) return 0;
  fuzz::Input input(data, size);
  const std::uint8_t kind = input.Byte();
  Frame frame(input.Rest());
  switch (kind % 5) {
    case 0:
      Run<VlanEncapsulationMessage, encapsulation::VlanMessage>(&frame);
      break;
    case 1:
      Run<HostEncapsulationMessage, encapsulation::HostMessage>(&frame);
      break;
    case 2:
      Run<MplsEncapsulationMessage, encapsulation::MplsMessage>(&frame);
      break;
    case 3:
      Run<EcmpEncapsulationMessage, encapsulation::EcmpMessage>(&frame);
      break;
    default:
      Run<VrfEncapsulationMessage, encapsulation::VrfMessage>(&frame);
  }
  return 0;
}
