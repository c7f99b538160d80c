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
  // The slot's last request left no payload.
  outstanding.request.operation = request.operation;
  outstanding.request.id = request.id;
  outstanding.request.secondary_id = request.secondary_id;
  outstanding.request.number = request.number;
  if (keep_payload) {
    outstanding.request.payload = request.payload;
    payload_bytes_ += request.payload.size();
  }
  outstanding.submitted = submitted;
  outstanding.written.reset();
  outstanding.hash = 0;
  outstanding.reinstall = 0;
  outstanding.expired = false;
  ++size_;
  return {&outstanding, static_cast<std::uint32_t>(first_sequence_ + tail_++) & kSequenceMask};
}

const OutstandingRequest* OutstandingRequests::Take(std::uint32_t sequence) {
  const std::uint64_t place = head_ + ((sequence - first_sequence_ - head_) & kSequenceMask);
  if (place >= tail_ || !SlotOf(place).in_use) return nullptr;

  Slot& slot = SlotOf(place);
  Free(&slot);
  ForgetExpiredBefore(place);
  while (head_ != tail_ && !SlotOf(head_).in_use) ++head_;
  return &slot.outstanding;
}

void OutstandingRequests::Free(Slot* slot) {
  DropPayload(&slot->outstanding.request);
  slot->in_use = false;
  --size_;
  if (slot->outstanding.expired) --expired_;
}

void OutstandingRequests::DropPayload(HalRequest* request) {
  if (request->payload.empty()) return;
  payload_bytes_ -= request->payload.size();
  // Gives the memory back, unlike an assignment.
  std::string().swap(request->payload);
}

void OutstandingRequests::ForgetExpiredBefore(std::uint64_t place) {
  for (std::uint64_t at = head_; expired_ != 0 && at != place; ++at) ForgetExpired(at);
}

void OutstandingRequests::ForgetExpired(std::uint64_t place) {
  Slot& slot = SlotOf(place);
  if (slot.in_use && slot.outstanding.expired) Free(&slot);
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

const HalRequest& OutstandingRequests::ExpireOldest() {
  OutstandingRequest& oldest = SlotOf(unexpired_).outstanding;
  oldest.expired = true;
  ++expired_;
  DropPayload(&oldest.request);
  return oldest.request;
}

std::vector<OutstandingRequest> OutstandingRequests::TakeAll() {
  std::vector<OutstandingRequest> taken;
  taken.reserve(size_);
  for (; head_ != tail_; ++head_) {
    Slot& slot = SlotOf(head_);
    if (std::exchange(slot.in_use, false)) taken.push_back(std::move(slot.outstanding));
  }
  size_ = 0;
  payload_bytes_ = 0;
  unexpired_ = unwritten_ = tail_;
  expired_ = 0;
  return taken;
}

}  // namespace reference
