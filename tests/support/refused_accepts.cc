#include "tests/support/refused_accepts.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace reference {
namespace {

std::atomic<bool> refusing{false};
std::atomic<int> refused{0};

}  // namespace

RefusedAccepts::RefusedAccepts() {
  refused = 0;
  refusing = true;
}

RefusedAccepts::~RefusedAccepts() { refusing = false; }

int RefusedAccepts::count() const { return refused; }

}  // namespace reference

// Replaces the system's function.
int accept(int listener, sockaddr* address, socklen_t* size) {
  if (!reference::refusing) {
    return static_cast<int>(syscall(SYS_accept, listener, address, size));
  }
  ++reference::refused;
  errno = EMFILE;
  return -1;
}
