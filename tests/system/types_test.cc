// Types that cross the border between the shared library and its host: the exceptions that a host
// catches, and the messages that a HAL client casts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/variant/get.hpp>
#include <memory>
#include <string>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_mng.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "tests/system/keeping_hal_client.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;

// Casts each message down to its class, and across to the printable base.
class CastingHalClient : public KeepingHalClient {
 public:
  std::vector<std::string> casts;

  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* message) override {
    return Cast<VlanEncapsulationMessage>(message, "VLAN");
  }
  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* message) override {
    return Cast<HostEncapsulationMessage>(message, "host");
  }
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* message) override {
    return Cast<MplsEncapsulationMessage>(message, "MPLS");
  }
  ReturnCode InstallEcmpEncap(AppMessage* message) override {
    return Cast<EcmpEncapsulationMessage>(message, "ECMP");
  }
  ReturnCode InstallVrfIngressInterface(AppMessage* message) override {
    return Cast<VrfEncapsulationMessage>(message, "VRF");
  }

 private:
  template <typename Wrapper>
  ReturnCode Cast(AppMessage* message, const char* kind) {
    const auto* const wrapper = dynamic_cast<Wrapper*>(message);
    const auto* const printable = dynamic_cast<HalL3MplsEncapsulationPrintable*>(message);
    const bool is_both = wrapper != nullptr && printable == wrapper;
    casts.push_back(std::string(kind) + (is_both ? "" : " is of another type"));
    return ReturnCode{};
  }
};

class TypesTest : public ::testing::Test {
 protected:
  TypesTest() { Hai::GetInstance()->set_client(&client_); }
  ~TypesTest() override { Hai::GetInstance()->set_client(nullptr); }

  CastingHalClient client_;
};

template <typename Object, typename Record>
Object Empty() {
  Object object;
  object.record = std::make_unique<Record>();
  return object;
}

TEST_F(TypesTest, AClientCanCastItsMessages) {
  auto vlan = Empty<DbVlanObject, DestVlanMessage>();
  auto host = Empty<DbHostObject, DestHostMessage>();
  auto mpls = Empty<DbMplsObject, DestMplsMessage>();
  HaiL3MplsEncapsulationVlan().CreateDestination(&vlan);
  HaiL3MplsEncapsulationHost().CreateDestination(&host);
  HaiL3MplsEncapsulationMpls().CreateDestination(&mpls);
  HaiL3MplsEncapsulationEcmp().InstallEcmp({7, {}});
  HaiL3MplsEncapsulationVrf().InstallVrf({7, 1});

  EXPECT_THAT(client_.casts, ElementsAre("VLAN", "host", "MPLS", "ECMP", "VRF"));
}

TEST_F(TypesTest, AHostCanCatchABadGet) {
  auto vlan = Empty<DbVlanObject, DestVlanMessage>();
  vlan.attribute_lists[vlan.list_attribute_name].second.emplace_back(7);
  auto mpls = Empty<DbMplsObject, DestMplsMessage>();
  mpls.attributes["host_dest_id"] = db::Attribute(std::string("7"));

  EXPECT_THROW(HaiL3MplsEncapsulationVlan().CreateDestination(&vlan), boost::bad_get);
  EXPECT_THROW(HaiL3MplsEncapsulationMpls().CreateDestination(&mpls), boost::bad_get);
  EXPECT_THAT(client_.casts, ElementsAre());
}

}  // namespace
}  // namespace dest_mng
