#ifndef ZUSKUX_REFERENCE_HAL_KINDS_H_
#define ZUSKUX_REFERENCE_HAL_KINDS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include "base_encap_message.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "reference/hal/hal_code.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {

// The kinds of objects that a HAL keeps, and the requests for them. Each kind is a row: a struct
// with its constants, types and functions. HAL, client, server, wire and recordings are written
// once for all rows. They use `VisitKind` if a row's types matter and `TraitsOf` if an operation's
// traits do. (The manager's part of a kind is in reference/manager/engine/hai_object.h.)
//
// To add a kind, all in this file:
//   1. Append it to `HalKind`, and its operations to `HalOperation`. The values of operations are
//      the types of their frames: pick free ones (see `FrameType`).
//   2. Write its row below the others, with the members that `VlanKind` explains, and append the
//      row to `Kinds`. `KindDefaults` provides what the row leaves out.
//   3. Override its requests in `HalClientBase` and its results in `HalCallbackBase`.
// The compiler complains about anything missing.

/// The kinds; the HAL has a table for each. Recordings and frames contain these values.
enum class HalKind : std::uint8_t { kVrf, kVlan, kHost, kEcmp, kMpls };

/// What an operation does to an object.
enum class HalAction : std::uint8_t { kInstall, kDestroy, kReplace };

/// The requests, in the order of the client's operations. Recordings and frames contain these
/// values.
enum class HalOperation : std::uint8_t {
  kInstallVrf = 3,
  kDestroyVrf = 4,
  kInstallVlan = 5,
  kDestroyVlan = 6,
  kReplaceVlan = 7,
  kInstallHost = 8,
  kDestroyHost = 9,
  kReplaceHost = 10,
  kInstallEcmp = 11,
  kDestroyEcmp = 12,
  kInstallMpls = 13,
  kDestroyMpls = 14,
  kReplaceMpls = 15,
};

/// The ids that a request carries and its result returns.
struct ResultIds {
  /// The id under which the HAL keeps the object.
  std::uint32_t id = 0;
  /// The kind's `SecondaryId`.
  std::uint32_t secondary_id = 0;
};

using HalClient = HalL3MplsEncapsulationClient;
using HalCallback = HalL3MplsEncapsulationClientCallbackItf;

/// One operation of a kind.
struct OperationTraits {
  HalOperation operation{};
  HalKind kind{};
  HalAction action{};
  std::string_view name;
  /// The operation that the library calls.
  HalReturnCode (HalClient::*request)(AppMessage* wrapper) = nullptr;
  /// Calls the result operation; null if the operation has no result.
  void (*report)(HalCallback* callback, HalReturnCode code, const ResultIds& ids) = nullptr;
};

/// `OperationTraits::report` for a result with one id.
template <void (HalCallback::*result)(HalReturnCode code, unsigned int id)>
void Report(HalCallback* callback, HalReturnCode code, const ResultIds& ids) {
  (callback->*result)(code, ids.id);
}

/// `OperationTraits::report` for a result with two ids.
template <void (HalCallback::*result)(HalReturnCode code, unsigned int id, unsigned int secondary)>
void Report(HalCallback* callback, HalReturnCode code, const ResultIds& ids) {
  (callback->*result)(code, ids.id, ids.secondary_id);
}

/// The id of a destination; 0 means none.
inline std::optional<std::uint32_t> DestinationId(std::uint32_t id) {
  return id == 0 ? std::nullopt : std::optional(id);
}

/// The defaults for a kind whose row does not override them.
struct KindDefaults {
  /// Whether an install replaces an existing entry. Otherwise it fails, except within a reinstall.
  static constexpr bool kInstallReplaces = false;

  /// The second id of a result.
  template <typename Message>
  static std::uint32_t SecondaryId(const Message& /*message*/) {
    return 0;
  }

  /// Whether the hardware can represent the labels.
  template <typename Message>
  static bool LabelsInRange(const Message& /*message*/) {
    return true;
  }

  /// Whether everything that the message refers to is installed. `holds(kind, id)` returns whether
  /// the HAL holds a usable entry.
  template <typename Message, typename Holds>
  static bool ReferencesExist(const Message& /*message*/, const Holds& /*holds*/) {
    return true;
  }
};

// The rows.

struct VrfKind : KindDefaults {
  static constexpr HalKind kKind = HalKind::kVrf;
  static constexpr std::string_view kName = "vrf";
  using Message = encapsulation::VrfMessage;
  using Wrapper = VrfEncapsulationMessage;

