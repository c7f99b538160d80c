#include "reference/support/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace reference {
namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// Zero without a watchdog, and for one that watches another process.
std::chrono::microseconds WatchdogInterval() {
  const std::string pid = Variable("WATCHDOG_PID");
  if (!pid.empty() && pid != std::to_string(getpid())) return {};
  return std::chrono::microseconds(std::strtoll(Variable("WATCHDOG_USEC").c_str(), nullptr, 10));
}

}  // namespace

ServiceManager::ServiceManager(boost::asio::io_context* io)
    : socket_(Variable("NOTIFY_SOCKET")), interval_(WatchdogInterval()), timer_(*io) {
  if (!socket_.empty() && interval_.count() > 0) Watch();
}

// Best effort: systemd ends a service that it does not hear from.
void ServiceManager::Notify(std::string_view state) const {
  sockaddr_un address{};
  if (socket_.empty() || socket_.size() > sizeof address.sun_path) return;
  address.sun_family = AF_UNIX;
  std::copy(socket_.begin(), socket_.end(), std::begin(address.sun_path));
  // An abstract address, which begins with a zero byte.
  if (socket_.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the interface wants it.
  const auto* const target = reinterpret_cast<const sockaddr*>(&address);
  sendto(fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT, target, size);
  close(fd);
}

void ServiceManager::Watch() {
  Notify("WATCHDOG=1");
  timer_.expires_after(interval_ / 2);
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (!error) Watch();
  });
}

}  // namespace reference
