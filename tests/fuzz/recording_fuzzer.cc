// Any bytes as a recording: reading, showing and ordering it fails only with the reader's own
// error.
//
// Input: flags (1 byte), the recording. Bit 0 puts a valid header before it; bits 1 and 2 choose
// what to do with it. Parsing the header's schema takes longer than the rest of an input, so the
// header contains it only for showing messages, and only if bit 3 is not set.

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/delimited_message_util.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "interface_ids/interface_table.h"
#include "record.pb.h"
#include "reference/record/format.h"
#include "reference/record/recorded_schema.h"
#include "reference/record/recording_reader.h"
#include "reference/record/show.h"
#include "reference/record/steps.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::Check;
using reference::RecordingError;
using reference::RecordingReader;

std::string ValidHeader(const google::protobuf::FileDescriptorSet& schema) {
  record::Header header;
  header.set_format(std::string(reference::kRecordingFormat));
  header.set_format_version(reference::kRecordingFormatVersion);
  header.set_program("fuzzer");
  *header.mutable_schema() = schema;
  std::ostringstream bytes;
  google::protobuf::util::SerializeDelimitedToOstream(header, &bytes);
  return bytes.str();
}

void ReadAll(RecordingReader* recording, std::size_t size) {
  record::Entry entry;
  while (recording->Next(&entry)) {
    Check(entry.what_case() != record::Entry::WHAT_NOT_SET, "an entry without content");
  }
  Check(!recording->Next(&entry), "an entry after the end");
  const auto cut_at = recording->cut_at();
  Check(!cut_at || *cut_at < size, "cut beyond the end");
}

void Show(RecordingReader* recording) {
  std::ostringstream out;
  ShowRecording(recording, &out);
  const std::string text = out.str();
  Check(!text.empty() && text.back() == '\n', "the last line has no newline");
  Check(std::none_of(text.begin(), text.end(),
                     [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7F; }),
        "a control character is shown");
}

void Run(const std::string& bytes, int what) {
  RecordingReader recording("fuzz", std::make_unique<google::protobuf::io::ArrayInputStream>(
                                        bytes.data(), static_cast<int>(bytes.size())));
  if (what == 0) {
    Show(&recording);
  } else if (what == 1) {
    reference::ReadSteps(&recording);
  } else {
    ReadAll(&recording, bytes.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string header = ValidHeader(reference::BuiltInSchema());
  static const std::string header_without_schema = ValidHeader({});
  fuzz::Input input(data, size);
  const std::uint8_t flags = input.Byte();
  const int what = (flags >> 1) & 3;
  const bool with_schema = what == 0 && (flags & 8) == 0;
  std::string bytes;
  if ((flags & 1) != 0) bytes = with_schema ? header : header_without_schema;
  bytes += input.Rest();
  try {
    Run(bytes, what);
  } catch (const RecordingError& error) {
    Check(std::string(error.what()).rfind("fuzz: byte ", 0) == 0, "an error without a place");
  }
  interface_ids::InterfaceTable::Global().Clear();
  return 0;
}
