#include "reference/socket_client/outstanding_requests.h"

#include <algorithm>
#include <string>
#include <utility>

#include "reference/wire/frame.h"

namespace reference {
namespace {

std::size_t NextPowerOfTwo(std::size_t number) {
  std::size_t power = 1;
  while (power < number) power *= 2;
  return power;
}

}  // namespace

OutstandingRequests::OutstandingRequests(std::size_t capacity, std::uint32_t first_sequence)
    : capacity_(capacity), slots_(NextPowerOfTwo(capacity)), first_sequence_(first_sequence) {}

OutstandingRequests::Added OutstandingRequests::Add(
    const HalRequest& request, bool keep_payload, std::chrono::steady_clock::time_point submitted) {
  if (tail_ - head_ == capacity_) ForgetExpired(head_++);
  Slot& slot = SlotOf(tail_);
  slot.in_use = true;
  OutstandingRequest& outstanding = slot.outstanding;
  outstanding = {};
  outstanding.operation = request.operation;
  outstanding.id = request.id;
  outstanding.secondary_id = request.secondary_id;
  outstanding.number = request.number;
  outstanding.submitted = submitted;
  slot.has_payload = keep_payload;
  if (keep_payload) {
    payloads_.emplace(tail_, request.payload);
    payload_bytes_ += request.payload.size();
  }
  ++size_;
  return {&outstanding, static_cast<std::uint32_t>(first_sequence_ + tail_++) & kSequenceMask};
}

const OutstandingRequest* OutstandingRequests::Take(std::uint32_t sequence) {
  const std::uint64_t place = head_ + ((sequence - first_sequence_ - head_) & kSequenceMask);
  if (place >= tail_ || !SlotOf(place).in_use) return nullptr;

  Free(place);
  ForgetExpiredBefore(place);
  while (head_ != tail_ && !SlotOf(head_).in_use) ++head_;
  return &SlotOf(place).outstanding;
}

void OutstandingRequests::Free(std::uint64_t place) {
  Slot& slot = SlotOf(place);
  if (slot.has_payload) TakePayload(place);
  slot.in_use = false;
  --size_;
  if (slot.outstanding.expired) --expired_;
}

std::string OutstandingRequests::TakePayload(std::uint64_t place) {
  SlotOf(place).has_payload = false;
  std::string payload = std::move(payloads_.extract(place).mapped());
  payload_bytes_ -= payload.size();
  return payload;
}

void OutstandingRequests::ForgetExpiredBefore(std::uint64_t place) {
  for (std::uint64_t at = head_; expired_ != 0 && at != place; ++at) ForgetExpired(at);
}

void OutstandingRequests::ForgetExpired(std::uint64_t place) {
  const Slot& slot = SlotOf(place);
  if (slot.in_use && slot.outstanding.expired) Free(place);
}

void OutstandingRequests::MarkWritten(std::uint64_t up_to,
                                      std::chrono::steady_clock::time_point now) {
  for (unwritten_ = std::max(unwritten_, head_); unwritten_ < up_to; ++unwritten_) {
    SlotOf(unwritten_).outstanding.written = now;
  }
}

const OutstandingRequest* OutstandingRequests::OldestUnexpired() {
  for (unexpired_ = std::max(unexpired_, head_); unexpired_ != tail_; ++unexpired_) {
    const Slot& slot = SlotOf(unexpired_);
    if (slot.in_use && !slot.outstanding.expired) return &slot.outstanding;
  }
  return nullptr;
}

HalRequest OutstandingRequests::ExpireOldest() {
  OutstandingRequest& oldest = SlotOf(unexpired_).outstanding;
  oldest.expired = true;
  ++expired_;
  if (SlotOf(unexpired_).has_payload) TakePayload(unexpired_);
  return oldest.Request();
}

std::vector<HalRequest> OutstandingRequests::TakeAll() {
  std::vector<HalRequest> taken;
  taken.reserve(size_ - expired_);
  for (; head_ != tail_; ++head_) {
    const Slot& slot = SlotOf(head_);
    if (!slot.in_use || slot.outstanding.expired) continue;
    taken.push_back(slot.outstanding.Request());
    if (slot.has_payload) taken.back().payload = TakePayload(head_);
  }
  size_ = 0;
  expired_ = 0;
  return taken;
}

}  // namespace reference
