#ifndef ZUSKUX_REFERENCE_RECORD_RECORDER_H_
#define ZUSKUX_REFERENCE_RECORD_RECORDER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "reference/hal/request_observer.h"
#include "reference/log/log_function.h"

namespace reference {

/// Writes a recording. Owned by the host program; outlives whatever it observes. Every operation is
/// callable on any thread.
///
/// What was recorded is in the file after an event at once, else within a second, and at the end of
/// the object's life. When the file cannot be written any more, recording stops with one line in
/// the log; requests are numbered on as if nothing had happened.
class Recorder : public RequestObserver {
 public:
  /// Makes the file, readable by its owner only, and writes its header. A file that is there stays
  /// as it is: the recording goes to `path`.1, or the next number that is free, and the log says
  /// which. `program` is who records: "zuskux-manager 0.1.0". Throws `boost::system::system_error`,
  /// which names the path and the reason.
  Recorder(const std::string& path, std::string_view program, LogFunction log = {});
  ~Recorder() override;

  /// Closes the file, after which nothing is recorded. Whether everything is in it.
  bool Finish();

  /// What the platform knows of a logical interface. To be told before the requests that name it,
  /// and again when it changes.
  void Interface(std::uint32_t lim_id, std::string_view name, std::uint8_t type,
                 std::uint32_t ifindex);

  /// A payload that is too long for a record is left out; its length is noted.
  std::uint64_t Request(const HalRequest& request, const void* wrapper) override;
  void Result(std::uint64_t number, const HalRequest& request, HalReturnCode code) override;
  void BeginReinstall() override;
  void EndReinstall() override;
  void ServerFound() override;
  /// A line is cut after 64 KiB.
  void Event(std::string_view line) override;

 private:
  class Writer;
  std::unique_ptr<Writer> writer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_RECORDER_H_
