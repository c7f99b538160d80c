// Renderings on a vendor's printable base, which formats every hexadecimal number. The wrappers are
// rebuilt for this program, with vendor_printable/ ahead of the platform's headers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/fake_interface_ids.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The address of the whole object, as the vendor writes it.
std::string Address(const void* object) {
  return "(this=<unsigned long " + std::to_string(reinterpret_cast<unsigned long>(object)) +
         ", 16 digits>)";
}

template <typename Wrapper, typename Message>
void ExpectVendorNumbers(const std::string& name) {
  testing_support::InterfaceIds() = {0xAB, 0xFF123456, "eth3", {}};
  auto message = std::make_unique<Message>();
  message->set_lim_id("aaaa");
  const Wrapper wrapper(std::move(message));

  EXPECT_EQ(wrapper.ToString(false), name + Address(&wrapper));
  EXPECT_THAT(wrapper.ToString(true), StartsWith(name + Address(&wrapper)));
  // The low 24 bits of the index.
  EXPECT_THAT(wrapper.ToString(true),
              HasSubstr(", lim id(name=eth3, type=<unsigned char 171, 2 digits>, "
                        "value=<unsigned int 1193046, 6 digits>)"));
}

TEST(VendorPrintableTest, WritesTheNumbersOfVlans) {
  ExpectVendorNumbers<VlanEncapsulationMessage, encapsulation::VlanMessage>(
      "VlanEncapsulationMessage");
}

TEST(VendorPrintableTest, WritesTheNumbersOfHosts) {
  ExpectVendorNumbers<HostEncapsulationMessage, encapsulation::HostMessage>(
      "HostEncapsulationMessage");
}

TEST(VendorPrintableTest, WritesTheNumbersOfMplsDestinations) {
  ExpectVendorNumbers<MplsEncapsulationMessage, encapsulation::MplsMessage>(
      "MplsEncapsulationMessage");
}

TEST(VendorPrintableTest, WritesTheAddressOfEcmpGroups) {
  const EcmpEncapsulationMessage wrapper;

  EXPECT_EQ(wrapper.ToString(false), "EcmpEncapsulationMessage" + Address(&wrapper));
}

}  // namespace
