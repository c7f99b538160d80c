#include "reference/hal/hal_request.h"

#include <array>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "reference/hal/hal_connection.h"
#include "reference/hal/message_id.h"

namespace reference {
namespace {

using Results = HalL3MplsEncapsulationClientCallbackItf;

template <void (Results::*operation)(HalReturnCode, unsigned int)>
void Report(Results* results, const HalRequest& request, HalReturnCode code) {
  (results->*operation)(code, request.id);
}

template <void (Results::*operation)(HalReturnCode, unsigned int, unsigned int)>
void Report(Results* results, const HalRequest& request, HalReturnCode code) {
  (results->*operation)(code, request.id, request.secondary_id);
}

struct OperationEntry {
  HalOperation operation;
  std::string_view name;
  HalKind kind;
  HalAction action;
  // Null for operations without a result.
  void (*report)(Results* results, const HalRequest& request, HalReturnCode code);
};

constexpr std::array kOperations = {
    OperationEntry{HalOperation::kInstallVrf, "install-vrf", HalKind::kVrf, HalAction::kInstall,
                   nullptr},
    OperationEntry{HalOperation::kDestroyVrf, "destroy-vrf", HalKind::kVrf, HalAction::kDestroy,
                   nullptr},
    OperationEntry{HalOperation::kInstallVlan, "install-vlan", HalKind::kVlan, HalAction::kInstall,
                   Report<&Results::InstallVlanOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kDestroyVlan, "destroy-vlan", HalKind::kVlan, HalAction::kDestroy,
                   Report<&Results::DestroyVlanOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kReplaceVlan, "replace-vlan", HalKind::kVlan, HalAction::kReplace,
                   Report<&Results::ReplaceVlanOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kInstallHost, "install-host", HalKind::kHost, HalAction::kInstall,
                   Report<&Results::InstallHostOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kDestroyHost, "destroy-host", HalKind::kHost, HalAction::kDestroy,
                   Report<&Results::DestroyHostOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kReplaceHost, "replace-host", HalKind::kHost, HalAction::kReplace,
                   Report<&Results::ReplaceHostOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kInstallEcmp, "install-ecmp", HalKind::kEcmp, HalAction::kInstall,
                   Report<&Results::InstallEcmpEncapResCallback>},
    OperationEntry{HalOperation::kDestroyEcmp, "destroy-ecmp", HalKind::kEcmp, HalAction::kDestroy,
                   Report<&Results::DestroyEcmpEncapResCallback>},
    OperationEntry{HalOperation::kInstallMpls, "install-mpls", HalKind::kMpls, HalAction::kInstall,
                   Report<&Results::InstallMplsUnprotectedOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kDestroyMpls, "destroy-mpls", HalKind::kMpls, HalAction::kDestroy,
                   Report<&Results::DestroyMplsUnprotectedOutgoingEncapsulationResCallback>},
    OperationEntry{HalOperation::kReplaceMpls, "replace-mpls", HalKind::kMpls, HalAction::kReplace,
                   Report<&Results::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback>},
};

constexpr std::size_t IndexOf(HalOperation operation) {
  return static_cast<std::size_t>(operation) - static_cast<std::size_t>(HalOperation::kInstallVrf);
}

constexpr bool InOrder() {
  for (std::size_t index = 0; index < kOperations.size(); ++index) {
    if (IndexOf(kOperations[index].operation) != index) return false;
  }
  return true;
}
static_assert(InOrder(), "an entry's place is its operation's");

const OperationEntry& EntryOf(HalOperation operation) { return kOperations.at(IndexOf(operation)); }

std::uint32_t SecondaryIdOf(const google::protobuf::Message& /*message*/) { return 0; }

std::uint32_t SecondaryIdOf(const encapsulation::MplsMessage& mpls) {
  return mpls.pass_through_value();
}

template <typename Message>
void CopyMessage(const google::protobuf::Message* carried, HalRequest* request) {
  const auto* const message = dynamic_cast<const Message*>(carried);
  if (message == nullptr) return;
  request->id = IdOf(*message).value_or(0);
  request->secondary_id = SecondaryIdOf(*message);
  request->payload = message->SerializeAsString();
}

using Copier = void (*)(const google::protobuf::Message* carried, HalRequest* request);

constexpr std::array<Copier, kHalKinds> kCopiers = {
    CopyMessage<encapsulation::VrfMessage>,  CopyMessage<encapsulation::VlanMessage>,
    CopyMessage<encapsulation::HostMessage>, CopyMessage<encapsulation::EcmpMessage>,
    CopyMessage<encapsulation::MplsMessage>,
};

}  // namespace

std::string_view OperationName(HalOperation operation) { return EntryOf(operation).name; }

HalKind KindOf(HalOperation operation) { return EntryOf(operation).kind; }

HalAction ActionOf(HalOperation operation) { return EntryOf(operation).action; }

bool HasResult(HalOperation operation) { return EntryOf(operation).report != nullptr; }

std::string_view HalKindName(HalKind kind) {
  static constexpr std::array<std::string_view, kHalKinds> kNames = {"vrf", "vlan", "host", "ecmp",
                                                                     "mpls"};
  return kNames.at(static_cast<std::size_t>(kind));
}

HalRequest WithoutPayload(const HalRequest& request) {
  return {request.operation, request.id, request.secondary_id, {}, request.number};
}

HalRequest MakeRequest(HalOperation operation, const AppMessage& message) {
  HalRequest request;
  request.operation = operation;
  kCopiers.at(static_cast<std::size_t>(KindOf(operation)))(message.message(), &request);
  return request;
}

void ReportResult(HalL3MplsEncapsulationClientCallbackItf* results, const HalRequest& request,
                  HalReturnCode code) {
  const OperationEntry& entry = EntryOf(request.operation);
  if (entry.report == nullptr) return;
  const ScopedReportedCode reported(code);
  entry.report(results, request, code);
}

}  // namespace reference
