#include "reference/wire/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tests/support/allocations.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Bytes may be zero.
template <std::size_t size>
std::string Bytes(const char (&text)[size]) {
  return {text, size - 1};
}

// A frame that outlives the splitter's buffer.
struct Cut {
  int type;
  std::uint32_t sequence;
  std::uint32_t payload_size;
  std::string payload;
  std::string whole;
};

bool operator==(const Cut& a, const Cut& b) {
  return std::tie(a.type, a.sequence, a.payload_size, a.payload, a.whole) ==
         std::tie(b.type, b.sequence, b.payload_size, b.payload, b.whole);
}

// The frames up to the first error.
std::vector<Cut> TakeAll(FrameSplitter* splitter) {
  std::vector<Cut> frames;
  try {
    while (const auto frame = splitter->Next()) {
      frames.push_back({static_cast<int>(frame->header.type), frame->header.sequence,
                        frame->header.payload_size, std::string(frame->payload),
                        std::string(frame->whole)});
    }
  } catch (const ProtocolError&) {
    // `ErrorOf` returns it.
  }
  return frames;
}

// The error that `Next` throws; empty if it throws none.
std::string ErrorOf(FrameSplitter* splitter) {
  try {
    EXPECT_FALSE(splitter->Next());
    return {};
  } catch (const ProtocolError& error) {
    return error.what();
  }
}

struct Outcome {
  std::vector<Cut> frames;
  std::string error;
};

bool operator==(const Outcome& a, const Outcome& b) {
  return a.frames == b.frames && a.error == b.error;
}

// Feeds `stream` in pieces of the sizes that `next_size` returns.
template <typename NextSize>
Outcome Split(std::string_view stream, std::size_t max_payload, NextSize next_size) {
  FrameSplitter splitter(max_payload);
  Outcome outcome;
  while (!stream.empty()) {
    const std::string_view piece = stream.substr(0, next_size());
    // An exact-size copy, so that reads beyond it are detected.
    const std::vector<char> copy(piece.begin(), piece.end());
    splitter.Feed({copy.data(), copy.size()});
    stream.remove_prefix(piece.size());
    for (Cut& frame : TakeAll(&splitter)) outcome.frames.push_back(std::move(frame));
  }
  outcome.error = ErrorOf(&splitter);
  return outcome;
}

Outcome SplitWhole(std::string_view stream, std::size_t max_payload) {
  return Split(stream, max_payload, [&stream] { return stream.size(); });
}

struct GoldenFrame {
  const char* name;
  FrameType type;
  std::uint32_t sequence;
  std::string payload;
  std::string bytes;
};

const std::vector<GoldenFrame>& GoldenFrames() {
  static const std::vector<GoldenFrame> kFrames = {
      {"hello", FrameType::kHello, 0,
       Bytes("\x08\x01\x12\x01"
             "a"),
       Bytes("\x01\x00\x00\x00"
             "\x00\x00\x00\x05"
             "\x08\x01\x12\x01"
             "a")},
      {"goodbye", FrameType::kGoodbye, 0, "so long",
       Bytes("\x02\x00\x00\x00"
             "\x00\x00\x00\x07"
             "so long")},
      {"install-vrf", static_cast<FrameType>(3), 1, Bytes("\x08\x07"),
       Bytes("\x03\x00\x00\x01"
             "\x00\x00\x00\x02"
             "\x08\x07")},
      {"install-vlan", static_cast<FrameType>(5), 0x010203, Bytes("\x18\x05\x28\xDC\x0B"),
       Bytes("\x05\x01\x02\x03"
             "\x00\x00\x00\x05"
             "\x18\x05\x28\xDC\x0B")},
      {"replace-mpls", static_cast<FrameType>(15), 0xFFFFFF, Bytes("\x08\x09"),
       Bytes("\x0F\xFF\xFF\xFF"
             "\x00\x00\x00\x02"
             "\x08\x09")},
      {"result", FrameType::kResult, 0x000100,
       Bytes("\x00\x00\x00\x03"
             "\x00\x00\x00\x05"
             "\x01\x02\x03\x04"),
       Bytes("\x10\x00\x01\x00"
             "\x00\x00\x00\x0C"
             "\x00\x00\x00\x03"
             "\x00\x00\x00\x05"
             "\x01\x02\x03\x04")},
      {"begin reinstall", FrameType::kBeginReinstall, 2, "",
       Bytes("\x11\x00\x00\x02"
             "\x00\x00\x00\x00")},
      {"end reinstall", FrameType::kEndReinstall, 3, "",
       Bytes("\x12\x00\x00\x03"
             "\x00\x00\x00\x00")},
      {"in sync", FrameType::kInSync, 3, Bytes("\x10\x02"),
       Bytes("\x13\x00\x00\x03"
             "\x00\x00\x00\x02"
             "\x10\x02")},
      {"heartbeat", FrameType::kHeartbeat, 4, "",
       Bytes("\x14\x00\x00\x04"
             "\x00\x00\x00\x00")},
      {"read tables", FrameType::kReadTables, 5, "",
       Bytes("\x15\x00\x00\x05"
             "\x00\x00\x00\x00")},
      {"table entry", FrameType::kTableEntry, 5,
       Bytes("\x01"
             "\x00\x00\x00\x05"
             "\x18\x05"),
       Bytes("\x16\x00\x00\x05"
             "\x00\x00\x00\x07"
             "\x01"
             "\x00\x00\x00\x05"
             "\x18\x05")},
      {"table end", FrameType::kTableEnd, 5, Bytes("\x20\x09"),
       Bytes("\x17\x00\x00\x05"
             "\x00\x00\x00\x02"
             "\x20\x09")},
      {"256 bytes", FrameType::kGoodbye, 0, std::string(256, 'x'),
       Bytes("\x02\x00\x00\x00"
             "\x00\x00\x01\x00") +
           std::string(256, 'x')},
  };
  return kFrames;
}