  // VRF requests have no result.
  static constexpr std::array<OperationTraits, 2> kOperations = {{
      {HalOperation::kInstallVrf, kKind, HalAction::kInstall, "install-vrf",
       &HalClient::InstallVrfIngressInterface, nullptr},
      {HalOperation::kDestroyVrf, kKind, HalAction::kDestroy, "destroy-vrf",
       &HalClient::DestroyVrfIngressInterface, nullptr},
  }};
  static constexpr bool kInstallReplaces = true;

  // Unlike a destination's id, 0 is a valid VRF.
  static std::optional<std::uint32_t> Id(const Message& vrf) {
    return vrf.has_vrf_id() ? std::optional(vrf.vrf_id()) : std::nullopt;
  }
};

struct VlanKind : KindDefaults {
  static constexpr HalKind kKind = HalKind::kVlan;
  /// The name for people: on command lines, in tables, in frames.
  static constexpr std::string_view kName = "vlan";
  /// The message sent to the HAL.
  using Message = encapsulation::VlanMessage;
  /// The library's printable message, which carries it.
  using Wrapper = VlanEncapsulationMessage;

  static constexpr std::array<OperationTraits, 3> kOperations = {{
      {HalOperation::kInstallVlan, kKind, HalAction::kInstall, "install-vlan",
       &HalClient::InstallVlanOutgoingEncapsulation,
       Report<&HalCallback::InstallVlanOutgoingEncapsulationResCallback>},
      {HalOperation::kDestroyVlan, kKind, HalAction::kDestroy, "destroy-vlan",
       &HalClient::DestroyVlanOutgoingEncapsulation,
       Report<&HalCallback::DestroyVlanOutgoingEncapsulationResCallback>},
      {HalOperation::kReplaceVlan, kKind, HalAction::kReplace, "replace-vlan",
       &HalClient::ReplaceVlanOutgoingEncapsulation,
       Report<&HalCallback::ReplaceVlanOutgoingEncapsulationResCallback>},
  }};

  /// The id under which the HAL keeps the object; nothing if the message carries none.
  static std::optional<std::uint32_t> Id(const Message& vlan) {
    return DestinationId(vlan.vlan_destination_id());
  }
};

struct HostKind : KindDefaults {
  static constexpr HalKind kKind = HalKind::kHost;
  static constexpr std::string_view kName = "host";
  using Message = encapsulation::HostMessage;
  using Wrapper = HostEncapsulationMessage;

  static constexpr std::array<OperationTraits, 3> kOperations = {{
      {HalOperation::kInstallHost, kKind, HalAction::kInstall, "install-host",
       &HalClient::InstallHostOutgoingEncapsulation,
       Report<&HalCallback::InstallHostOutgoingEncapsulationResCallback>},
      {HalOperation::kDestroyHost, kKind, HalAction::kDestroy, "destroy-host",
       &HalClient::DestroyHostOutgoingEncapsulation,
       Report<&HalCallback::DestroyHostOutgoingEncapsulationResCallback>},
      {HalOperation::kReplaceHost, kKind, HalAction::kReplace, "replace-host",
       &HalClient::ReplaceHostOutgoingEncapsulation,
       Report<&HalCallback::ReplaceHostOutgoingEncapsulationResCallback>},
  }};

  static std::optional<std::uint32_t> Id(const Message& host) {
    return DestinationId(host.dest_id());
  }

  template <typename Holds>
  static bool ReferencesExist(const Message& host, const Holds& holds) {
    return !host.has_vlan_dest_id() || holds(HalKind::kVlan, host.vlan_dest_id());
  }
};

struct EcmpKind : KindDefaults {
  static constexpr HalKind kKind = HalKind::kEcmp;
  static constexpr std::string_view kName = "ecmp";
  using Message = encapsulation::EcmpMessage;
  using Wrapper = EcmpEncapsulationMessage;

  static constexpr std::array<OperationTraits, 2> kOperations = {{
      {HalOperation::kInstallEcmp, kKind, HalAction::kInstall, "install-ecmp",
       &HalClient::InstallEcmpEncap, Report<&HalCallback::InstallEcmpEncapResCallback>},
      {HalOperation::kDestroyEcmp, kKind, HalAction::kDestroy, "destroy-ecmp",
       &HalClient::DestroyEcmpEncap, Report<&HalCallback::DestroyEcmpEncapResCallback>},
  }};
  static constexpr bool kInstallReplaces = true;

  static std::optional<std::uint32_t> Id(const Message& ecmp) {
    return DestinationId(ecmp.db_id());
  }

