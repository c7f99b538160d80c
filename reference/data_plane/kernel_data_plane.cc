#include "reference/data_plane/kernel_data_plane.h"

#include <utility>

#include "reference/data_plane/difference.h"

namespace reference {

KernelDataPlane::KernelDataPlane(Translation translation, WriteChanges write, LogFunction log)
    : translation_(std::move(translation)), write_(std::move(write)), log_(std::move(log)) {}

HalReturnCode KernelDataPlane::Store(HalKind kind, std::uint32_t id,
                                     const google::protobuf::Message& message) {
  return translation_.Store(kind, id, message);
}

void KernelDataPlane::Remove(HalKind kind, std::uint32_t id) { translation_.Remove(kind, id); }

std::optional<std::string> KernelDataPlane::Commit() {
  const Transition transition = translation_.Take();
  const std::vector<KernelChange> changes = Difference(transition.before, transition.after);
  if (changes.empty()) return std::nullopt;
  const std::vector<RefusedChange> refused = write_(changes);
  if (refused.empty()) return std::nullopt;

  KernelObjects present = transition.before;
  auto next = refused.begin();
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (next != refused.end() && next->change == i) {
      ++next;
    } else {
      Apply(changes[i], &present);
    }
  }
  translation_.PutBack(transition, present);
  return refused.front().text;
}

void KernelDataPlane::CommitOrLeave() {
  const Transition transition = translation_.Take();
  const std::vector<KernelChange> changes = Difference(transition.before, transition.after);
  if (changes.empty()) return;
  for (const RefusedChange& refused : write_(changes)) {
    if (log_) log_(LogLevel::kError, "the kernel differs from the tables now: " + refused.text);
  }
}

}  // namespace reference
