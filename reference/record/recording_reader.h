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

/// A file that is not a valid recording or cannot be read. The text names the file, the place in it
/// and the remedy.
class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a recording from its beginning, with one entry in memory at a time. Used by one thread at
/// a time.
///
///     RecordingReader recording(path);
///     record::Entry entry;
///     while (recording.Next(&entry)) ...
///     if (recording.cut_at()) ...            // the writer was stopped in the middle of an entry
class RecordingReader {
 public:
  /// Opens the file and reads its header. Throws `RecordingError`.
  explicit RecordingReader(const std::string& path);

  /// Reads from `input`; errors call it `name`. Throws `RecordingError`.
  RecordingReader(std::string name,
                  std::unique_ptr<google::protobuf::io::ZeroCopyInputStream> input);

  const std::string& name() const { return name_; }
  const record::Header& header() const { return header_; }
  const RecordedSchema& schema() const { return *schema_; }

  /// Reads the next entry; false at the end. The entry is one of those that record.proto defines,
  /// and its operation, if it has one, is valid. Throws `RecordingError`.
  bool Next(record::Entry* entry);

  /// After `Next` returned false: the byte offset of an incomplete last entry, if there is one.
  std::optional<std::uint64_t> cut_at() const { return cut_at_; }

  /// An error at the last record read.
  RecordingError Error(const std::string& what) const;

 private:
  RecordingReader(std::string name, std::unique_ptr<google::protobuf::io::FileInputStream> file);

  // The outcome of reading a record.
  enum class Read { kWhole, kEnd, kCut, kBadLength };

  // Reads the next record into `bytes_`.
  Read ReadRecord();
  // Returns `end`. Throws instead if the input ended because it could not be read.
  Read ReadEnd(Read end) const;
  void ReadHeader();

  std::string name_;
  std::unique_ptr<google::protobuf::io::ZeroCopyInputStream> input_;
  // `input_` if it is a file; reading that can fail.
  const google::protobuf::io::FileInputStream* file_ = nullptr;
  record::Header header_;
  std::unique_ptr<RecordedSchema> schema_;
  // Where the last record read begins.
  std::uint64_t offset_ = 0;
  std::string bytes_;
  std::optional<std::uint64_t> cut_at_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_RECORDING_READER_H_
