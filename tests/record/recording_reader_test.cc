#include "reference/record/recording_reader.h"
#include "reference/text/protobuf_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::vector<record::Entry> SampleEntries() {
  std::vector<record::Entry> entries = {
      ServerFoundEntry(),
      RequestEntry(1, HalOperation::kInstallVlan, Vlan(12), 12),
      ResultEntry(1, HalOperation::kInstallVlan, 12, kHalSuccess),
      RequestEntry(2, HalOperation::kInstallMpls, MplsOn(17, 12, 1001), 17),
      ResultEntry(2, HalOperation::kInstallMpls, 17, kHalTableFull),
      EventEntry("in sync"),
  };
  std::uint64_t time = 0;
  for (record::Entry& entry : entries) entry.set_time_ns(time += 1000);
  return entries;
}

// Number of entries up to the end.
std::size_t Count(RecordingReader* recording) {
  std::size_t count = 0;
  record::Entry entry;
  while (recording->Next(&entry)) ++count;
  return count;
}

std::string ErrorIn(const std::string& bytes) {
  return ErrorOf([&bytes] {
    RecordingReader recording = ReaderOf(bytes);
    Count(&recording);
  });
}

TEST(RecordingReader, ReadsHeaderAndEntries) {
  const std::string bytes = RecordingBytes(TestHeader(), SampleEntries());
  RecordingReader recording = ReaderOf(bytes);
  EXPECT_EQ(recording.name(), "test");
  EXPECT_EQ(recording.header().SerializeAsString(), TestHeader().SerializeAsString());
  record::Entry entry;
  for (const record::Entry& expected : SampleEntries()) {
    ASSERT_TRUE(recording.Next(&entry));
    EXPECT_EQ(entry.DebugString(), expected.DebugString());
  }
  EXPECT_FALSE(recording.Next(&entry));
  EXPECT_FALSE(recording.cut_at());
}

TEST(RecordingReader, ReadsUpToATruncatedEntry) {
  const auto entries = SampleEntries();
  const std::string whole = RecordingBytes(TestHeader(), entries);
  const std::size_t header_size = Delimited(TestHeader()).size();
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string bytes = whole.substr(0, size);
    if (size < header_size) {
      EXPECT_THAT(ErrorIn(bytes), StartsWith("test: byte 0: "));
      continue;
    }
    // Number of whole entries, and where the last of them ends.
    std::size_t count = 0;
    std::size_t end = header_size;
    while (count < entries.size() && end + Delimited(entries[count]).size() <= size) {
      end += Delimited(entries[count++]).size();
    }
    RecordingReader recording = ReaderOf(bytes);
    EXPECT_EQ(Count(&recording), count);
    EXPECT_EQ(recording.cut_at(), end == size ? std::nullopt : std::optional<std::uint64_t>(end));
    record::Entry entry;
    EXPECT_FALSE(recording.Next(&entry)) << "again at the end";
  }
}

TEST(RecordingReader, RefusesArbitraryBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 10'000; ++round) {
    std::string bytes(random() % 400, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    EXPECT_THAT(ErrorIn(bytes), StartsWith("test: byte 0: ")) << "round " << round;
  }
}

TEST(RecordingReader, ReadsOrRefusesDamagedRecordings) {
  const std::string whole = RecordingBytes(TestHeader(), SampleEntries());
  const std::size_t header_size = Delimited(TestHeader()).size();
  SilenceProtobufLog();
  std::mt19937 random(2);
  int read = 0;
  int refused = 0;
  for (int round = 0; round < 10'000; ++round) {
    std::string bytes = whole;
    // Every second round damages only what follows the header, which is longer than the rest.
    const std::size_t first = round % 2 == 0 ? 0 : header_size;
    for (auto damages = 1 + random() % 3; damages > 0; --damages) {
      bytes[first + random() % (bytes.size() - first)] = static_cast<char>(random());
    }
    const std::string error = ErrorIn(bytes);
    if (error.empty()) {
      ++read;
    } else {
      ++refused;
      EXPECT_THAT(error, StartsWith("test: byte ")) << "round " << round;
    }
  }
  EXPECT_GT(read, 0);
  EXPECT_GT(refused, 0);
}

