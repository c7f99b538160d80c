#include "tests/manager/table_hal.h"

#include <gtest/gtest.h>

#include <utility>

namespace reference {

void TableHal::Start(HalReports reports) { reports_ = std::move(reports); }

void TableHal::AskForDigests() {
  EXPECT_TRUE(queue_.empty()) << "nothing is in flight during an audit";
  reports_.digests(tables_.digests());
}

void TableHal::FindServer() {
  EXPECT_TRUE(queue_.empty()) << "every request to the server before has had its result";
  found_ = true;
  reports_.server_found();
}

void TableHal::LoseServer(bool forgets) {
  found_ = false;
  if (forgets) tables_.Clear();
  for (const Task& task : std::exchange(queue_, {})) {
    if (task.mark == nullptr) Report(task.request, kHalServerLost);
  }
  reports_.server_lost();
}

std::size_t TableHal::CarryOut(std::size_t count) {
  std::size_t done = 0;
  for (; done < count && !queue_.empty(); ++done) {
    const Task task = std::move(queue_.front());
    queue_.pop_front();
    if (task.mark == nullptr) {
      Report(task.request, Apply(task.request));
      continue;
    }
    (tables_.*task.mark)();
    if (task.mark == &HalTables::EndReinstall) reports_.reinstall_ended(true);
  }
  return done;
}

HalReturnCode TableHal::Submit(HalRequest* request) {
  EXPECT_TRUE(found_) << "sent without a server";
  queue_.push_back({std::move(*request)});
  return kHalSuccess;
}

HalReturnCode TableHal::Apply(const HalRequest& request) {
  const HalKind kind = KindOf(request.operation);
  const bool full = tables_.size(kind) >= capacities_.at(static_cast<std::size_t>(kind));
  const bool grows =
      ActionOf(request.operation) == HalAction::kInstall && !tables_.Contains(kind, request.id);
  if (!full || !grows) return tables_.Apply(request);
  // Other mistakes in the request take precedence, as in the tables themselves.
  HalTables roomy = tables_;
  const HalReturnCode code = roomy.Apply(request);
  return code == kHalSuccess ? kHalTableFull : code;
}

void TableHal::Report(const HalRequest& request, HalReturnCode code) {
  if (HasResult(request.operation)) {
    ReportResult(reports_.results, request, code);
  } else {
    reports_.vrf_result(request, code);
  }
}

}  // namespace reference