Cut CutOf(const GoldenFrame& golden) {
  return {static_cast<int>(golden.type), golden.sequence,
          static_cast<std::uint32_t>(golden.payload.size()), golden.payload, golden.bytes};
}

TEST(FrameTypes, AreOneToTwentyFour) {
  for (int value = 0; value < 256; ++value) {
    SCOPED_TRACE(value);
    EXPECT_EQ(IsFrameType(static_cast<std::uint8_t>(value)), value >= 1 && value <= 24);
    EXPECT_EQ(IsRequest(static_cast<FrameType>(value)), value >= 3 && value <= 15);
  }
}

TEST(AppendFrame, WritesTheGoldenBytes) {
  for (const GoldenFrame& golden : GoldenFrames()) {
    SCOPED_TRACE(golden.name);
    std::string out = "before";
    AppendFrame(golden.type, golden.sequence, golden.payload, &out);
    EXPECT_EQ(out, "before" + golden.bytes);
  }
}

TEST(AppendFrame, TruncatesTheSequence) {
  std::string out;
  AppendFrame(FrameType::kHeartbeat, 0xAB000001, {}, &out);
  EXPECT_EQ(out, Bytes("\x14\x00\x00\x01"
                       "\x00\x00\x00\x00"));
}

TEST(AppendResult, WritesTheGoldenBytes) {
  std::string out = "before";
  AppendResult(0xAB000100, {kHalExists, 5, 0x01020304, std::chrono::nanoseconds(0x1122)}, &out);
  EXPECT_EQ(out, "before" + Bytes("\x10\x00\x01\x00"
                                  "\x00\x00\x00\x10"
                                  "\x00\x00\x00\x03"
                                  "\x00\x00\x00\x05"
                                  "\x01\x02\x03\x04"
                                  "\x00\x00\x11\x22"));
}

TEST(AppendResult, EndsWithTheReason) {
  std::string out;
  AppendResult(2, {kHalKernelRefused, 5, 0, {}, "no memory"}, &out);
  EXPECT_EQ(out, Bytes("\x10\x00\x00\x02"
                       "\x00\x00\x00\x19"
                       "\x00\x00\x00\x09"
                       "\x00\x00\x00\x05"
                       "\x00\x00\x00\x00"
                       "\x00\x00\x00\x00"
                       "no memory"));
}

TEST(AppendResult, CutsAReasonThatIsTooLong) {
  const std::string reason(300, 'x');
  std::string out;
  AppendResult(2, {kHalKernelRefused, 5, 0, {}, reason}, &out);
  EXPECT_EQ(out.substr(4, 4), Bytes("\x00\x00\x01\x10"));
  EXPECT_EQ(out.substr(24), std::string(256, 'x'));
}

TEST(AppendResult, CutsATimeThatIsTooLong) {
  std::string out;
  AppendResult(1, {kHalSuccess, 5, 0, std::chrono::seconds(5)}, &out);
  EXPECT_EQ(out.substr(20), "\xFF\xFF\xFF\xFF");
}

TEST(ParseResult, ReadsTheGoldenBytes) {
  const auto result =
      ParseResult(Bytes("\xFF\x00\x00\x03"
                        "\x80\x00\x00\x05"
                        "\x01\x02\x03\x04"
                        "\x80\x00\x00\x01"));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->hal_time, std::chrono::nanoseconds(0x80000001));
  EXPECT_EQ(static_cast<std::uint32_t>(result->code), 0xFF000003);
  EXPECT_EQ(result->id, 0x80000005);
  EXPECT_EQ(result->secondary_id, 0x01020304);
}

