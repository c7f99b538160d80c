#include "platform/hal_client.h"

#include <iostream>
#include <utility>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"

HalL3MplsEncapsulationClient::~HalL3MplsEncapsulationClient() = default;

HalL3MplsEncapsulationClientCallbackItf::~HalL3MplsEncapsulationClientCallbackItf() = default;

namespace host {
namespace {

using Code = HalL3MplsEncapsulationReturnCode;

constexpr Code kSuccess{};

// Prints a request and gives the message that it carries, which is gone after the request.
template <typename Message>
const Message& Show(const char* operation, const AppMessage& request) {
  const auto& message = static_cast<const Message&>(*request.message());
  std::cout << "  HAL: " << operation << ' ' << message.ShortDebugString() << '\n';
  return message;
}

std::uint32_t ShowVlan(const char* operation, const AppMessage& request) {
  return Show<encapsulation::VlanMessage>(operation, request).vlan_destination_id();
}

std::uint32_t ShowHost(const char* operation, const AppMessage& request) {
  return Show<encapsulation::HostMessage>(operation, request).dest_id();
}

std::uint32_t ShowEcmp(const char* operation, const AppMessage& request) {
  return Show<encapsulation::EcmpMessage>(operation, request).db_id();
}

}  // namespace

AnsweringHal::AnsweringHal(Results* results) : results_(results), thread_([this] { Run(); }) {}

AnsweringHal::~AnsweringHal() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void AnsweringHal::OnServerFound(void (*report)(void* context)) {
  Report([report] { report(nullptr); });
}

Code AnsweringHal::InitEncapsulationModule() { return kSuccess; }

Code AnsweringHal::InstallVrfIngressInterface(AppMessage* vrf) {
  Show<encapsulation::VrfMessage>("install VRF", *vrf);
  return kSuccess;
}

Code AnsweringHal::DestroyVrfIngressInterface(AppMessage* vrf) {
  Show<encapsulation::VrfMessage>("destroy VRF", *vrf);
  return kSuccess;
}

Code AnsweringHal::InstallVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Answer(&Results::InstallVlanOutgoingEncapsulationResCallback,
                ShowVlan("install VLAN", *vlan));
}

Code AnsweringHal::DestroyVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Answer(&Results::DestroyVlanOutgoingEncapsulationResCallback,
                ShowVlan("destroy VLAN", *vlan));
}

Code AnsweringHal::ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) {
  return Answer(&Results::ReplaceVlanOutgoingEncapsulationResCallback,
                ShowVlan("replace VLAN", *vlan));
}

Code AnsweringHal::InstallHostOutgoingEncapsulation(AppMessage* host) {
  return Answer(&Results::InstallHostOutgoingEncapsulationResCallback,
                ShowHost("install host", *host));
}

Code AnsweringHal::DestroyHostOutgoingEncapsulation(AppMessage* host) {
  return Answer(&Results::DestroyHostOutgoingEncapsulationResCallback,
                ShowHost("destroy host", *host));
}

Code AnsweringHal::ReplaceHostOutgoingEncapsulation(AppMessage* host) {
  return Answer(&Results::ReplaceHostOutgoingEncapsulationResCallback,
                ShowHost("replace host", *host));
}

Code AnsweringHal::InstallEcmpEncap(AppMessage* ecmp) {
  return Answer(&Results::InstallEcmpEncapResCallback, ShowEcmp("install ECMP", *ecmp));
}

Code AnsweringHal::DestroyEcmpEncap(AppMessage* ecmp) {
  return Answer(&Results::DestroyEcmpEncapResCallback, ShowEcmp("destroy ECMP", *ecmp));
}

Code AnsweringHal::InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return AnswerMpls(&Results::InstallMplsUnprotectedOutgoingEncapsulationResCallback, *mpls);
}

Code AnsweringHal::DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return AnswerMpls(&Results::DestroyMplsUnprotectedOutgoingEncapsulationResCallback, *mpls);
}

Code AnsweringHal::ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) {
  return AnswerMpls(&Results::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback, *mpls);
}

Code AnsweringHal::Answer(Result result, std::uint32_t db_id) {
  Report([this, result, db_id] { (results_->*result)(kSuccess, db_id); });
  return kSuccess;
}

Code AnsweringHal::AnswerMpls(MplsResult result, const AppMessage& mpls) {
  const auto& message = Show<encapsulation::MplsMessage>("MPLS", mpls);
  Report([this, result, id = message.dest_id(), second = message.pass_through_value()] {
    (results_->*result)(kSuccess, id, second);
  });
  return kSuccess;
}

void AnsweringHal::Report(std::function<void()> report) {
  {
    const std::lock_guard lock(mutex_);
    reports_.push_back(std::move(report));
  }
  changed_.notify_one();
}

void AnsweringHal::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !reports_.empty(); });
    if (reports_.empty()) return;
    const auto report = std::move(reports_.front());
    reports_.pop_front();
    lock.unlock();
    report();
    lock.lock();
  }
}

}  // namespace host
