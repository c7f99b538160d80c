// Any byte stream through the frame splitter: it returns exactly the stream's frames, wherever the
// reads split the stream. It never loses or invents bytes, nor keeps them longer than necessary.
//
// Input: the longest payload (1 byte, times 4), the size of the reads (1 byte), the stream.

#include <boost/endian/conversion.hpp>
#include <optional>
#include <string>
#include <vector>

#include "reference/wire/frame.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::Check;
using reference::FrameSplitter;
using reference::kFrameHeaderSize;

// The contents of a stream.
struct Frames {
  std::vector<std::string> whole;
  bool valid = true;
};

bool operator==(const Frames& a, const Frames& b) {
  return a.whole == b.whole && a.valid == b.valid;
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t place) {
  return boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(bytes.data()) + place);
}

// Parses the whole stream at once, by the rules of the protocol.
Frames Expected(std::string_view stream, std::size_t max_payload) {
  Frames frames;
  while (stream.size() >= kFrameHeaderSize) {
    const std::uint32_t type = NumberAt(stream, 0) >> 24;
    const std::size_t size = NumberAt(stream, 4);
    frames.valid = type >= 1 && type <= 24 && size <= max_payload;
    if (!frames.valid || stream.size() - kFrameHeaderSize < size) break;
    frames.whole.emplace_back(stream.substr(0, kFrameHeaderSize + size));
    stream.remove_prefix(kFrameHeaderSize + size);
  }
  return frames;
}

void CheckFrame(const FrameSplitter::Frame& frame) {
  Check(frame.whole.size() == kFrameHeaderSize + frame.payload.size(), "size of the whole");
  Check(frame.header.payload_size == frame.payload.size(), "size of the payload");
  Check(frame.whole.substr(kFrameHeaderSize) == frame.payload, "payload");
  const std::uint32_t word = NumberAt(frame.whole, 0);
  Check(static_cast<std::uint32_t>(frame.header.type) == word >> 24, "type");
  Check(frame.header.sequence == (word & reference::kSequenceMask), "sequence");
  const auto result = reference::ParseResult(frame.payload);
  const std::size_t size = frame.payload.size();
  Check(result.has_value() == (size >= 16 && size <= 16 + 256), "result");
  Check(!result || result->reason == frame.payload.substr(16), "reason");
}

Frames Split(std::string_view stream, std::size_t max_payload, std::size_t read_size) {
  FrameSplitter splitter(max_payload);
  Frames frames;
  while (!stream.empty()) {
    // An exact-size copy, freed before the next read.
    const std::string read(stream.substr(0, read_size));
    stream.remove_prefix(read.size());
    splitter.Feed(read);
    try {
      while (const auto frame = splitter.Next()) {
        CheckFrame(*frame);
        frames.whole.emplace_back(frame->whole);
      }
    } catch (const reference::ProtocolError&) {
      frames.valid = false;
    }
  }
  return frames;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t max_payload = std::size_t{input.Byte()} * 4;
  const std::size_t read_size = std::size_t{input.Byte()} + 1;
  const std::string_view stream = input.Rest();
  const Frames expected = Expected(stream, max_payload);

  Check(Split(stream, max_payload, stream.size() + 1) == expected, "in one read");
  Check(Split(stream, max_payload, read_size) == expected, "in several reads");
  return 0;
}