TEST(RecordingReader, AcceptsEntriesOfUpToOneMebibyte) {
  record::Entry longest = EventEntry(std::string((1 << 20) - 8, 'e'));
  ASSERT_EQ(longest.ByteSizeLong(), std::size_t{1} << 20);
  const std::string valid = RecordingBytes(TestHeader(), {longest});
  RecordingReader recording = ReaderOf(valid);
  EXPECT_EQ(Count(&recording), 1U);

  longest.mutable_event()->mutable_line()->push_back('e');
  const std::string offset = std::to_string(Delimited(TestHeader()).size());
  EXPECT_EQ(ErrorIn(RecordingBytes(TestHeader(), {longest})),
            "test: byte " + offset +
                ": an entry longer than 1048576 bytes; the part before it is valid: head -c " +
                offset + " extracts it");
}

TEST(RecordingReader, NamesTheByteAndTheFault) {
  record::Entry bad_operation = RequestEntry(1, HalOperation{16}, Vlan(1));
  record::Entry bad_result = ResultEntry(1, HalOperation{2}, 1, kHalSuccess);
  record::Entry bad_interface;
  bad_interface.mutable_interface()->set_type(256);
  struct Case {
    const char* name;
    std::string record;
    const char* fault;
  };
  for (const Case& test :
       {Case{"an operation above the last", Delimited(bad_operation),
             "an entry with an unknown operation"},
        Case{"an operation below the first", Delimited(bad_result),
             "an entry with an unknown operation"},
        Case{"an interface type", Delimited(bad_interface), "an interface whose type is above 255"},
        Case{"no kind", std::string(1, '\0'), "an entry of an unknown kind"},
        Case{"a kind of later", std::string("\x02\x7A\x00", 3), "an entry of an unknown kind"},
        Case{"no protobuf", std::string("\x01\xFF", 2), "an entry that does not decode"},
        Case{"a length of 2^21", std::string("\x80\x80\x80\x01", 4),
             "an entry longer than 1048576 bytes"},
        Case{"an endless length", std::string(20, '\xFF'), "an entry longer than 1048576 bytes"}}) {
    const std::string before = RecordingBytes(TestHeader(), {EventEntry("before")});
    const std::string offset = std::to_string(before.size());
    EXPECT_EQ(ErrorIn(before + test.record), "test: byte " + offset + ": " + test.fault +
                                                 "; the part before it is valid: head -c " +
                                                 offset + " extracts it")
        << test.name;
  }
}

TEST(RecordingReader, RefusesOtherHeaders) {
  record::Header other_format = TestHeader();
  other_format.set_format("other");
  record::Header later = TestHeader();
  later.set_format_version(2);
  record::Header bad_schema = TestHeader();
  bad_schema.mutable_schema()
      ->mutable_file(0)
      ->mutable_message_type(0)
      ->mutable_field(0)
      ->set_number(0);
  struct Case {
    const char* name;
    std::string bytes;
    const char* error;
  };
  constexpr const char* kNoRecording =
      "test: byte 0: this is not a recording, or its header is truncated; name a file that was "
      "written "
      "as a recording";
  for (const Case& test :
       {Case{"empty", "", "test: byte 0: the file is empty; record again"},
        Case{"text", "vrfs { id: 5 }\n", kNoRecording},
        Case{"another format", Delimited(other_format), kNoRecording},
        Case{"a later version", Delimited(later),
             "test: byte 0: format version 2, not 1; use the zuskux-record that belongs to test 1"},
        Case{"a schema that is none", Delimited(bad_schema),
             "test: byte 0: the schema in the header is not valid: base_encap_message.proto: "
             "encapsulation.VlanMessage.lim_id: Field numbers must be positive integers.; record "
             "again"}}) {
    EXPECT_EQ(ErrorIn(test.bytes), test.error) << test.name;
  }
}

TEST(RecordingReader, NamesAFileThatCannotBeRead) {
  const auto error = [](const std::string& path) {
    return ErrorOf([&path] { const RecordingReader recording(path); });
  };
  EXPECT_EQ(error("/nonexistent/file"),
            "/nonexistent/file: cannot be read: No such file or directory; name a file that was "
            "written as a recording");
  EXPECT_EQ(error("/"),
            "/: cannot be read: Is a directory; name a file that was written as a recording");
}

}  // namespace
}  // namespace reference
