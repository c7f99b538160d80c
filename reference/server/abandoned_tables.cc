#include "reference/server/abandoned_tables.h"

#include <string>

#include "reference/hal/data_plane.h"
#include "reference/hal/request_observer.h"
#include "reference/server/session.h"

namespace reference {

AbandonedTables::AbandonedTables(boost::asio::io_context* io, ServerState* state,
                                 std::chrono::seconds keep)
    : state_(*state), keep_(keep), timer_(*io) {
  WriterLeft();
}

void AbandonedTables::WriterCame() {
  wait_.reset();
  timer_.cancel();
}

void AbandonedTables::WriterLeft() { After(keep_, &AbandonedTables::Empty); }

void AbandonedTables::After(std::chrono::seconds time, void (AbandonedTables::*next)()) {
  wait_ = std::make_shared<const bool>();
  timer_.expires_after(time);
  timer_.async_wait([this, next, wait = std::weak_ptr<const bool>(wait_)](
                        const boost::system::error_code& error) {
    if (!error && !wait.expired()) (this->*next)();
  });
}

// Works like a reinstall that names nothing.
void AbandonedTables::Empty() {
  if (RequestObserver* const observer = state_.options.observer) {
    observer->BeginReinstall();
    observer->EndReinstall();
  }
  entries_ = state_.EntryCount();
  state_.tables.BeginReinstall();
  Continue();
}

void AbandonedTables::Continue() {
  if (state_.EndReinstallInPart()) {
    state_.Log(LogLevel::kWarning, "no manager for " + std::to_string(keep_.count()) +
                                       " s: removed " + std::to_string(entries_) + " entries");
    return;
  }
  After(std::chrono::seconds(0), &AbandonedTables::Continue);
}

}  // namespace reference
