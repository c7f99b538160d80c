// The order in which the translations fill their messages. Bytes fields and lists allocate. When an
// allocation fails, the contents of the message show what came before.

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"
#include "tests/support/mapped_memory.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"

namespace dest_mng {

// What the ECMP message destroyed last held. The linker replaces its destructor with the one below.
std::string destroyed_group;  // NOLINT(cert-err58-cpp)

#define WRAP_DESTRUCTOR(variant)                               \
  void Real##variant(encapsulation::EcmpMessage*) __asm__(     \
      "__real__ZN13encapsulation11EcmpMessage" #variant "Ev"); \
  void Wrapped##variant(encapsulation::EcmpMessage*) __asm__(  \
      "__wrap__ZN13encapsulation11EcmpMessage" #variant "Ev"); \
  void Wrapped##variant(encapsulation::EcmpMessage* self) {    \
    testing_support::FailAllocation(0);                        \
    destroyed_group = self->ShortDebugString();                \
    Real##variant(self);                                       \
  }

WRAP_DESTRUCTOR(D1)
WRAP_DESTRUCTOR(D2)

#undef WRAP_DESTRUCTOR

namespace {

using ::testing::ElementsAre;
using testing_support::FailAllocation;
using testing_support::TestObject;

class TranslationOrderTest : public testing_support::HaiTest {
 protected:
  TranslationOrderTest() { testing_support::SetTrace(false); }

  /// The contents of `Message` at each failed allocation of `translate`, and at the end, without
  /// duplicates.
  template <typename Message, typename Translate>
  static std::vector<std::string> Stages(Translate translate) {
    constexpr std::size_t kMaxAllocations = 100;
    std::vector<std::string> stages;
    bool passes = false;
    for (std::size_t n = 1; !passes && n <= kMaxAllocations; ++n) {
      Message message;
      FailAllocation(n);
      try {
        translate(&message);
        passes = true;
      } catch (const std::bad_alloc&) {
      }
      FailAllocation(0);
      const std::string stage = message.ShortDebugString();
      if (stages.empty() || stages.back() != stage) stages.push_back(stage);
    }
    EXPECT_TRUE(passes);
    return stages;
  }
};

TEST_F(TranslationOrderTest, OfVlans) {
  TestObject<DbVlanObject, DestVlanMessage> vlan;
  vlan.record().set_vlan_dest_id(12);
  vlan.record().set_lim_id("aaaa");
  vlan.record().set_vrf(5);
  vlan.record().set_mtu(1500);
  vlan.record().set_source_mac("bbbbbb");
  vlan.record().add_capabilities(VLAN_CAPABILITY_ROUTED);
  vlan.object.list_attribute_name = "list";
  vlan.object.attribute_lists["list"].second.emplace_back(std::string("text"));

  EXPECT_THAT(
      Stages<encapsulation::VlanMessage>([&](encapsulation::VlanMessage* message) {
        HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(vlan.pointer(), message);
      }),
      ElementsAre(
          R"(lim_id: "" vlan_destination_id: 12)",
          R"(lim_id: "aaaa" source_mac_address: "" vlan_destination_id: 12 vrf: 5 mtu: 1500)",
          R"(lim_id: "aaaa" source_mac_address: "bbbbbb" vlan_destination_id: 12 vrf: 5 mtu: 1500)",
          R"(lim_id: "aaaa" source_mac_address: "bbbbbb" vlan_destination_id: 12 vrf: 5 mtu: 1500 )"
          "capabilities: VLAN_CAPABILITY_ROUTED",
          R"(lim_id: "aaaa" source_mac_address: "bbbbbb" vlan_destination_id: 12 vrf: 5 mtu: 1500 )"
          R"(capabilities: VLAN_CAPABILITY_ROUTED list_values: "text")"));
}

TEST_F(TranslationOrderTest, OfHosts) {
  TestObject<DbHostObject, DestHostMessage> host;
  host.record().set_dest_id(12);
  host.record().set_lim_id("aaaa");
  host.record().set_dest_mac("bbbbbb");
  host.object.attributes["vlan_dest_id"] = db::Attribute(5);
  host.record().add_flags(ACTION_DROP);

  EXPECT_THAT(Stages<encapsulation::HostMessage>([&](encapsulation::HostMessage* message) {
                HaiL3MplsEncapsulationHost().TranslateHostObjectToEncapMessage(host.pointer(),
                                                                               message);
              }),
              ElementsAre(R"(dest_id: 12 lim_id: "")", R"(dest_id: 12 lim_id: "aaaa" dest_mac: "")",
                          R"(dest_id: 12 vlan_dest_id: 5 lim_id: "aaaa" dest_mac: "bbbbbb")",
                          R"(dest_id: 12 vlan_dest_id: 5 lim_id: "aaaa" flags: ACTION_DROP )"
                          R"(dest_mac: "bbbbbb")"));
}

class MplsTranslationOrderTest : public TranslationOrderTest,
                                 public ::testing::WithParamInterface<bool> {};

TEST_P(MplsTranslationOrderTest, IsTheSame) {
  TestObject<DbMplsObject, DestMplsMessage> mpls;
  mpls.record().set_mpls_dest_id(17);
  if (GetParam()) {
    mpls.record().set_vc_label(300);
    mpls.record().set_tunnel_dest_id(5);
  } else {
    mpls.object.attributes["vlan_dest_id"] = db::Attribute(5);
  }
  mpls.record().set_lim_id("aaaa");
  mpls.record().set_dest_mac("bbbbbb");
  mpls.record().set_label(1001);
  mpls.record().set_pass_through_value(77);
  mpls.record().add_capabilities(MPLS_CAPABILITY_SWAP);
  mpls.object.attributes["host_dest_id"] = db::Attribute(0);

  EXPECT_THAT(
      Stages<encapsulation::MplsMessage>([&](encapsulation::MplsMessage* message) {
        HaiL3MplsEncapsulationMpls().TranslateMplsObjectToEncapMessage(mpls.pointer(), message);
      }),
      ElementsAre(
          R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "")",
          R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "aaaa" dest_mac: "")",
          R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "aaaa" dest_mac: "bbbbbb")",
          R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "aaaa" dest_mac: "bbbbbb" labels: 1001 )"
          "pass_through_value: 77",
          R"(dest_id: 17 vlan_tunnel_dest_id: 5 lim_id: "aaaa" dest_mac: "bbbbbb" labels: 1001 )"
          "capabilities: MPLS_CAPABILITY_SWAP flag: ACTION_DROP pass_through_value: 77"));
}

