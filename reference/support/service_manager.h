#ifndef ZUSKUX_REFERENCE_SUPPORT_SERVICE_MANAGER_H_
#define ZUSKUX_REFERENCE_SUPPORT_SERVICE_MANAGER_H_

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <string>
#include <string_view>

namespace reference {

/// Tells systemd, as sd_notify(3) does, that the program is ready, and that the thread of its
/// `io_context` still works. Without the variable NOTIFY_SOCKET in the environment, that is without
/// systemd, every operation is a no-op. Used on one thread.
class ServiceManager {
 public:
  /// `io` is not owned. Watches it from now on, at half the interval in WATCHDOG_USEC.
  explicit ServiceManager(boost::asio::io_context* io);
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;
  ~ServiceManager() = default;

  void Ready() const { Notify("READY=1"); }

 private:
  void Notify(std::string_view state) const;
  void Watch();

  const std::string socket_;
  const std::chrono::microseconds interval_;
  boost::asio::steady_timer timer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SUPPORT_SERVICE_MANAGER_H_
