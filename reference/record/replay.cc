#include "reference/record/replay.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "reference/hal/kinds.h"
#include "reference/record/wrapped_message.h"

namespace reference {
namespace {

/// Waits for a connection's reports.
class Reports : public HalCallbackBase {
 public:
  explicit Reports(const ReplayOptions& options) : options_(options) {}

  HalReports reports() {
    return {this, [this] { Note(&Reports::server_found_); }, [this] { Note(&Reports::room_); }};
  }

  // Each returns whether the report arrived in time; one call per report.
  bool AwaitServer() { return Await(&Reports::server_found_, options_.server_patience); }
  bool AwaitRoom() { return Await(&Reports::room_, options_.answer_patience); }

  /// Whether another server was found since `AwaitServer`.
  bool FoundAnotherServer() {
    const std::lock_guard lock(mutex_);
    return server_found_;
  }

  /// The code of the next result; nothing if it did not arrive in time.
  std::optional<HalReturnCode> AwaitResult() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, options_.answer_patience, [this] { return result_.has_value(); });
    return std::exchange(result_, std::nullopt);
  }

 private:
  void OnResult(HalOperation /*operation*/, HalReturnCode code, const ResultIds& /*ids*/) override {
    const std::lock_guard lock(mutex_);
    result_ = code;
    changed_.notify_one();
  }

  void Note(bool Reports::*what) {
    const std::lock_guard lock(mutex_);
    this->*what = true;
    changed_.notify_one();
  }

  bool Await(bool Reports::*what, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [this, what] { return this->*what; });
    return std::exchange(this->*what, false);
  }

  const ReplayOptions options_;
  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by `mutex_`:
  bool server_found_ = false;
  bool room_ = false;
  std::optional<HalReturnCode> result_;
};

// Whether the recorded client refused the request without sending it.
bool WasRefused(const Step& step) {
  return step.code == kHalQueueFull || step.code == kHalTooLarge || step.code == kHalNoServer;
}

// Whether the recorded code is a server's answer.
bool WasAnswered(const Step& step) {
  return step.code && step.code != kHalServerLost && step.code != kHalDeadline;
}

std::string NameOf(const Step& step) {
  return '#' + std::to_string(step.number) + ' ' +
         std::string(OperationName(step.request.operation)) +
         " id=" + std::to_string(step.request.id);
}

std::string TextOf(HalReturnCode code) {
  return std::to_string(static_cast<std::uint32_t>(code)) + ' ' + MakeErrorCode(code).message();
}

/// Sends steps to a connection.
class Sender {
 public:
  Sender(HalConnection* hal, Reports* reports, std::ostream* out)
      : hal_(hal), reports_(reports), out_(out) {}

  void Take(const Step& step) {
    switch (step.kind) {
      case Step::Kind::kServerFound:
        hal_->BeginReinstall();
        hal_->EndReinstall();
        break;
      case Step::Kind::kBeginReinstall:
        hal_->BeginReinstall();
        break;
      case Step::Kind::kEndReinstall:
        hal_->EndReinstall();
        break;
      case Step::Kind::kRequest:
        TakeRequest(step);
        break;
    }
  }

  /// Waits until the queue is empty: the last requests may be VRF requests or marks, which have no
  /// result.
  void Finish(std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (hal_->counters().queued != 0) {
      if (std::chrono::steady_clock::now() > end) throw ReplayError("the HAL takes no request");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  const ReplayReport& report() const { return report_; }

 private:
  void TakeRequest(const Step& step) {
    if (WasRefused(step)) {
      ++report_.refused;
      return;
    }
    const WrappedMessage wrapped =
        WrapMessage(KindOf(step.request.operation), step.request.payload);
    if (step.payload_omitted || wrapped.message == nullptr) {
      PrintDifference(step, "cannot be sent again: its message was not recorded in full");
      return;
    }
    Send(step, wrapped.message.get());
    if (HasResult(step.request.operation)) {
      Compare(step);
    } else {
      ++report_.not_compared;
    }
  }

  void Send(const Step& step, AppMessage* message) {
    while (!hal_->HasRoom()) {
      if (!reports_->AwaitRoom()) throw ReplayError(NameOf(step) + ": the HAL takes no request");
    }
    ++report_.sent;
    // A refused request has a result too.
    (hal_->*TraitsOf(step.request.operation).request)(message);
  }

  void Compare(const Step& step) {
    const auto code = reports_->AwaitResult();
    if (!code || *code == kHalDeadline) {
      throw ReplayError(NameOf(step) + ": the HAL does not answer");
    }
    if (*code == kHalServerLost || *code == kHalNoServer || reports_->FoundAnotherServer()) {
      throw ReplayError(NameOf(step) + ": the HAL server was lost");
    }
    if (!WasAnswered(step)) {
      ++report_.not_compared;
    } else if (*code != *step.code) {
      PrintDifference(step, "recorded " + TextOf(*step.code) + ", now " + TextOf(*code));
    }
  }

  void PrintDifference(const Step& step, const std::string& what) {
    ++report_.differences;
    *out_ << NameOf(step) << ": " << what << '\n';
  }

  HalConnection* hal_;
  Reports* reports_;
  std::ostream* out_;
  ReplayReport report_;
};

}  // namespace

ReplayReport Replay(const std::vector<Step>& steps, std::unique_ptr<HalConnection> hal,
                    const ReplayOptions& options, std::ostream* out) {
  Reports reports(options);
  // Destroyed before `reports`, to which it reports until then.
  const std::unique_ptr<HalConnection> connection = std::move(hal);
  connection->Start(reports.reports());
  if (!reports.AwaitServer()) {
    throw ReplayError(
        "no free HAL server was found; start one with zuskux-hal, or end the client that programs "
        "it");
  }
  Sender sender(connection.get(), &reports, out);
  for (const Step& step : steps) sender.Take(step);
  sender.Finish(options.answer_patience);
  return sender.report();
}

}  // namespace reference
