#include "reference/record/recording_reader.h"

#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>

#include <boost/system/error_code.hpp>
#include <cerrno>
#include <limits>
#include <utility>

#include "reference/hal/kinds.h"
#include "reference/record/format.h"

namespace reference {
namespace {

namespace io = google::protobuf::io;

constexpr const char* kNameRecording = "name a file that was written as a recording";
constexpr const char* kRecordAgain = "record again";

// The shift of the last byte that a length can have.
constexpr int kMaxLengthShift = 28;

RecordingError CannotRead(const std::string& name, int error) {
  const boost::system::error_code reason(error, boost::system::system_category());
  RecordingError result(name + ": cannot be read: " + reason.message() + "; " + kNameRecording);
  return result;
}

std::unique_ptr<io::FileInputStream> OpenFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw CannotRead(path, errno);
  auto file = std::make_unique<io::FileInputStream>(fd);
  file->SetCloseOnDelete(true);
  return file;
}

bool IsOperation(std::uint32_t value) {
  return value <= std::numeric_limits<std::uint8_t>::max() &&
         IsHalOperation(static_cast<std::uint8_t>(value));
}

// What is wrong with an entry that decoded; null if it is valid.
const char* Fault(const record::Entry& entry) {
  constexpr const char* kNoOperation = "an entry with an unknown operation";
  switch (entry.what_case()) {
    case record::Entry::kRequest:
      return IsOperation(entry.request().operation()) ? nullptr : kNoOperation;
    case record::Entry::kResult:
      return IsOperation(entry.result().operation()) ? nullptr : kNoOperation;
    case record::Entry::kInterface:
      return entry.interface().type() <= std::numeric_limits<std::uint8_t>::max()
                 ? nullptr
                 : "an interface whose type is above 255";
    case record::Entry::WHAT_NOT_SET:
      return "an entry of an unknown kind";
    default:
      return nullptr;
  }
}

}  // namespace

RecordingReader::RecordingReader(const std::string& path) : RecordingReader(path, OpenFile(path)) {}

RecordingReader::RecordingReader(std::string name, std::unique_ptr<io::FileInputStream> file)
    : name_(std::move(name)), file_(file.get()) {
  input_ = std::move(file);
  ReadHeader();
}

RecordingReader::RecordingReader(std::string name, std::unique_ptr<io::ZeroCopyInputStream> input)
    : name_(std::move(name)), input_(std::move(input)) {
  ReadHeader();
}

RecordingReader::Read RecordingReader::ReadRecord() {
  offset_ = static_cast<std::uint64_t>(input_->ByteCount());
  io::CodedInputStream input(input_.get());
  std::uint64_t size = 0;
  std::uint8_t byte = 0x80;
  for (int shift = 0; (byte & 0x80) != 0; shift += 7) {
    if (shift > kMaxLengthShift) return Read::kBadLength;
    if (!input.ReadRaw(&byte, 1)) return ReadEnd(shift == 0 ? Read::kEnd : Read::kCut);
    size |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
  }
  if (size > kMaxRecordSize) return Read::kBadLength;
  if (!input.ReadString(&bytes_, static_cast<int>(size))) return ReadEnd(Read::kCut);
  return Read::kWhole;
}

RecordingReader::Read RecordingReader::ReadEnd(Read end) const {
  if (file_ != nullptr && file_->GetErrno() != 0) throw CannotRead(name_, file_->GetErrno());
  return end;
}

void RecordingReader::ReadHeader() {
  const auto error = [this](const std::string& what, const std::string& remedy) {
    return RecordingError(name_ + ": byte 0: " + what + "; " + remedy);
  };
  const Read read = ReadRecord();
  if (read == Read::kEnd) throw error("the file is empty", kRecordAgain);
  const bool is_header = read == Read::kWhole && header_.ParseFromString(bytes_) &&
                         header_.format() == kRecordingFormat;
  if (!is_header) {
    throw error("this is not a recording, or its header is truncated", kNameRecording);
  }
  if (header_.format_version() != kRecordingFormatVersion) {
    throw error("format version " + std::to_string(header_.format_version()) + ", not " +
                    std::to_string(kRecordingFormatVersion),
                "use the zuskux-record that belongs to " + header_.program());
  }
  try {
    schema_ = std::make_unique<RecordedSchema>(header_.schema());
  } catch (const std::invalid_argument& invalid) {
    throw error(std::string("the schema in the header is not valid: ") + invalid.what(),
                kRecordAgain);
  }
}

bool RecordingReader::Next(record::Entry* entry) {
  if (cut_at_) return false;
  switch (ReadRecord()) {
    case Read::kEnd:
      return false;
    case Read::kCut:
      cut_at_ = offset_;
      return false;
    case Read::kBadLength:
      throw Error("an entry longer than " + std::to_string(kMaxRecordSize) + " bytes");
    case Read::kWhole:
      break;
  }
  if (!entry->ParseFromString(bytes_)) throw Error("an entry that does not decode");
  if (const char* const fault = Fault(*entry)) throw Error(fault);
  return true;
}

RecordingError RecordingReader::Error(const std::string& what) const {
  const std::string offset = std::to_string(offset_);
  RecordingError error(name_ + ": byte " + offset + ": " + what +
                       "; the part before it is valid: head -c " + offset + " extracts it");
  return error;
}

}  // namespace reference
