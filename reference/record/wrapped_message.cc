#include "reference/record/wrapped_message.h"

#include <utility>

#include "reference/wire/frame.h"

namespace reference {

WrappedMessage WrapMessage(HalKind kind, const std::string& payload) {
  // `Unserialize` ignores the frame type.
  std::string frame;
  AppendFrame(FrameType{}, 0, payload, &frame);
  return VisitKind(kind, [&frame](auto row) -> WrappedMessage {
    auto wrapper = std::make_unique<typename decltype(row)::Wrapper>();
    if (!wrapper->Unserialize(frame.data())) return {};
    const HalL3MplsEncapsulationPrintable* const printable = wrapper.get();
    return {std::move(wrapper), printable};
  });
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
