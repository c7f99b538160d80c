#include "reference/record/steps.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <unordered_map>
#include <utility>

namespace reference {
namespace {

Step MakeStep(record::Request* recorded) {
  Step step;
  step.number = recorded->number();
  step.request.operation = static_cast<HalOperation>(recorded->operation());
  step.request.id = recorded->id();
  step.request.secondary_id = recorded->secondary_id();
  step.request.payload = std::move(*recorded->mutable_payload());
  step.payload_omitted = recorded->omitted_payload_bytes() != 0;
  return step;
}

/// Collects steps and moves those that belong after a server-found step.
class StepCollector {
 public:
  void Add(Step::Kind kind) {
    Step step;
    step.kind = kind;
    if (kind == Step::Kind::kServerFound) server_ = placed_.size();
    Append(std::move(step));
  }

  void Add(record::Request* request) {
    place_of_[request->number()] = placed_.size();
    Append(MakeStep(request));
  }

  /// Whether the request is known.
  bool SetResult(const record::Result& result) {
    const auto place = place_of_.find(result.number());
    if (place == place_of_.end()) return false;
    Placed& placed = placed_[place->second];
    placed.step.code = HalReturnCode{result.code()};
    if (placed.order.first < server_) placed.order = {server_, true};
    return true;
  }

  std::vector<Step> TakeSteps() {
    std::stable_sort(placed_.begin(), placed_.end(),
                     [](const Placed& a, const Placed& b) { return a.order < b.order; });
    std::vector<Step> steps;
    steps.reserve(placed_.size());
    for (Placed& placed : placed_) steps.push_back(std::move(placed.step));
    return steps;
  }

 private:
  struct Placed {
    Step step;
    // The entry's place, or that of the server-found entry that it must follow, and true.
    std::pair<std::size_t, bool> order;
  };

  void Append(Step step) { placed_.push_back({std::move(step), {placed_.size(), false}}); }

  std::vector<Placed> placed_;
  std::unordered_map<std::uint64_t, std::size_t> place_of_;
  // The place of the last server-found entry.
  std::size_t server_ = 0;
};

}  // namespace

std::vector<Step> ReadSteps(RecordingReader* recording, InterfaceNames* interfaces) {
  StepCollector steps;
  record::Entry entry;
  while (recording->Next(&entry)) {
    switch (entry.what_case()) {
      case record::Entry::kRequest:
        steps.Add(entry.mutable_request());
        break;
      case record::Entry::kResult:
        if (!steps.SetResult(entry.result())) {
          throw recording->Error("a result of request #" + std::to_string(entry.result().number()) +
                                 ", which does not precede it");
        }
        break;
      case record::Entry::kBeginReinstall:
        steps.Add(Step::Kind::kBeginReinstall);
        break;
      case record::Entry::kEndReinstall:
        steps.Add(Step::Kind::kEndReinstall);
        break;
      case record::Entry::kServerFound:
        steps.Add(Step::Kind::kServerFound);
        break;
      case record::Entry::kInterface:
        if (interfaces != nullptr) {
          (*interfaces)[entry.interface().lim_id()] = entry.interface().name();
        }
        break;
      default:
        break;
    }
  }
  return steps.TakeSteps();
}

}  // namespace reference
