// The translations set enumerations through the generated setters, which check each value. A schema
// that knows no value at all makes every check fail.

#include <gtest/gtest.h>

#include <string>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"

namespace dest_mng {

// The linker replaces the schema's own functions with these.
bool NoVlanCapability(int value) __asm__("__wrap__ZN13encapsulation24VlanCapabilities_IsValidEi");
bool NoVlanCapability(int /*value*/) { return false; }
bool NoActionFlag(int value) __asm__("__wrap__ZN13encapsulation19ActionFlags_IsValidEi");
bool NoActionFlag(int /*value*/) { return false; }
bool NoMplsCapability(int value) __asm__("__wrap__ZN13encapsulation24MplsCapabilities_IsValidEi");
bool NoMplsCapability(int /*value*/) { return false; }

namespace {

using testing_support::TestObject;

// Compilers print the type with or without a leading "::".
std::string Assertion(const std::string& setter, const std::string& type) {
  return "void encapsulation::" + setter + "\\((::)?encapsulation::" + type +
         "\\): Assertion `::encapsulation::" + type + "_IsValid\\(value\\)' failed";
}

class EnumerationSettersDeathTest : public testing_support::HaiTest {
 protected:
  EnumerationSettersDeathTest() { testing_support::SetTrace(false); }
};

TEST_F(EnumerationSettersDeathTest, CheckTheCapabilitiesOfVlans) {
  TestObject<DbVlanObject, DestVlanMessage> vlan;
  vlan.record().add_capabilities(VLAN_CAPABILITY_ROUTED);

  encapsulation::VlanMessage message;
  EXPECT_DEATH(
      HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(vlan.pointer(), &message),
      Assertion("VlanMessage::_internal_add_capabilities", "VlanCapabilities"));
}

TEST_F(EnumerationSettersDeathTest, CheckTheFlagsOfHosts) {
  TestObject<DbHostObject, DestHostMessage> host;
  host.record().add_flags(ACTION_DROP);

  encapsulation::HostMessage message;
  EXPECT_DEATH(
      HaiL3MplsEncapsulationHost().TranslateHostObjectToEncapMessage(host.pointer(), &message),
      Assertion("HostMessage::_internal_add_flags", "ActionFlags"));
}

TEST_F(EnumerationSettersDeathTest, CheckTheCapabilitiesOfMplsDestinations) {
  TestObject<DbMplsObject, DestMplsMessage> mpls;
  mpls.record().add_capabilities(MPLS_CAPABILITY_SWAP);
  mpls.object.attributes["host_dest_id"] = db::Attribute(1);

  encapsulation::MplsMessage message;
  EXPECT_DEATH(
      HaiL3MplsEncapsulationMpls().TranslateMplsObjectToEncapMessage(mpls.pointer(), &message),
      Assertion("MplsMessage::_internal_add_capabilities", "MplsCapabilities"));
}

TEST_F(EnumerationSettersDeathTest, CheckTheDropFlagOfMplsDestinations) {
  TestObject<DbMplsObject, DestMplsMessage> mpls;
  mpls.object.attributes["host_dest_id"] = db::Attribute(0);

  encapsulation::MplsMessage message;
  EXPECT_DEATH(
      HaiL3MplsEncapsulationMpls().TranslateMplsObjectToEncapMessage(mpls.pointer(), &message),
      Assertion("MplsMessage::_internal_set_flag", "ActionFlags"));
}

}  // namespace
}  // namespace dest_mng
