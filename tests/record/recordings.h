#ifndef ZUSKUX_TESTS_RECORD_RECORDINGS_H_
#define ZUSKUX_TESTS_RECORD_RECORDINGS_H_

#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "record.pb.h"
#include "reference/hal/hal_tables.h"
#include "reference/record/recorded_schema.h"
#include "reference/record/recorder.h"
#include "reference/record/recording_reader.h"
#include "tests/support/test_folder.h"

namespace reference {

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

/// A record as the file contains it.
inline std::string Delimited(const google::protobuf::Message& message) {
  std::ostringstream bytes;
  google::protobuf::util::SerializeDelimitedToOstream(message, &bytes);
  return bytes.str();
}

/// The header of a recording by "test 1" that started at 2009-02-13T23:31:30.000000042Z.
inline record::Header TestHeader() {
  record::Header header;
  header.set_format("zuskux recording");
  header.set_format_version(1);
  header.set_program("test 1");
  header.set_start_time_ns(1'234'567'890'000'000'042);
  *header.mutable_schema() = BuiltInSchema();
  return header;
}

// Entries.

inline record::Entry RequestEntry(std::uint64_t number, HalOperation operation,
                                  const google::protobuf::Message& message, std::uint32_t id = 0) {
  record::Entry entry;
  entry.mutable_request()->set_number(number);
  entry.mutable_request()->set_operation(static_cast<std::uint32_t>(operation));
  entry.mutable_request()->set_id(id);
  entry.mutable_request()->set_payload(message.SerializeAsString());
  return entry;
}

inline record::Entry ResultEntry(std::uint64_t number, HalOperation operation, std::uint32_t id,
                                 HalReturnCode code) {
  record::Entry entry;
  entry.mutable_result()->set_number(number);
  entry.mutable_result()->set_operation(static_cast<std::uint32_t>(operation));
  entry.mutable_result()->set_id(id);
  entry.mutable_result()->set_code(static_cast<std::uint32_t>(code));
  return entry;
}

inline record::Entry ServerFoundEntry() {
  record::Entry entry;
  entry.mutable_server_found();
  return entry;
}

inline record::Entry EventEntry(const std::string& line) {
  record::Entry entry;
  entry.mutable_event()->set_line(line);
  return entry;
}

inline std::string RecordingBytes(const record::Header& header,
                                  const std::vector<record::Entry>& entries) {
  std::string bytes = Delimited(header);
  for (const record::Entry& entry : entries) bytes += Delimited(entry);
  return bytes;
}

/// Reads `bytes`, which must outlive it, as a recording named "test".
inline RecordingReader ReaderOf(const std::string& bytes) {
  return {"test", std::make_unique<google::protobuf::io::ArrayInputStream>(
                      bytes.data(), static_cast<int>(bytes.size()))};
}

/// The text of the error that `read` throws; empty if it does not throw.
template <typename Read>
std::string ErrorOf(Read read) {
  try {
    read();
  } catch (const std::exception& error) {
    return error.what();
  }
  return {};
}

/// Records a client's session with a HAL's tables.
class RecordedSession {
 public:
  explicit RecordedSession(const std::string& path) : recorder_(path, "test 1") {
    recorder_.ServerFound();
  }

  Recorder& recorder() { return recorder_; }

  /// Sends a request; the tables give its result.
  void Send(HalOperation operation, std::uint32_t id, const google::protobuf::Message& message) {
    const HalRequest request = {operation, id, 0, message.SerializeAsString()};
    const std::uint64_t number = recorder_.Request(request, nullptr);
    const HalReturnCode code = tables_.Apply(request);
    if (HasResult(operation)) recorder_.Result(number, request, code, "");
  }

  /// Records a request with the given result, without applying it to the tables.
  void Fail(HalOperation operation, std::uint32_t id, const google::protobuf::Message& message,
            HalReturnCode code) {
    const HalRequest request = {operation, id, 0, message.SerializeAsString()};
    recorder_.Result(recorder_.Request(request, nullptr), request, code, "");
  }

  void BeginReinstall() {
    recorder_.BeginReinstall();
    tables_.BeginReinstall();
  }

  void EndReinstall() {
    recorder_.EndReinstall();
    tables_.EndReinstall();
  }

  void RestartServer() {
    recorder_.ServerFound();
    tables_.Clear();
  }

 private:
  Recorder recorder_;
  HalTables tables_{std::numeric_limits<std::size_t>::max()};
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_RECORD_RECORDINGS_H_
