#ifndef ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_
#define ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reference/hal/kinds.h"
#include "reference/log/log_function.h"
#include "reference/server/server_faults.h"

namespace reference {

/// The exit status of a process that a fault crashed.
inline constexpr int kFaultCrashExitCode = 70;

struct FaultPlanOptions {
  /// Receives a line for each fault that happens. May be empty.
  LogFunction log;
  /// Called for a crash; if empty, the process exits immediately with `kFaultCrashExitCode`.
  std::function<void()> crash;
};

/// The effects of faults; fault.proto explains them.
enum class FaultEffect {
  kRefuse,
  kCloseOnAccept,
  kOneByteWrites,
  kSlowReads,
  kAnswer,
  kTableFull,
  kCloseBefore,
  kCloseAfter,
  kCrashBefore,
  kCrashAfter,
  kCutInHeader,
  kCutInBody,
  kDelay,
  kReorder,
  kDuplicate,
  kSwallow,
  kStray,
  kPause,
  kStall,
  kObjectState,
};

/// What a fault affects.
enum class FaultScope { kConnection, kRequest };

/// One fault: what it does, to what and when. The names are those of fault.proto.
struct FaultRule {
  /// The word for the effect, for the log. Static.
  std::string_view what;
  FaultEffect effect{};
  FaultScope scope{};
  std::optional<HalOperation> operation;
  std::optional<HalKind> kind;
  bool in_reinstall = false;
  std::int64_t nth = 1;
  std::int64_t times = 1;
  std::int64_t one_in = 1;
  std::int64_t ms = 0;
  std::int64_t code = 0;
  std::int64_t entries = 0;
  std::int64_t window = 0;
  std::int64_t bytes_per_second = 0;
};

/// Injects faults according to `rules`; equal seeds give equal choices.
std::unique_ptr<ServerFaults> MakeFaultPlan(const std::vector<FaultRule>& rules, std::uint32_t seed,
                                            FaultPlanOptions options);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_FAULT_PLAN_H_
