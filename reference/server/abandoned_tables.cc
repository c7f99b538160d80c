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

void AbandonedTables::WriterCame() { timer_.cancel(); }

void AbandonedTables::WriterLeft() {
  timer_.expires_after(keep_);
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (!error && state_.writer == 0) Empty();
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
  timer_.expires_after(std::chrono::seconds(0));
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (!error && state_.writer == 0) Continue();
  });
}

}  // namespace reference