  // An empty group and repeated members are valid.
  template <typename Holds>
  static bool ReferencesExist(const Message& ecmp, const Holds& holds) {
    return std::all_of(ecmp.members().begin(), ecmp.members().end(), [&holds](std::uint32_t id) {
      return holds(HalKind::kHost, id) || holds(HalKind::kMpls, id) || holds(HalKind::kVlan, id);
    });
  }
};

struct MplsKind : KindDefaults {
  static constexpr HalKind kKind = HalKind::kMpls;
  static constexpr std::string_view kName = "mpls";
  using Message = encapsulation::MplsMessage;
  using Wrapper = MplsEncapsulationMessage;

  static constexpr std::array<OperationTraits, 3> kOperations = {{
      {HalOperation::kInstallMpls, kKind, HalAction::kInstall, "install-mpls",
       &HalClient::InstallMplsUnprotectedOutgoingEncapsulation,
       Report<&HalCallback::InstallMplsUnprotectedOutgoingEncapsulationResCallback>},
      {HalOperation::kDestroyMpls, kKind, HalAction::kDestroy, "destroy-mpls",
       &HalClient::DestroyMplsUnprotectedOutgoingEncapsulation,
       Report<&HalCallback::DestroyMplsUnprotectedOutgoingEncapsulationResCallback>},
      {HalOperation::kReplaceMpls, kKind, HalAction::kReplace, "replace-mpls",
       &HalClient::ReplaceMplsUnprotectedOutgoingEncapsulation,
       Report<&HalCallback::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback>},
  }};

  static std::optional<std::uint32_t> Id(const Message& mpls) {
    return DestinationId(mpls.dest_id());
  }

  static std::uint32_t SecondaryId(const Message& mpls) { return mpls.pass_through_value(); }

  static bool LabelsInRange(const Message& mpls) {
    return std::all_of(mpls.labels().begin(), mpls.labels().end(),
                       [](std::uint32_t label) { return label < 1U << 20; });
  }

  template <typename Holds>
  static bool ReferencesExist(const Message& mpls, const Holds& holds) {
    const std::uint32_t id = mpls.vlan_tunnel_dest_id();
    return id == 0 || holds(HalKind::kVlan, id) || holds(HalKind::kMpls, id);
  }
};

/// The table: the rows in the order of `HalKind`.
using Kinds = std::tuple<VrfKind, VlanKind, HostKind, EcmpKind, MplsKind>;
inline constexpr std::size_t kHalKinds = std::tuple_size_v<Kinds>;

template <typename... Row>
constexpr std::array<HalKind, sizeof...(Row)> KindsOf(std::tuple<Row...> /*rows*/) {
  return {Row::kKind...};
}

/// For loops over the kinds.
inline constexpr std::array<HalKind, kHalKinds> kAllHalKinds = KindsOf(Kinds());

template <typename Function, std::size_t... place>
auto CallWithRow(HalKind kind, Function& function, std::index_sequence<place...> /*places*/) {
  using Result = decltype(function(VrfKind()));
  static constexpr std::array<Result (*)(Function&), kHalKinds> kCalls = {
      [](Function& call) -> Result { return call(std::tuple_element_t<place, Kinds>()); }...};
  return kCalls.at(static_cast<std::size_t>(kind))(function);
}

/// Calls the generic `function` with the row of `kind` and returns its result:
///
///     VisitKind(kind, [&](auto row) {
///       typename decltype(row)::Message message;
///       ...
///     });
///
/// Throws `std::out_of_range` if the value is not a `HalKind`.
template <typename Function>
auto VisitKind(HalKind kind, Function function) {
  return CallWithRow(kind, function, std::make_index_sequence<kHalKinds>());
}

/// "vrf", "vlan" and so on. Throws `std::out_of_range` if the value is not a `HalKind`.
inline std::string_view HalKindName(HalKind kind) {
  return VisitKind(kind, [](auto row) { return row.kName; });
}

template <typename... Row>
constexpr auto OperationsOf(std::tuple<Row...> /*rows*/) {
  std::array<OperationTraits, (Row::kOperations.size() + ...)> all{};
  std::size_t count = 0;
  const auto append = [&all, &count](const auto& operations) {
    for (const OperationTraits& operation : operations) all[count++] = operation;
  };
  (append(Row::kOperations), ...);
  return all;
}

/// All operations, in the order of the rows.
inline constexpr auto kAllHalOperations = OperationsOf(Kinds());

/// In `kPlacesOfOperations`, for a value that is not a `HalOperation`.
inline constexpr std::uint8_t kNoOperation = std::numeric_limits<std::uint8_t>::max();