TEST(ParseResult, AcceptsSixteenBytesAndAReasonOfAtMost256) {
  for (std::size_t size = 0; size < 300; ++size) {
    const std::vector<char> payload(size, 'x');
    const auto result = ParseResult({payload.data(), size});
    EXPECT_EQ(result.has_value(), size >= 16 && size <= 272) << size;
    if (result) {
      EXPECT_EQ(result->reason, std::string(size - 16, 'x'));
    }
  }
}

TEST(FrameSplitter, SplitsTheGoldenFrames) {
  for (const GoldenFrame& golden : GoldenFrames()) {
    SCOPED_TRACE(golden.name);
    const Outcome outcome = SplitWhole(golden.bytes, 256);
    EXPECT_THAT(outcome.frames, ElementsAre(CutOf(golden)));
    EXPECT_EQ(outcome.error, "");
  }
}

TEST(FrameSplitter, ReturnsAdjacentViewsOfOneBuffer) {
  FrameSplitter splitter(256);
  splitter.Feed(GoldenFrames()[0].bytes + GoldenFrames()[1].bytes);
  const auto first = splitter.Next();
  const auto second = splitter.Next();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->payload.data(), first->whole.data() + kFrameHeaderSize);
  EXPECT_EQ(second->whole.data(), first->whole.data() + first->whole.size());
}

TEST(FrameSplitter, WaitsForTheRestOfEveryTruncation) {
  for (const GoldenFrame& golden : GoldenFrames()) {
    for (std::size_t size = 0; size < golden.bytes.size(); ++size) {
      SCOPED_TRACE(std::string(golden.name) + " cut to " + std::to_string(size));
      FrameSplitter splitter(256);
      const std::vector<char> start(golden.bytes.begin(),
                                    golden.bytes.begin() + static_cast<std::ptrdiff_t>(size));
      splitter.Feed({start.data(), start.size()});
      EXPECT_THAT(TakeAll(&splitter), IsEmpty());
      EXPECT_EQ(ErrorOf(&splitter), "");
      splitter.Feed(std::string_view(golden.bytes).substr(size));
      EXPECT_THAT(TakeAll(&splitter), ElementsAre(CutOf(golden)));
    }
  }
}

TEST(FrameSplitter, ChecksEveryValueOfEveryHeaderByte) {
  constexpr std::uint64_t kMaxPayload = 300;
  for (const GoldenFrame& golden : GoldenFrames()) {
    for (std::size_t place = 0; place < kFrameHeaderSize; ++place) {
      for (unsigned value = 0; value < 256; ++value) {
        SCOPED_TRACE(std::string(golden.name) + ", byte " + std::to_string(place) + " is " +
                     std::to_string(value));
        std::string bytes = golden.bytes;
        bytes[place] = static_cast<char>(value);
        std::uint64_t length = 0;
        for (std::size_t i = 4; i < 8; ++i) {
          length = length * 256 + static_cast<unsigned char>(bytes[i]);
        }
        const unsigned type = static_cast<unsigned char>(bytes[0]);

        const Outcome outcome = SplitWhole(bytes, kMaxPayload);
        if (type < 1 || type > 24) {
          EXPECT_EQ(outcome.error, "unknown frame type " + std::to_string(type));
          EXPECT_THAT(outcome.frames, IsEmpty());
        } else if (length > kMaxPayload) {
          EXPECT_EQ(outcome.error, "payload of " + std::to_string(length) +
                                       " bytes is longer than the limit of 300");
          EXPECT_THAT(outcome.frames, IsEmpty());
        } else if (length > golden.payload.size()) {
          EXPECT_EQ(outcome.error, "");
          EXPECT_THAT(outcome.frames, IsEmpty());
        } else {
          ASSERT_FALSE(outcome.frames.empty());
          EXPECT_EQ(outcome.frames[0].type, static_cast<int>(type));
          EXPECT_EQ(outcome.frames[0].payload, golden.payload.substr(0, length));
        }
      }
    }
  }
}

TEST(FrameSplitter, AcceptsTheLongestPayloadAndNoLongerOne) {
  std::string longest;
  AppendFrame(FrameType::kHello, 0, std::string(100, 'x'), &longest);
  EXPECT_THAT(SplitWhole(longest, 100).error, "");
  EXPECT_EQ(SplitWhole(longest, 100).frames.size(), 1U);
  EXPECT_EQ(SplitWhole(longest, 99).error, "payload of 100 bytes is longer than the limit of 99");
}

