#include "tests/manager/scripted_hal.h"

#include <gtest/gtest.h>

#include <utility>

namespace reference {
namespace {

std::string Describe(const HalRequest& request) {
  return std::string(OperationName(request.operation)) + ' ' + std::to_string(request.id);
}

}  // namespace

void ScriptedHal::Start(HalReports reports) { reports_ = std::move(reports); }

bool ScriptedHal::HasRoom() {
  room_asked_ = outstanding_.size() < room_;
  room_wanted_ = room_wanted_ || !room_asked_;
  return room_asked_;
}

void ScriptedHal::SubmitBeginReinstall() { log_.emplace_back("begin-reinstall"); }

void ScriptedHal::SubmitEndReinstall() {
  log_.emplace_back("end-reinstall");
  end_sent_ = true;
}

void ScriptedHal::EndReinstalls() {
  if (std::exchange(end_sent_, false)) reports_.reinstall_ended(in_sync_);
}

void ScriptedHal::FindServer() {
  EXPECT_TRUE(outstanding_.empty()) << "every request to the server before has had its result";
  reports_.server_found();
}

void ScriptedHal::Answer(HalReturnCode code) {
  ASSERT_FALSE(outstanding_.empty());
  AnswerAt(0, code);
}

void ScriptedHal::AnswerAll(HalReturnCode code) {
  while (!outstanding_.empty()) AnswerAt(0, code);
}

void ScriptedHal::Answer(const std::string& request, HalReturnCode code) {
  for (std::size_t place = 0; place < outstanding_.size(); ++place) {
    if (Describe(outstanding_[place]) != request) continue;
    AnswerAt(place, code);
    return;
  }
  FAIL() << request << " is not outstanding";
}

void ScriptedHal::Report(HalOperation operation, std::uint32_t id, HalReturnCode code) {
  Report({operation, id, 0, {}}, code);
}

void ScriptedHal::Report(const HalRequest& request, HalReturnCode code) {
  if (HasResult(request.operation)) {
    ReportResult(reports_.results, request, code, reason_);
  } else {
    const ScopedReport reported(code, reason_);
    reports_.vrf_result(request, code);
  }
}

void ScriptedHal::ReportRoom() {
  if (std::exchange(room_wanted_, false)) reports_.room();
}

HalDigests ScriptedHal::Digests(EntryHashFunction function) const {
  HalDigests digests;
  digests.function = function;
  for (const auto& [key, payload] : held_) {
    HalDigest& digest = digests.of(key.first);
    ++digest.count;
    digest.sum += EntryHash(key.second, payload, function);
  }
  return digests;
}

std::vector<std::string> ScriptedHal::TakeLog() { return std::exchange(log_, {}); }

HalReturnCode ScriptedHal::Submit(HalRequest* request) {
  EXPECT_TRUE(std::exchange(room_asked_, false)) << Describe(*request) << ": sent without HasRoom";
  for (const HalRequest& other : outstanding_) {
    EXPECT_FALSE(KindOf(other.operation) == KindOf(request->operation) && other.id == request->id)
        << Describe(*request) << " while " << Describe(other) << " is outstanding";
  }
  log_.push_back(Describe(*request));
  last_payload_ = request->payload;
  outstanding_.push_back(std::move(*request));
  return kHalSuccess;
}

void ScriptedHal::AnswerAt(std::size_t place, HalReturnCode code) {
  const HalRequest request = outstanding_.at(place);
  outstanding_.erase(outstanding_.begin() + static_cast<std::ptrdiff_t>(place));
  const std::pair key(KindOf(request.operation), request.id);
  if (code == kHalSuccess && ActionOf(request.operation) == HalAction::kDestroy) {
    held_.erase(key);
  } else if (code == kHalSuccess) {
    held_[key] = request.payload;
  }
  Report(request, code);
}

}  // namespace reference
