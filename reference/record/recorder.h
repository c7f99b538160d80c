#ifndef ZUSKUX_REFERENCE_RECORD_RECORDER_H_
#define ZUSKUX_REFERENCE_RECORD_RECORDER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "reference/hal/request_observer.h"
#include "reference/log/log_function.h"

namespace reference {

/// Writes a recording. Owned by the host program; outlives everything that it observes. Every
/// operation is callable on any thread.
///
/// Recorded entries reach the file immediately after an event, otherwise within a second, and at
/// the latest when the object is destroyed. If the file can no longer be written, recording stops
/// with one line in the log; requests are still numbered as before.
class Recorder : public RequestObserver {
 public:
  /// Creates the file, readable by its owner only, and writes its header. Never overwrites a file:
  /// if `path` exists, the recording goes to `path`.1 or the next free number, and the log says
  /// which. `program` is the recording program: "zuskux-manager 0.1.0". Throws
  /// `std::runtime_error`, which names the path, the reason and the remedy.
  Recorder(const std::string& path, std::string_view program, LogFunction log = {});
  ~Recorder() override;

  /// Closes the file and stops recording. Returns whether everything is in the file.
  bool Finish();

  /// Records what the platform knows about a logical interface. Call before the requests that name
  /// it, and again when it changes.
  void Interface(std::uint32_t lim_id, std::string_view name, std::uint8_t type,
                 std::uint32_t ifindex);

  /// Omits a payload that is too long for a record and records its length instead.
  std::uint64_t Request(const HalRequest& request, const void* wrapper) override;
  /// Truncates a reason after 64 KiB.
  void Result(std::uint64_t number, const HalRequest& request, HalReturnCode code,
              std::string_view reason) override;
  void BeginReinstall() override;
  void EndReinstall() override;
  /// Truncates a reason after 64 KiB.
  void ObjectStateChanged(const HalObjectState& state) override;
  void ServerFound() override;
  /// Truncates a line after 64 KiB.
  void Event(std::string_view line) override;

 private:
  class Writer;
  std::unique_ptr<Writer> writer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_RECORDER_H_
