#ifndef ZUSKUX_REFERENCE_RECORD_RECORDING_READER_H_
#define ZUSKUX_REFERENCE_RECORD_RECORDING_READER_H_

#include <google/protobuf/io/zero_copy_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "record.pb.h"
#include "reference/record/recorded_schema.h"

namespace reference {

/// A file that is no valid recording, or cannot be read. The text names the file, the place in it
/// and the remedy.
class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a recording from its beginning, one entry in memory at a time. Used by one thread at a
/// time.
///
///     RecordingReader recording(path);
///     record::Entry entry;
///     while (recording.Next(&entry)) ...
///     if (recording.cut_at()) ...            // the writer was stopped in the middle of an entry
class RecordingReader {
 public:
  /// Opens the file and reads its header. Throws `RecordingError`.
  explicit RecordingReader(const std::string& path);

  /// Reads from `input`, which is called `name` in errors. Throws `RecordingError`.
  RecordingReader(std::string name,
                  std::unique_ptr<google::protobuf::io::ZeroCopyInputStream> input);

  const std::string& name() const { return name_; }
  const record::Header& header() const { return header_; }
  const RecordedSchema& schema() const { return *schema_; }

  /// Reads the next entry; false at the end. An entry that is read is one of those that
  /// record.proto names, with a valid operation where it has one. Throws `RecordingError`.
  bool Next(record::Entry* entry);

  /// After `Next` returned false: the offset in bytes of a last entry that is not whole.
  std::optional<std::uint64_t> cut_at() const { return cut_at_; }

  /// An error at the record that was read last.
  RecordingError Error(const std::string& what) const;

 private:
  RecordingReader(std::string name, std::unique_ptr<google::protobuf::io::FileInputStream> file);

  // How reading a record ended.
  enum class Read { kWhole, kEnd, kCut, kBadLength };

  // Reads the next record into `bytes_`.
  Read ReadRecord();
  // `end`, unless the input ended because it could not be read; then throws.
  Read ReadEnd(Read end) const;
  void ReadHeader();

  std::string name_;
  std::unique_ptr<google::protobuf::io::ZeroCopyInputStream> input_;
  // `input_` when it is a file, which can fail.
  const google::protobuf::io::FileInputStream* file_ = nullptr;
  record::Header header_;
  std::unique_ptr<RecordedSchema> schema_;
  // Where the record that was read last begins.
  std::uint64_t offset_ = 0;
  std::string bytes_;
  std::optional<std::uint64_t> cut_at_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_RECORDING_READER_H_
