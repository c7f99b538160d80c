#include "benchmarks/captured_requests.h"

#include <utility>

#include "benchmarks/destinations.h"
#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/adapters.h"
#include "zuskux/hai.h"

namespace bench {
namespace {

class CapturingHal : public reference::HalConnection {
 public:
  void Start(reference::HalReports /*reports*/) override {}
  bool HasRoom() override { return true; }
  reference::HalConnectionCounters counters() const override { return {}; }
  reference::HalLatencies latencies() const override { return {}; }

  std::vector<reference::HalRequest> requests;

 protected:
  reference::HalReturnCode Submit(reference::HalRequest* request) override {
    requests.push_back(std::move(*request));
    return reference::kHalSuccess;
  }
  void SubmitBeginReinstall() override {}
  void SubmitEndReinstall() override {}
};

}  // namespace

std::vector<reference::HalRequest> CaptureRequests(std::size_t objects) {
  CapturingHal hal;
  dest_mng::Hai::GetInstance()->set_client(&hal);
  Destinations destinations = MakeDestinations(objects);
  ForEach(&destinations, [](auto* destination) { reference::SendInstall(destination); });
  dest_mng::Hai::GetInstance()->set_client(nullptr);
  return std::move(hal.requests);
}

}  // namespace bench
