#include "reference/record/recorder.h"

#include <fcntl.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/system/error_code.hpp>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "record.pb.h"
#include "reference/record/format.h"
#include "reference/record/recorded_schema.h"
#include "reference/text/file_remedy.h"

namespace reference {
namespace {

using Clock = std::chrono::steady_clock;
namespace io = google::protobuf::io;

constexpr int kBlockSize = 64 * 1024;
// The highest number that is appended to a file name.
constexpr int kMaxNumber = 9999;
constexpr std::chrono::seconds kFlushPeriod(1);
constexpr std::size_t kMaxTextSize = std::size_t{64} * 1024;
// Leaves room in a record for a request's other fields.
constexpr std::size_t kMaxPayloadSize = kMaxRecordSize - 1024;

std::runtime_error CannotRecord(const std::string& path, int error) {
  const boost::system::error_code reason(error, boost::system::system_category());
  return std::runtime_error("cannot record to " + path + ": " + reason.message() + "; " +
                            FileRemedy(path, error));
}

struct NewFile {
  std::string path;
  int fd;
};

// Creates a new file: `wanted`, or `wanted` with the first free number. Never shares or overwrites
// an existing file.
NewFile CreateFile(const std::string& wanted) {
  struct stat status {};
  if (::lstat(wanted.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
      !S_ISLNK(status.st_mode)) {
    throw std::runtime_error("cannot record to " + wanted +
                             ": it is not a regular file; name another file");
  }
  std::string path = wanted;
  for (int number = 1;; ++number) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd >= 0) return {path, fd};
    if (errno != EEXIST || number > kMaxNumber) throw CannotRecord(path, errno);
    path = wanted + '.' + std::to_string(number);
  }
}

std::uint64_t Nanoseconds(std::chrono::nanoseconds duration) {
  return static_cast<std::uint64_t>(duration.count());
}

record::Header MakeHeader(std::string_view program) {
  record::Header header;
  header.set_format(std::string(kRecordingFormat));
  header.set_format_version(kRecordingFormatVersion);
  header.set_program(std::string(program));
  header.set_start_time_ns(Nanoseconds(std::chrono::system_clock::now().time_since_epoch()));
  *header.mutable_schema() = BuiltInSchema();
  return header;
}

std::string Cut(std::string_view text) { return std::string(text.substr(0, kMaxTextSize)); }

}  // namespace

/// The file and the thread that flushes it.
class Recorder::Writer {
 public:
  Writer(NewFile file, std::string_view program, LogFunction log);
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer();

  /// Calls `fill` with an entry that has only its time, then writes the entry.
  template <typename Fill>
  void Write(Fill fill) {
    const std::lock_guard lock(mutex_);
    entry_.Clear();
    fill(&entry_);
    WriteEntry();
  }

  std::uint64_t NextNumber() { return ++last_number_; }

  /// Writes the buffered entries to the file.
  void Flush();

  /// Closes the file; false if anything could not be written.
  bool Finish();

 private:
  void RunFlusher();

  // Call with `mutex_` held:
  void WriteEntry();
  void FlushBuffer();
  void Stop();

  const std::string path_;
  const LogFunction log_;
  const Clock::time_point start_ = Clock::now();
  std::mutex mutex_;
  std::condition_variable wake_;
  // Guarded by `mutex_`:
  io::FileOutputStream file_;
  record::Entry entry_;
  std::uint64_t last_number_ = 0;
  bool unflushed_ = false;
  bool failed_ = false;
  bool finished_ = false;
  bool closing_ = false;

  std::thread flusher_;
};

Recorder::Writer::Writer(NewFile file, std::string_view program, LogFunction log)
    : path_(std::move(file.path)), log_(std::move(log)), file_(file.fd, kBlockSize) {
  file_.SetCloseOnDelete(true);
  if (!google::protobuf::util::SerializeDelimitedToZeroCopyStream(MakeHeader(program), &file_) ||
      !file_.Flush()) {
    const int error = file_.GetErrno();
    ::unlink(path_.c_str());
    throw CannotRecord(path_, error);
  }
  flusher_ = std::thread(&Writer::RunFlusher, this);
}

Recorder::Writer::~Writer() {
  {
    const std::lock_guard lock(mutex_);
    FlushBuffer();
    closing_ = true;
  }
  wake_.notify_one();
  flusher_.join();
}

bool Recorder::Writer::Finish() {
  const std::lock_guard lock(mutex_);
  FlushBuffer();
  if (!finished_) {
    finished_ = true;
    file_.SetCloseOnDelete(false);
    if (!file_.Close() && !failed_) Stop();
  }
  return !failed_;
}

