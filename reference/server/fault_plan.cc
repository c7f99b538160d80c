#include "reference/server/fault_plan.h"

#include <unistd.h>

#include <algorithm>
#include <random>
#include <thread>
#include <utility>

#include "reference/wire/frame.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using RequestFate = ServerFaults::RequestFate;

constexpr std::size_t kInHeader = kFrameHeaderSize / 2;
constexpr std::size_t kInBody = kFrameHeaderSize + 6;

// A fault and its progress.
struct Rule : FaultRule {
  explicit Rule(const FaultRule& rule) : FaultRule(rule) {}

  // How often it could have happened, and how often it did.
  std::int64_t seen = 0;
  std::int64_t fired = 0;
  // For a reordering: when to send the results that it holds.
  ServerFaults::Time due{};
};

class FaultPlan : public ServerFaults {
 public:
  FaultPlan(const std::vector<FaultRule>& rules, std::uint32_t seed, FaultPlanOptions options)
      : options_(std::move(options)), rules_(rules.begin(), rules.end()), random_(seed) {}

  ConnectionFate OnAccept() override {
    ConnectionFate fate;
    for (Rule& rule : rules_) {
      if (rule.scope == FaultScope::kConnection && Fires(&rule, "a connection")) Apply(rule, &fate);
    }
    return fate;
  }

  RequestFate OnRequest(const HalRequest& request, const HalTables& tables) override {
    RequestFate fate;
    for (Rule& rule : rules_) {
      if (Matches(rule, request, tables) && Fires(&rule, OperationName(request.operation))) {
        Apply(&rule, &fate);
      }
    }
    fate.due = std::max(fate.due, paused_until_);
    return fate;
  }

  void OnBeginReinstall() override {
    reinstalling_ = true;
    for (Rule& rule : rules_) {
      if (rule.in_reinstall) rule.seen = 0;
    }
  }

  Time OnEndReinstall() override {
    reinstalling_ = false;
    return paused_until_;
  }

  void Crash() override {
    if (!options_.crash) _exit(kFaultCrashExitCode);
    options_.crash();
    reinstalling_ = false;
    paused_until_ = {};
  }

 private:
  bool Matches(const Rule& rule, const HalRequest& request, const HalTables& tables) const {
    if (rule.scope != FaultScope::kRequest) return false;
    if (rule.in_reinstall && !reinstalling_) return false;
    const HalKind kind = KindOf(request.operation);
    if (rule.operation.value_or(request.operation) != request.operation) return false;
    if (rule.kind.value_or(kind) != kind) return false;
    if (rule.effect != FaultEffect::kTableFull) return true;
    return ActionOf(request.operation) == HalAction::kInstall &&
           !tables.Contains(kind, request.id) &&
           tables.size(kind) >= static_cast<std::size_t>(rule.entries);
  }

  bool Fires(Rule* rule, std::string_view subject) {
    ++rule->seen;
    if (rule->seen < rule->nth || rule->fired >= rule->times) return false;
    if (random_() % static_cast<std::uint64_t>(rule->one_in) != 0) return false;
    ++rule->fired;
    if (options_.log) {
      options_.log(LogLevel::kWarning,
                   "fault: " + std::string(rule->what) + " on " + std::string(subject) + ", " +
                       std::to_string(rule->fired) + " of " + std::to_string(rule->times));
    }
    return true;
  }

  static void Apply(const Rule& rule, ConnectionFate* fate) {
    if (rule.effect == FaultEffect::kRefuse) {
      fate->entry = ConnectionFate::Entry::kRefuse;
    } else if (rule.effect == FaultEffect::kCloseOnAccept) {
      fate->entry = ConnectionFate::Entry::kClose;
    } else if (rule.effect == FaultEffect::kOneByteWrites) {
      fate->one_byte_writes = true;
    } else {
      fate->read_bytes_per_second = static_cast<std::size_t>(rule.bytes_per_second);
    }
  }

  void Apply(Rule* rule, RequestFate* fate) {
    const milliseconds time(rule->ms);
    switch (rule->effect) {
      case FaultEffect::kAnswer:
        fate->code = static_cast<HalReturnCode>(rule->code);
        break;
      case FaultEffect::kTableFull:
        fate->code = kHalTableFull;
        break;
      case FaultEffect::kCloseBefore:
        fate->end = RequestFate::End::kCloseBefore;
        break;
      case FaultEffect::kCloseAfter:
        fate->end = RequestFate::End::kCloseAfter;
        break;
      case FaultEffect::kCrashBefore:
        fate->end = RequestFate::End::kCrashBefore;
        break;
      case FaultEffect::kCrashAfter:
        fate->end = RequestFate::End::kCrashAfter;
        break;
      case FaultEffect::kCutInHeader:
        fate->cut = kInHeader;
        break;
      case FaultEffect::kCutInBody:
        fate->cut = kInBody;
        break;
      case FaultEffect::kDelay:
        fate->due = steady_clock::now() + time;
        break;
      case FaultEffect::kReorder:
        if ((rule->fired - 1) % rule->window == 0) rule->due = steady_clock::now() + time;
        fate->due = rule->due;
        fate->rank = static_cast<std::uint32_t>(random_());
        break;
      case FaultEffect::kDuplicate:
        fate->copies = 2;
        break;
      case FaultEffect::kSwallow:
        fate->copies = 0;
        break;
      case FaultEffect::kStray:
        fate->stray = true;
        break;
      case FaultEffect::kPause:
        paused_until_ = steady_clock::now() + time;
        break;
      case FaultEffect::kStall:
        std::this_thread::sleep_for(time);
        break;
      case FaultEffect::kObjectState:
        fate->broken = static_cast<HalReturnCode>(rule->code);
        fate->broken_for = time;
        break;
      case FaultEffect::kRefuse:
      case FaultEffect::kCloseOnAccept:
      case FaultEffect::kOneByteWrites:
      case FaultEffect::kSlowReads:
        break;
    }
  }

  const FaultPlanOptions options_;
  std::vector<Rule> rules_;
  std::mt19937_64 random_;
  bool reinstalling_ = false;
  Time paused_until_{};
};

}  // namespace

std::unique_ptr<ServerFaults> MakeFaultPlan(const std::vector<FaultRule>& rules, std::uint32_t seed,
                                            FaultPlanOptions options) {
  return std::make_unique<FaultPlan>(rules, seed, std::move(options));
}

}  // namespace reference
