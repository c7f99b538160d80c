/// The library's adapters, called as the manager calls them.

#include "reference/manager/engine/adapters.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"
#include "tests/manager/sites.h"
#include "zuskux/hai.h"

namespace reference {
namespace {

/// Registers itself as the library's HAL client for its lifetime. Keeps the last request.
class LastRequest : public HalClientBase {
 public:
  LastRequest() { dest_mng::Hai::GetInstance()->set_client(this); }
  LastRequest(const LastRequest&) = delete;
  LastRequest& operator=(const LastRequest&) = delete;
  ~LastRequest() override { dest_mng::Hai::GetInstance()->set_client(nullptr); }

  const HalRequest& request() const { return request_; }

  ReturnCode InitEncapsulationModule() override { return {}; }

 private:
  ReturnCode OnRequest(HalOperation operation, AppMessage* wrapper) override {
    MakeRequest(operation, *wrapper, &request_);
    return {};
  }

  HalRequest request_;
};

TEST(TranslateForHalTest, ReturnsWhatAnInstallSends) {
  std::vector<HaiObject> destinations;
  destinations.push_back(MakeHaiObject(VrfEntry(1, 4000000000)));
  destinations.push_back(MakeHaiObject(VrfEntry(1, 0)));
  destinations.push_back(MakeHaiObject(VlanEntry(10)));
  destinations.push_back(MakeHaiObject(HostEntry(20, 10)));
  destinations.push_back(MakeHaiObject(TunnelEntry(30, 10, 20)));
  destinations.push_back(MakeHaiObject(CircuitEntry(40, 30, 0)));
  destinations.push_back(MakeHaiObject(EcmpEntry(50, {20, 30, 20})));
  destinations.push_back(MakeHaiObject(EcmpEntry(51, {})));
  for (HaiObject& destination : destinations) {
    const HalMessage message = TranslateForHal(destination);
    const LastRequest client;
    SendInstall(&destination);
    EXPECT_EQ(message.id, client.request().id);
    EXPECT_EQ(message.payload, client.request().payload) << client.request().id;
    EXPECT_EQ(KindOf(destination), KindOf(client.request().operation));
  }
}

TEST(TranslateForHalTest, NeedsNoClientAndSendsNothing) {
  const HaiObject vlan = MakeHaiObject(VlanEntry(10));
  const LastRequest client;
  EXPECT_EQ(TranslateForHal(vlan).id, 10U);
  EXPECT_TRUE(client.request().payload.empty());
}

}  // namespace
}  // namespace reference
