#include "reference/hal/hal_connection.h"

#include <utility>

namespace reference {
namespace {

thread_local HalReturnCode reported_code = kHalSuccess;

}  // namespace

void HalReporter::Result(const HalRequest& request, HalReturnCode code) const {
  if (!HasResult(request.operation)) {
    if (reports_.vrf_result) reports_.vrf_result(request, code);
    return;
  }
  if (observer_ != nullptr) observer_->Result(request.number, request, code);
  ReportResult(reports_.results, request, code);
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

void HalReporter::Room() const {
  if (reports_.room) reports_.room();
}

void HalReporter::Event(std::string_view line) const {
  if (observer_ != nullptr) observer_->Event(line);
}

HalReturnCode HalConnection::InitEncapsulationModule() { return kHalSuccess; }

HalReturnCode HalConnection::InstallVrfIngressInterface(AppMessage* vrf) {
  return Hand(HalOperation::kInstallVrf, vrf);
}

HalReturnCode HalConnection::DestroyVrfIngressInterface(AppMessage* vrf) {
  return Hand(HalOperation::kDestroyVrf, vrf);
}

HalReturnCode HalConnection::InstallVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Hand(HalOperation::kInstallVlan, vlan);
}

HalReturnCode HalConnection::DestroyVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Hand(HalOperation::kDestroyVlan, vlan);
}

HalReturnCode HalConnection::ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Hand(HalOperation::kReplaceVlan, vlan);
}

HalReturnCode HalConnection::InstallHostOutgoingEncapsulation(AppMessage* host) {
  return Hand(HalOperation::kInstallHost, host);
}

HalReturnCode HalConnection::DestroyHostOutgoingEncapsulation(AppMessage* host) {
  return Hand(HalOperation::kDestroyHost, host);
}

HalReturnCode HalConnection::ReplaceHostOutgoingEncapsulation(AppMessage* host) {
  return Hand(HalOperation::kReplaceHost, host);
}

HalReturnCode HalConnection::InstallEcmpEncap(AppMessage* ecmp) {
  return Hand(HalOperation::kInstallEcmp, ecmp);
}

HalReturnCode HalConnection::DestroyEcmpEncap(AppMessage* ecmp) {
  return Hand(HalOperation::kDestroyEcmp, ecmp);
}

HalReturnCode HalConnection::InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Hand(HalOperation::kInstallMpls, mpls);
}

HalReturnCode HalConnection::DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Hand(HalOperation::kDestroyMpls, mpls);
}

HalReturnCode HalConnection::ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Hand(HalOperation::kReplaceMpls, mpls);
}

HalReturnCode HalConnection::Hand(HalOperation operation, AppMessage* message) {
  HalRequest request = MakeRequest(operation, *message);
  if (observer_ != nullptr) request.number = observer_->Request(request, message);
  return Submit(std::move(request));
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

ScopedReportedCode::ScopedReportedCode(HalReturnCode code)
    : previous_(std::exchange(reported_code, code)) {}

ScopedReportedCode::~ScopedReportedCode() { reported_code = previous_; }

}  // namespace reference
