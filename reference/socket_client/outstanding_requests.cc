#include "reference/socket_client/outstanding_requests.h"

#include <algorithm>
#include <utility>

#include "reference/wire/frame.h"

namespace reference {

OutstandingRequests::OutstandingRequests(std::size_t capacity, std::uint32_t first_sequence)
    : slots_(capacity), first_sequence_(first_sequence) {}

std::uint32_t OutstandingRequests::Add(OutstandingRequest request) {
  if (tail_ - head_ == slots_.size()) ForgetExpired(head_++);
  SlotOf(tail_) = std::move(request);
  ++size_;
  return static_cast<std::uint32_t>(first_sequence_ + tail_++) & kSequenceMask;
}

std::optional<OutstandingRequest> OutstandingRequests::Take(std::uint32_t sequence) {
  const std::uint64_t place = head_ + ((sequence - first_sequence_ - head_) & kSequenceMask);
  if (place >= tail_ || !SlotOf(place)) return std::nullopt;

  std::optional<OutstandingRequest> taken = std::exchange(SlotOf(place), std::nullopt);
  --size_;
  if (taken->expired) --expired_;
  ForgetExpiredBefore(place);
  while (head_ != tail_ && !SlotOf(head_)) ++head_;
  return taken;
}

void OutstandingRequests::ForgetExpiredBefore(std::uint64_t place) {
  for (std::uint64_t at = head_; expired_ != 0 && at != place; ++at) ForgetExpired(at);
}

void OutstandingRequests::ForgetExpired(std::uint64_t place) {
  std::optional<OutstandingRequest>& slot = SlotOf(place);
  if (!slot || !slot->expired) return;
  slot.reset();
  --size_;
  --expired_;
}

void OutstandingRequests::MarkWritten(std::uint64_t up_to,
                                      std::chrono::steady_clock::time_point now) {
  for (unwritten_ = std::max(unwritten_, head_); unwritten_ < up_to; ++unwritten_) {
    if (auto& slot = SlotOf(unwritten_)) slot->written = now;
  }
}

const OutstandingRequest* OutstandingRequests::OldestUnexpired() {
  for (unexpired_ = std::max(unexpired_, head_); unexpired_ != tail_; ++unexpired_) {
    const auto& slot = SlotOf(unexpired_);
    if (slot && !slot->expired) return &*slot;
  }
  return nullptr;
}

HalRequest OutstandingRequests::ExpireOldest() {
  OutstandingRequest& oldest = *SlotOf(unexpired_);
  oldest.expired = true;
  ++expired_;
  HalRequest kept = WithoutPayload(oldest.request);
  return std::exchange(oldest.request, std::move(kept));
}

std::vector<OutstandingRequest> OutstandingRequests::TakeAll() {
  std::vector<OutstandingRequest> taken;
  taken.reserve(size_);
  for (; head_ != tail_; ++head_) {
    std::optional<OutstandingRequest>& slot = SlotOf(head_);
    if (slot) taken.push_back(*std::exchange(slot, std::nullopt));
  }
  size_ = 0;
  unexpired_ = unwritten_ = tail_;
  expired_ = 0;
  return taken;
}

}  // namespace reference