/// For each byte value, the position of the operation in `kAllHalOperations`.
constexpr auto PlacesOfOperations() {
  std::array<std::uint8_t, std::numeric_limits<std::uint8_t>::max() + 1> places{};
  for (std::uint8_t& place : places) place = kNoOperation;
  for (std::size_t place = 0; place < kAllHalOperations.size(); ++place) {
    places[static_cast<std::size_t>(kAllHalOperations[place].operation)] =
        static_cast<std::uint8_t>(place);
  }
  return places;
}
inline constexpr auto kPlacesOfOperations = PlacesOfOperations();

/// Whether the value is a `HalOperation`.
inline bool IsHalOperation(std::uint8_t value) {
  return kPlacesOfOperations[value] != kNoOperation;
}

// Each of the functions below throws `std::out_of_range` if the value is not a `HalOperation`.

inline const OperationTraits& TraitsOf(HalOperation operation) {
  return kAllHalOperations.at(kPlacesOfOperations[static_cast<std::uint8_t>(operation)]);
}

/// "install-vlan" and so on.
inline std::string_view OperationName(HalOperation operation) { return TraitsOf(operation).name; }

inline HalKind KindOf(HalOperation operation) { return TraitsOf(operation).kind; }

inline HalAction ActionOf(HalOperation operation) { return TraitsOf(operation).action; }

/// Whether the operation has a result.
inline bool HasResult(HalOperation operation) { return TraitsOf(operation).report != nullptr; }

/// A HAL client that receives all requests through one function.
class HalClientBase : public HalClient {
 public:
  ReturnCode InstallVrfIngressInterface(AppMessage* vrf) final {
    return OnRequest(HalOperation::kInstallVrf, vrf);
  }
  ReturnCode DestroyVrfIngressInterface(AppMessage* vrf) final {
    return OnRequest(HalOperation::kDestroyVrf, vrf);
  }

  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* vlan) final {
    return OnRequest(HalOperation::kInstallVlan, vlan);
  }
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* vlan) final {
    return OnRequest(HalOperation::kDestroyVlan, vlan);
  }
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) final {
    return OnRequest(HalOperation::kReplaceVlan, vlan);
  }

  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* host) final {
    return OnRequest(HalOperation::kInstallHost, host);
  }
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* host) final {
    return OnRequest(HalOperation::kDestroyHost, host);
  }
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* host) final {
    return OnRequest(HalOperation::kReplaceHost, host);
  }

  ReturnCode InstallEcmpEncap(AppMessage* ecmp) final {
    return OnRequest(HalOperation::kInstallEcmp, ecmp);
  }
  ReturnCode DestroyEcmpEncap(AppMessage* ecmp) final {
    return OnRequest(HalOperation::kDestroyEcmp, ecmp);
  }

  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) final {
    return OnRequest(HalOperation::kInstallMpls, mpls);
  }
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) final {
    return OnRequest(HalOperation::kDestroyMpls, mpls);
  }
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) final {
    return OnRequest(HalOperation::kReplaceMpls, mpls);
  }

 private:
  /// `wrapper` is the operation's `Wrapper`; valid during the call only.
  virtual ReturnCode OnRequest(HalOperation operation, AppMessage* wrapper) = 0;
};

/// A receiver of results that gets all of them through one function, on the thread that reports
/// them.
class HalCallbackBase : public HalCallback {
 public:
  // No HAL client of the reference system reports this.
  void InitEncapsulationModuleResCallback(ReturnCode /*code*/) final {}

  void InstallVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kInstallVlan, code, {id});
  }
  void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kDestroyVlan, code, {id});
  }
  void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kReplaceVlan, code, {id});
  }

  void InstallHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kInstallHost, code, {id});
  }
  void DestroyHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kDestroyHost, code, {id});
  }
  void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kReplaceHost, code, {id});
  }

  void InstallEcmpEncapResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kInstallEcmp, code, {id});
  }
  void DestroyEcmpEncapResCallback(ReturnCode code, unsigned int id) final {
    OnResult(HalOperation::kDestroyEcmp, code, {id});
  }

  void InstallMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) final {
    OnResult(HalOperation::kInstallMpls, code, {id, secondary_id});
  }
  void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) final {
    OnResult(HalOperation::kDestroyMpls, code, {id, secondary_id});
  }
  void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) final {
    OnResult(HalOperation::kReplaceMpls, code, {id, secondary_id});
  }

 private:
  virtual void OnResult(HalOperation operation, ReturnCode code, const ResultIds& ids) = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_KINDS_H_
