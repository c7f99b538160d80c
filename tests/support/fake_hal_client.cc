#include "tests/support/fake_hal_client.h"

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "tests/support/allocations.h"
#include "tests/support/events.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace testing_support {

FakeHalClient::~FakeHalClient() = default;

template <typename Wrapper>
FakeHalClient::ReturnCode FakeHalClient::Record(const char* operation, const char* wrapper_name,
                                                AppMessage* message) {
  EXPECT_EQ(typeid(*message), typeid(Wrapper)) << operation;
  const google::protobuf::Message* carried = message->message();
  AddEvent(std::string("hal ") + operation + " " + wrapper_name + " " +
           carried->ShortDebugString());
  if (dynamic_cast<EcmpEncapsulationMessage*>(message) == nullptr &&
      dynamic_cast<VrfEncapsulationMessage*>(message) == nullptr) {
    WatchDeletion(carried);
  }
  if (on_request) on_request(message);
  return ReturnCode{0xBAD};
}

FakeHalClient::ReturnCode FakeHalClient::InitEncapsulationModule() {
  ADD_FAILURE() << "the library initialised the HAL client";
  return ReturnCode{0xBAD};
}

#define RECORD(operation, wrapper)                                          \
  FakeHalClient::ReturnCode FakeHalClient::operation(AppMessage* message) { \
    return Record<wrapper>(#operation, #wrapper, message);                  \
  }

RECORD(InstallVrfIngressInterface, VrfEncapsulationMessage)
RECORD(DestroyVrfIngressInterface, VrfEncapsulationMessage)
RECORD(InstallVlanOutgoingEncapsulation, VlanEncapsulationMessage)
RECORD(DestroyVlanOutgoingEncapsulation, VlanEncapsulationMessage)
RECORD(ReplaceVlanOutgoingEncapsulation, VlanEncapsulationMessage)
RECORD(InstallHostOutgoingEncapsulation, HostEncapsulationMessage)
RECORD(DestroyHostOutgoingEncapsulation, HostEncapsulationMessage)
RECORD(ReplaceHostOutgoingEncapsulation, HostEncapsulationMessage)
RECORD(InstallEcmpEncap, EcmpEncapsulationMessage)
RECORD(DestroyEcmpEncap, EcmpEncapsulationMessage)
RECORD(InstallMplsUnprotectedOutgoingEncapsulation, MplsEncapsulationMessage)
RECORD(DestroyMplsUnprotectedOutgoingEncapsulation, MplsEncapsulationMessage)
RECORD(ReplaceMplsUnprotectedOutgoingEncapsulation, MplsEncapsulationMessage)

#undef RECORD

}  // namespace testing_support