TEST(FrameSplitter, ReturnsTheFramesBeforeAnErrorAndNoneAfterIt) {
  const std::string good = GoldenFrames()[2].bytes;
  FrameSplitter splitter(256);
  splitter.Feed(good + std::string(8, '\0') + good);
  EXPECT_THAT(TakeAll(&splitter), ElementsAre(CutOf(GoldenFrames()[2])));
  EXPECT_EQ(ErrorOf(&splitter), "unknown frame type 0");
  splitter.Feed(good);
  EXPECT_THAT(TakeAll(&splitter), IsEmpty());
  EXPECT_EQ(ErrorOf(&splitter), "unknown frame type 0");
}

TEST(FrameSplitter, FindsTheSameFramesHoweverTheStreamIsCut) {
  std::mt19937 random(1);
  std::string stream;
  std::vector<Cut> expected;
  for (int count = 0; count < 300; ++count) {
    const GoldenFrame& golden = GoldenFrames()[random() % GoldenFrames().size()];
    stream += golden.bytes;
    expected.push_back(CutOf(golden));
  }
  for (const std::size_t size : {1U, 2U, 3U, 7U, 8U, 9U, 64U, 1000U, 100000U}) {
    EXPECT_EQ(Split(stream, 256, [size] { return size; }), (Outcome{expected, ""})) << size;
  }
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(Split(stream, 256, [&random] { return 1 + random() % 40; }), (Outcome{expected, ""}));
  }
}

TEST(FrameSplitter, HandlesRandomBytesTheSameHoweverTheyAreCut) {
  std::mt19937 random(2);
  for (int round = 0; round < 10'000; ++round) {
    SCOPED_TRACE(round);
    std::string stream(static_cast<std::size_t>(random() % 64), '\0');
    for (char& byte : stream) byte = static_cast<char>(random());
    // Half of the rounds begin like frames, to get further.
    if (round % 2 == 0 && stream.size() > 8)
      stream.replace(0, 7, Bytes("\x05\x00\x00\x00\x00\x00\x00"));
    const Outcome whole = SplitWhole(stream, 64);
    std::size_t cut = 0;
    for (const Cut& frame : whole.frames) cut += frame.whole.size();
    EXPECT_LE(cut, stream.size());
    EXPECT_EQ(Split(stream, 64, [] { return std::size_t{1}; }), whole);
    EXPECT_EQ(Split(stream, 64, [&random] { return 1 + random() % 9; }), whole);
  }
}

TEST(FrameSplitter, DropsAPayloadThatIsTooLong) {
  FrameSplitter splitter(1000);
  splitter.Feed(
      Bytes("\x05\x00\x00\x01"
            "\x00\x00\x03\xE9"));
  EXPECT_EQ(ErrorOf(&splitter), "payload of 1001 bytes is longer than the limit of 1000");
  const std::string more(1000, 'x');
  const std::size_t before = ::testing_support::AllocationCount();
  for (int count = 0; count < 1000; ++count) splitter.Feed(more);
  EXPECT_EQ(::testing_support::AllocationCount(), before);
}

TEST(FrameSplitter, ReadsAnEndlessStreamWithoutAllocating) {
  // Frames of 8 to 1008 bytes, in all positions relative to the reads.
  std::string stream;
  for (std::size_t size = 0; size <= 1000; ++size) {
    AppendFrame(FrameType::kGoodbye, 0, std::string(size, 'x'), &stream);
  }
  FrameSplitter splitter(1000);
  std::size_t frames = 0;
  const auto feed = [&splitter, &frames, &stream] {
    for (std::size_t at = 0; at < stream.size(); at += 100) {
      splitter.Feed(std::string_view(stream).substr(at, 100));
      while (splitter.Next()) ++frames;
    }
  };
  feed();
  const std::size_t before = ::testing_support::AllocationCount();
  for (int round = 0; round < 10; ++round) feed();
  EXPECT_EQ(::testing_support::AllocationCount(), before);
  EXPECT_EQ(frames, 11U * 1001U);
}

TEST(AppendFrame, DoesNotAllocateWithinItsBuffersCapacity) {
  std::string out;
  out.reserve(1000);
  const std::size_t before = ::testing_support::AllocationCount();
  AppendFrame(FrameType::kGoodbye, 1, "so long", &out);
  AppendResult(2, {kHalSuccess, 3, 4, {}}, &out);
  EXPECT_EQ(::testing_support::AllocationCount(), before);
  EXPECT_EQ(out.size(), 8U + 7U + 8U + 16U);
}

}  // namespace
}  // namespace reference
