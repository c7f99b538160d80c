#ifndef ZUSKUX_REFERENCE_SERVER_HAL_PAGES_H_
#define ZUSKUX_REFERENCE_SERVER_HAL_PAGES_H_

#include <chrono>
#include <string>

#include "reference/hal/message_fields.h"
#include "reference/server/hal_server.h"
#include "reference/web/http_server.h"

namespace reference {

/// What a HAL server serves over HTTP: its tables, its status and the metrics.
class HalPages : public HttpPages {
 public:
  /// `server` is not owned and is used on its own thread.
  HalPages(const HalServer* server, HalServerOptions options, InterfaceNames interfaces);

  void Start(HttpServer* /*server*/) override {}
  HttpAnswer Get(const HttpRequest& request) override;
  std::string MissedText(std::uint64_t /*events*/) override { return {}; }

 private:
  const HalServer* const server_;
  const HalServerOptions options_;
  const InterfaceNames interfaces_;
  const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_HAL_PAGES_H_
