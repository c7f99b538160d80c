#include "reference/hal/hal_connection.h"

#include <utility>

namespace reference {
namespace {

thread_local HalReturnCode reported_code = kHalSuccess;

}  // namespace

HalReturnCode HalConnection::InitEncapsulationModule() { return kHalSuccess; }

HalReturnCode HalConnection::InstallVrfIngressInterface(AppMessage* vrf) {
  return Submit(MakeRequest(HalOperation::kInstallVrf, *vrf));
}

HalReturnCode HalConnection::DestroyVrfIngressInterface(AppMessage* vrf) {
  return Submit(MakeRequest(HalOperation::kDestroyVrf, *vrf));
}

HalReturnCode HalConnection::InstallVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Submit(MakeRequest(HalOperation::kInstallVlan, *vlan));
}

HalReturnCode HalConnection::DestroyVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Submit(MakeRequest(HalOperation::kDestroyVlan, *vlan));
}

HalReturnCode HalConnection::ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Submit(MakeRequest(HalOperation::kReplaceVlan, *vlan));
}

HalReturnCode HalConnection::InstallHostOutgoingEncapsulation(AppMessage* host) {
  return Submit(MakeRequest(HalOperation::kInstallHost, *host));
}

HalReturnCode HalConnection::DestroyHostOutgoingEncapsulation(AppMessage* host) {
  return Submit(MakeRequest(HalOperation::kDestroyHost, *host));
}

HalReturnCode HalConnection::ReplaceHostOutgoingEncapsulation(AppMessage* host) {
  return Submit(MakeRequest(HalOperation::kReplaceHost, *host));
}

HalReturnCode HalConnection::InstallEcmpEncap(AppMessage* ecmp) {
  return Submit(MakeRequest(HalOperation::kInstallEcmp, *ecmp));
}

HalReturnCode HalConnection::DestroyEcmpEncap(AppMessage* ecmp) {
  return Submit(MakeRequest(HalOperation::kDestroyEcmp, *ecmp));
}

HalReturnCode HalConnection::InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Submit(MakeRequest(HalOperation::kInstallMpls, *mpls));
}

HalReturnCode HalConnection::DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Submit(MakeRequest(HalOperation::kDestroyMpls, *mpls));
}

HalReturnCode HalConnection::ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return Submit(MakeRequest(HalOperation::kReplaceMpls, *mpls));
}

HalReturnCode ReportedCode() { return reported_code; }

ScopedReportedCode::ScopedReportedCode(HalReturnCode code)
    : previous_(std::exchange(reported_code, code)) {}

ScopedReportedCode::~ScopedReportedCode() { reported_code = previous_; }

}  // namespace reference
