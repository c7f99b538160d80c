#include "reference/hal/hal_connection.h"

#include <utility>

namespace reference {
namespace {

thread_local HalReturnCode reported_code = kHalSuccess;
thread_local std::string_view reported_reason;

}  // namespace

void HalReporter::Result(const HalRequest& request, HalReturnCode code,
                         std::string_view reason) const {
  if (!HasResult(request.operation)) {
    const ScopedReport reported(code, reason);
    if (reports_.vrf_result) reports_.vrf_result(request, code);
    return;
  }
  if (observer_ != nullptr) observer_->Result(request.number, request, code, reason);
  ReportResult(reports_.results, request, code, reason);
}

void HalReporter::ServerFound() const {
  if (observer_ != nullptr) observer_->ServerFound();
  if (reports_.server_found) reports_.server_found();
}

void HalReporter::ServerLost() const {
  if (reports_.server_lost) reports_.server_lost();
}

void HalReporter::ReinstallEnded(bool in_sync) const {
  if (reports_.reinstall_ended) reports_.reinstall_ended(in_sync);
}

void HalReporter::ObjectStateChanged(const HalObjectState& state) const {
  if (observer_ != nullptr) observer_->ObjectStateChanged(state);
  if (reports_.object_state) reports_.object_state(state);
}

void HalReporter::Digests(const HalDigests& digests) const {
  if (reports_.digests) reports_.digests(digests);
}

void HalReporter::Room() const {
  if (reports_.room) reports_.room();
}

void HalReporter::Event(std::string_view line) const {
  if (observer_ != nullptr) observer_->Event(line);
}

HalReturnCode HalConnection::InitEncapsulationModule() { return kHalSuccess; }

HalReturnCode HalConnection::OnRequest(HalOperation operation, AppMessage* wrapper) {
  MakeRequest(operation, *wrapper, &request_);
  if (observer_ != nullptr) request_.number = observer_->Request(request_, wrapper);
  return Submit(&request_);
}

void HalConnection::BeginReinstall() {
  if (observer_ != nullptr) observer_->BeginReinstall();
  SubmitBeginReinstall();
}

void HalConnection::EndReinstall() {
  if (observer_ != nullptr) observer_->EndReinstall();
  SubmitEndReinstall();
}

HalReturnCode ReportedCode() { return reported_code; }

std::string_view ReportedReason() { return reported_reason; }

ScopedReport::ScopedReport(HalReturnCode code, std::string_view reason)
    : previous_code_(std::exchange(reported_code, code)),
      previous_reason_(std::exchange(reported_reason, reason)) {}

ScopedReport::~ScopedReport() {
  reported_code = previous_code_;
  reported_reason = previous_reason_;
}

}  // namespace reference
