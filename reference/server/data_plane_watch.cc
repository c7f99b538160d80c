#include "reference/server/data_plane_watch.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kPrice{200};
// Enough for 50 repairs in a row.
constexpr milliseconds kCredit{9'800};
// Repairs may take one tenth of the time.
constexpr int kShare = 10;
// Enough for repairs of 30 s.
constexpr seconds kTimeCredit{300};
// One cause often leads to several notifications.
constexpr milliseconds kSettle{5};
constexpr seconds kReportInterval{60};
constexpr seconds kFirstRetry{1};
constexpr seconds kLastRetry{60};

}  // namespace

void RepairBudget::Spend(Time begin, Time end) {
  paid_until_ = std::max(paid_until_, begin - kCredit) + kPrice;
  time_paid_until_ = std::max(time_paid_until_, begin - kTimeCredit) + kShare * (end - begin);
  next_ = std::max({end, paid_until_, time_paid_until_});
}

DataPlaneWatch::DataPlaneWatch(boost::asio::io_context* io, DataPlane* data_plane, seconds audit,
                               LogFunction log, TakeOutcome take_outcome)
    : data_plane_(*data_plane),
      audit_(audit),
      log_(std::move(log)),
      take_outcome_(std::move(take_outcome)),
      changes_(*io),
      repair_timer_(*io),
      audit_timer_(*io),
      retry_timer_(*io),
      retry_pause_(kFirstRetry) {
  if (data_plane_.change_fd() >= 0) {
    changes_.assign(data_plane_.change_fd());
    AwaitChange();
  }
  if (audit_ != seconds::zero()) AwaitAudit();
}

// The data plane owns the descriptor.
DataPlaneWatch::~DataPlaneWatch() {
  if (changes_.is_open()) changes_.release();
}

void DataPlaneWatch::AwaitChange() {
  changes_.async_wait(boost::asio::posix::stream_descriptor::wait_read, WhileAlive([this] {
                        if (data_plane_.TakeChanges()) Schedule(kSettle);
                        AwaitChange();
                      }));
}

void DataPlaneWatch::AwaitAudit() {
  audit_timer_.expires_after(audit_);
  audit_timer_.async_wait(WhileAlive([this] {
    CheckSoon();
    AwaitAudit();
  }));
}

void DataPlaneWatch::CheckSoon() {
  check_all_ = true;
  Schedule(milliseconds(0));
}

void DataPlaneWatch::Schedule(milliseconds delay) {
  if (std::exchange(scheduled_, true)) return;
  repair_timer_.expires_at(std::max(steady_clock::now() + delay, budget_.next()));
  repair_timer_.async_wait(WhileAlive([this] { CheckNow(); }));
}

void DataPlaneWatch::CheckNow() {
  scheduled_ = false;
  const Time begin = steady_clock::now();
  std::optional<Repair> repair;
  try {
    repair =
        std::exchange(check_all_, false) ? data_plane_.MakeAsWanted() : data_plane_.RepairChanges();
  } catch (const std::system_error& error) {
    ReportFailure(error.what());
  }
  budget_.Spend(begin, steady_clock::now());
  if (!repair) return AwaitRetry(true);
  if (repair->differences != 0) Report(*repair);
  take_outcome_(*repair);
  AwaitRetry(!repair->refusals.empty());
}

// No notification says that the kernel would accept now what it refused.
void DataPlaneWatch::AwaitRetry(bool failed) {
  retry_timer_.cancel();
  if (!failed) {
    retry_pause_ = kFirstRetry;
    return;
  }
  // Also if another program changes something else first.
  check_all_ = true;
  retry_timer_.expires_after(retry_pause_);
  retry_pause_ = std::min(2 * retry_pause_, kLastRetry);
  retry_timer_.async_wait(WhileAlive([this] { CheckSoon(); }));
}

void DataPlaneWatch::ReportFailure(const std::string& reason) {
  const Time now = steady_clock::now();
  if (failure_reported_ != Time() && now - failure_reported_ < kReportInterval) return;
  failure_reported_ = now;
  log_(LogLevel::kWarning,
       "cannot compare the hardware with the tables, and tries again: " + reason);
}

void DataPlaneWatch::Report(const Repair& repair) {
  differences_ += repair.differences;
  unreported_ += repair.differences;
  const Time now = steady_clock::now();
  if (reported_ != Time() && now - reported_ < kReportInterval) return;
  reported_ = now;
  const std::size_t count = std::exchange(unreported_, 0);
  std::string line = "the hardware differed from the tables in " + std::to_string(count) +
                     (count == 1 ? " object: " : " objects: ") + repair.text;
  if (repair.refusals.empty()) {
    line += "; repaired";
  } else {
    line += "; cannot repair all: " + repair.refusals.front();
  }
  log_(LogLevel::kWarning, line);
}

}  // namespace reference