void Recorder::Writer::Flush() {
  const std::lock_guard lock(mutex_);
  FlushBuffer();
}

void Recorder::Writer::RunFlusher() {
  std::unique_lock lock(mutex_);
  while (!closing_) {
    wake_.wait(lock, [this] { return unflushed_ || closing_; });
    wake_.wait_for(lock, kFlushPeriod, [this] { return closing_; });
    FlushBuffer();
  }
}

void Recorder::Writer::WriteEntry() {
  if (failed_ || finished_) return;
  entry_.set_time_ns(Nanoseconds(Clock::now() - start_));
  if (!google::protobuf::util::SerializeDelimitedToZeroCopyStream(entry_, &file_)) Stop();
  if (!unflushed_) wake_.notify_one();
  unflushed_ = true;
}

void Recorder::Writer::FlushBuffer() {
  unflushed_ = false;
  if (!failed_ && !finished_ && !file_.Flush()) Stop();
}

void Recorder::Writer::Stop() {
  failed_ = true;
  const auto reason = boost::system::error_code(file_.GetErrno(), boost::system::system_category());
  if (!log_) return;
  log_(LogLevel::kError, "recording to " + path_ + " stopped: " + reason.message() +
                             "; what was written before is kept; free space and restart to "
                             "record again");
}

Recorder::Recorder(const std::string& path, std::string_view program, LogFunction log) {
  NewFile file = CreateFile(path);
  if (log && file.path != path) log(LogLevel::kInfo, path + " exists; recording to " + file.path);
  writer_ = std::make_unique<Writer>(std::move(file), program, std::move(log));
}

Recorder::~Recorder() = default;

bool Recorder::Finish() { return writer_->Finish(); }

void Recorder::Interface(std::uint32_t lim_id, std::string_view name, std::uint8_t type,
                         std::uint32_t ifindex) {
  writer_->Write([&](record::Entry* entry) {
    record::Interface* const interface = entry->mutable_interface();
    interface->set_lim_id(lim_id);
    interface->set_name(Cut(name));
    interface->set_type(type);
    interface->set_ifindex(ifindex);
  });
}

std::uint64_t Recorder::Request(const HalRequest& request, const void* wrapper) {
  std::uint64_t number = 0;
  writer_->Write([&](record::Entry* entry) {
    number = writer_->NextNumber();
    record::Request* const recorded = entry->mutable_request();
    recorded->set_number(number);
    recorded->set_operation(static_cast<std::uint32_t>(request.operation));
    recorded->set_id(request.id);
    recorded->set_secondary_id(request.secondary_id);
    if (request.payload.size() <= kMaxPayloadSize) {
      recorded->set_payload(request.payload);
    } else {
      recorded->set_omitted_payload_bytes(request.payload.size());
    }
    if (wrapper != nullptr) recorded->set_wrapper(reinterpret_cast<std::uintptr_t>(wrapper));
  });
  return number;
}

void Recorder::Result(std::uint64_t number, const HalRequest& request, HalReturnCode code,
                      std::string_view reason) {
  writer_->Write([&](record::Entry* entry) {
    record::Result* const result = entry->mutable_result();
    result->set_number(number);
    result->set_operation(static_cast<std::uint32_t>(request.operation));
    result->set_id(request.id);
    result->set_secondary_id(request.secondary_id);
    result->set_code(static_cast<std::uint32_t>(code));
    if (!reason.empty()) result->set_reason(Cut(reason));
  });
}

void Recorder::BeginReinstall() {
  writer_->Write([](record::Entry* entry) { entry->mutable_begin_reinstall(); });
}

void Recorder::EndReinstall() {
  writer_->Write([](record::Entry* entry) { entry->mutable_end_reinstall(); });
}

void Recorder::ObjectStateChanged(const HalObjectState& state) {
  writer_->Write([&](record::Entry* entry) {
    record::ObjectState* const changed = entry->mutable_object_state();
    changed->set_kind(static_cast<std::uint32_t>(state.kind));
    changed->set_id(state.id);
    changed->set_code(static_cast<std::uint32_t>(state.code));
    if (!state.reason.empty()) changed->set_reason(Cut(state.reason));
  });
}

void Recorder::ServerFound() {
  writer_->Write([](record::Entry* entry) { entry->mutable_server_found(); });
}

void Recorder::Event(std::string_view line) {
  writer_->Write([line](record::Entry* entry) { entry->mutable_event()->set_line(Cut(line)); });
  writer_->Flush();
}

}  // namespace reference