INSTANTIATE_TEST_SUITE_P(, MplsTranslationOrderTest, ::testing::Bool(), [](const auto& tested) {
  return tested.param ? "VirtualCircuit" : "OnAVlan";
});

// Only the list of members allocates.
TEST_F(TranslationOrderTest, OfEcmpGroups) {
  std::vector<std::string> stages;
  constexpr std::size_t kMaxAllocations = 20;
  bool passes = false;
  for (std::size_t n = 1; !passes && n <= kMaxAllocations; ++n) {
    destroyed_group = "none";
    const EcmpData group{7, {12}};
    FailAllocation(n);
    try {
      HaiL3MplsEncapsulationEcmp().InstallEcmp(group);
      passes = true;
    } catch (const std::bad_alloc&) {
    }
    FailAllocation(0);
    if (stages.empty() || stages.back() != destroyed_group) stages.push_back(destroyed_group);
  }

  EXPECT_TRUE(passes);
  EXPECT_THAT(stages, ElementsAre("none", "db_id: 7", "db_id: 7 members: 12"));
}

// The VRF and the MTU allocate nothing. The page that begins with the MTU is read-only, so setting
// the MTU ends the process. The VRF then tells which was set first.

const encapsulation::VlanMessage* message_at_the_fault = nullptr;

std::size_t OffsetOfMtu() {
  constexpr std::uint32_t kMtu = 0xA1B2C3D4;
  encapsulation::VlanMessage message;
  message.set_mtu(kMtu);
  const auto* const bytes = reinterpret_cast<const char*>(&message);
  std::size_t offset = 0;
  while (std::memcmp(bytes + offset, &kMtu, sizeof kMtu) != 0) ++offset;
  return offset;
}

[[noreturn]] void SetTheMtuWhereThatFaults() {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  static const testing_support::Mapping mapping(0, 2 * page);
  char* const second_page = mapping.pages() + page;
  auto* const message = new (second_page - OffsetOfMtu()) encapsulation::VlanMessage;
  message_at_the_fault = message;
  TestObject<DbVlanObject, DestVlanMessage> vlan;
  vlan.record().set_vrf(5);
  vlan.record().set_mtu(1500);
  std::signal(SIGSEGV, [](int) { _exit(message_at_the_fault->vrf() == 5 ? 0 : 1); });
  if (mprotect(second_page, page, PROT_READ) != 0) _exit(2);
  HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(vlan.pointer(), message);
  _exit(3);
}

TEST(TranslationOrderDeathTest, SetsTheVrfBeforeTheMtu) {
  ASSERT_EQ(OffsetOfMtu() % alignof(encapsulation::VlanMessage), 0U) << "no page can begin there";
  EXPECT_EXIT(SetTheMtuWhereThatFaults(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace dest_mng
