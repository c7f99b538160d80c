#include "reference/server/data_plane_watch.h"

#include <algorithm>
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
constexpr int kPause = 9;
// One cause often leads to several notifications.
constexpr milliseconds kSettle{5};
constexpr seconds kReportInterval{60};

}  // namespace

void RepairBudget::Spend(Time begin, Time end) {
  paid_until_ = std::max(paid_until_, begin - kCredit) + kPrice;
  next_ = std::max(end + kPause * (end - begin), paid_until_);
}

DataPlaneWatch::DataPlaneWatch(boost::asio::io_context* io, DataPlane* data_plane, seconds audit,
                               LogFunction log)
    : data_plane_(*data_plane),
      audit_(audit),
      log_(std::move(log)),
      changes_(*io),
      repair_timer_(*io),
      audit_timer_(*io) {
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
  changes_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                      [this](const ErrorCode& error) {
                        if (error) return;
                        if (data_plane_.TakeChanges()) Schedule();
                        AwaitChange();
                      });
}

void DataPlaneWatch::AwaitAudit() {
  audit_timer_.expires_after(audit_);
  audit_timer_.async_wait([this](const ErrorCode& error) {
    if (error) return;
    Schedule();
    AwaitAudit();
  });
}

void DataPlaneWatch::Schedule() {
  if (std::exchange(scheduled_, true)) return;
  repair_timer_.expires_at(std::max(steady_clock::now() + kSettle, budget_.next()));
  repair_timer_.async_wait([this](const ErrorCode& error) {
    if (!error) MakeAsWanted();
  });
}

void DataPlaneWatch::MakeAsWanted() {
  scheduled_ = false;
  const Time begin = steady_clock::now();
  const Repair repair = data_plane_.MakeAsWanted();
  budget_.Spend(begin, steady_clock::now());
  if (repair.differences != 0) Report(repair);
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
