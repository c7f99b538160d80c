/// The memory that a data plane takes in addition to the HAL's tables.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_data_plane.h"
#include "reference/hal/hal_tables.h"
#include "tests/hal/messages.h"
#include "tests/support/allocations.h"

namespace reference {
namespace {

constexpr std::uint32_t kObjects = 4'000;
constexpr std::uint32_t kVlan = 1;
constexpr std::uint32_t kFirst = 1'000;
constexpr std::uint32_t kFirstGroup = 1'000'000;
// With the memory that `LinuxKernel` needs for a next hop, the sum is below 300 bytes.
constexpr std::ptrdiff_t kMaxBytes = 250;
// For a VLAN destination, `LinuxKernel` also needs a device.
constexpr std::ptrdiff_t kMaxVlanBytes = 190;
const std::string kMac("\x02\x00\x00\x00\x01\x0a", 6);

template <typename Message>
void Install(HalOperation operation, const Message& message, HalTables* tables) {
  ASSERT_EQ(tables->Apply({operation, 0, 0, message.SerializeAsString()}), kHalSuccess);
}

void InstallVlan(std::uint32_t i, HalTables* tables) {
  encapsulation::VlanMessage vlan = Vlan(kVlan + i);
  vlan.set_lim_id(std::string("\x01\0\0\0", 4));
  vlan.set_source_mac_address(kMac);
  vlan.set_vrf(1);
  Install(HalOperation::kInstallVlan, vlan, tables);
}

void InstallHost(std::uint32_t i, HalTables* tables) {
  encapsulation::HostMessage host = HostOn(kFirst + i, kVlan);
  host.set_dest_mac(kMac);
  Install(HalOperation::kInstallHost, host, tables);
}

void InstallMpls(std::uint32_t i, HalTables* tables) {
  encapsulation::MplsMessage mpls = MplsOn(kFirst + i, kVlan);
  mpls.set_dest_mac(kMac);
  Install(HalOperation::kInstallMpls, mpls, tables);
}

void InstallGroup(std::uint32_t i, HalTables* tables) {
  std::vector<std::uint32_t> members;
  for (std::uint32_t k = 0; k < 4; ++k) members.push_back(kFirst + (i + k) % kObjects);
  Install(HalOperation::kInstallEcmp, Ecmp(kFirstGroup + i, members), tables);
}

using InstallOne = void (*)(std::uint32_t i, HalTables* tables);

/// Bytes allocated for each object, by the tables and the data plane.
std::ptrdiff_t BytesEach(InstallOne install, HalTables* tables, KernelDataPlane* data_plane) {
  const std::ptrdiff_t before = testing_support::LiveBytes();
  for (std::uint32_t i = 0; i < kObjects; ++i) {
    install(i, tables);
    // A commit, as after a read of many requests.
    if (i % 500 == 0) data_plane->CommitOrLeave();
  }
  data_plane->CommitOrLeave();
  return (testing_support::LiveBytes() - before) / kObjects;
}

struct MemoryCase {
  const char* name;
  InstallOne install;
  // What the objects refer to; null for nothing but the VLAN destination.
  InstallOne install_members;
  std::ptrdiff_t max_bytes = kMaxBytes;
};

class DataPlaneMemoryTest : public testing::TestWithParam<MemoryCase> {};

TEST_P(DataPlaneMemoryTest, IsSmallForAnObject) {
  std::vector<std::ptrdiff_t> bytes;
  for (const bool with_data_plane : {false, true}) {
    KernelDataPlane data_plane(
        Translation({{1, "eth0"}}, {"eth0"}), Leftovers(),
        KernelAccess{
            [](const std::vector<KernelChange>&) { return std::vector<RefusedChange>(); }, {}, {}},
        nullptr);
    HalTables tables(kObjects, with_data_plane ? &data_plane : nullptr);
    InstallVlan(0, &tables);
    if (GetParam().install_members != nullptr) {
      BytesEach(GetParam().install_members, &tables, &data_plane);
    }
    bytes.push_back(BytesEach(GetParam().install, &tables, &data_plane));
  }
  RecordProperty("bytes", static_cast<int>(bytes[1] - bytes[0]));
  EXPECT_GT(bytes[1], bytes[0]);
  EXPECT_LE(bytes[1] - bytes[0], GetParam().max_bytes);
}

INSTANTIATE_TEST_SUITE_P(, DataPlaneMemoryTest,
                         testing::Values(MemoryCase{"Vlan", InstallVlan, nullptr, kMaxVlanBytes},
                                         MemoryCase{"Host", InstallHost, nullptr},
                                         MemoryCase{"Mpls", InstallMpls, nullptr},
                                         MemoryCase{"GroupOfFour", InstallGroup, InstallHost}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace reference
