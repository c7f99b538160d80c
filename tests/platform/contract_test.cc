// The promises of the platform's headers, checked for each implementation in the tree: the
// stand-ins, the fakes of the unit tests and the skeleton of a vendor's platform. The build defines
// ZUSKUX_CONTRACT, the name of the suite.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "app_framework/strategy.h"
#include "base_encap_message.pb.h"
#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

namespace {

class CountedMessage : public AppMessage {
 public:
  CountedMessage(google::protobuf::Message* message, int* destroyed)
      : AppMessage(message), destroyed_(destroyed) {}
  ~CountedMessage() override { ++*destroyed_; }

  bool Unserialize(void* /*buffer*/) override { return false; }

 private:
  int* destroyed_;
};

class CountingStrategy : public app_strategy::Strategy {
 public:
  void Execute() override { ++executed; }

  int executed = 0;
};

TEST(ZUSKUX_CONTRACT, AnAppMessageLeavesTheCarriedMessageAlone) {
  encapsulation::VrfMessage carried;
  carried.set_vrf_id(7);
  int destroyed = 0;
  { const CountedMessage message(&carried, &destroyed); }

  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(carried.vrf_id(), 7U);
}

TEST(ZUSKUX_CONTRACT, AControllerOwnsItsMessage) {
  int destroyed = 0;
  {
    auto* const message = new CountedMessage(nullptr, &destroyed);
    const msg_ctrl::MessageController controller(message);
    EXPECT_EQ(controller.message(), message);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(ZUSKUX_CONTRACT, AControllerExecutesTheAttachedStrategy) {
  int destroyed = 0;
  msg_ctrl::MessageController controller(new CountedMessage(nullptr, &destroyed));
  EXPECT_EQ(controller.strategy(), nullptr);
  controller.DoStrategy();

  CountingStrategy strategy;
  controller.set_strategy(&strategy);
  EXPECT_EQ(controller.strategy(), &strategy);
  controller.DoStrategy();
  EXPECT_EQ(strategy.executed, 1);

  controller.set_strategy(nullptr);
  controller.DoStrategy();
  EXPECT_EQ(strategy.executed, 1);
}

TEST(ZUSKUX_CONTRACT, AMacAddressIsSixLowerCasePairs) {
  const std::array<std::uint8_t, 6> bytes = {0x02, 0x00, 0xAB, 0x7F, 0x01, 0xFF};

  EXPECT_EQ(nettypes::MACAddr(bytes.data()).to_string(), "02:00:ab:7f:01:ff");
}

TEST(ZUSKUX_CONTRACT, AnUnknownInterfaceHasNoTypeAndNoName) {
  std::uint8_t type = 0xAA;
  std::array<char, 64> name = {};

  EXPECT_EQ(limid_to_type(8, &type), -1);
  EXPECT_EQ(limid_to_intfname(8, name.data(), name.size(), 0), -1);
  EXPECT_EQ(type, 0xAA);
  EXPECT_STREQ(name.data(), "");
}

TEST(ZUSKUX_CONTRACT, TheIndexOfAnUnknownInterfaceIsWritten) {
  std::uint32_t ifindex = 0xAAAAAAAA;

  EXPECT_EQ(limid_to_ifindex(8, &ifindex), -1);
  EXPECT_EQ(ifindex, 0U);
}

}  // namespace
