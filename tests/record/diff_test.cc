#include "reference/record/diff.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

EndState EndStateAfter(const std::function<void(RecordedSession*)>& act) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  {
    RecordedSession session(path);
    act(&session);
  }
  RecordingReader recording(path);
  return ComputeEndState(ReadSteps(&recording));
}

std::string Diff(const EndState& a, const EndState& b) {
  const RecordedSchema schema(BuiltInSchema());
  const InterfaceNames interfaces;
  const DiffSide side_a{"a", &a.tables, &schema, &interfaces};
  const DiffSide side_b{"b", &b.tables, &schema, &interfaces};
  std::ostringstream out;
  WriteDiff(side_a, side_b, FindDifferences(side_a, side_b), &out);
  return out.str();
}

void InstallSome(RecordedSession* session) {
  session->Send(HalOperation::kInstallVrf, 5, Vrf(5));
  session->Send(HalOperation::kInstallVlan, 1, Vlan(1));
  session->Send(HalOperation::kInstallHost, 3, HostOn(3, 1));
}

TEST(EndState, HoldsWhatSucceeded) {
  const EndState state = EndStateAfter([](RecordedSession* session) {
    InstallSome(session);
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
    session->Send(HalOperation::kDestroyVlan, 2, Vlan(2));
    session->Send(HalOperation::kReplaceVlan, 1, Vlan(1, 9000));
    session->Send(HalOperation::kInstallHost, 4, HostOn(4, 77));
    session->Send(HalOperation::kDestroyVrf, 6, Vrf(6));
    session->Fail(HalOperation::kInstallVlan, 8, Vlan(8), kHalTableFull);
    session->recorder().Request({HalOperation::kDestroyVlan, 1, 0, Vlan(1).SerializeAsString()},
                                nullptr);
  });
  using Entries = std::map<std::uint32_t, std::string>;
  EXPECT_EQ(state.tables.Entries(HalKind::kVrf), (Entries{{5, Vrf(5).SerializeAsString()}}));
  EXPECT_EQ(state.tables.Entries(HalKind::kVlan),
            (Entries{{1, Vlan(1, 9000).SerializeAsString()}}));
  EXPECT_EQ(state.tables.Entries(HalKind::kHost), (Entries{{3, HostOn(3, 1).SerializeAsString()}}));
  EXPECT_EQ(state.not_applied, 0U);
}

TEST(EndState, FollowsReinstallsAndRestarts) {
  const EndState reinstalled = EndStateAfter([](RecordedSession* session) {
    InstallSome(session);
    session->BeginReinstall();
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1, 1400));
    session->EndReinstall();
  });
  const EndState restarted = EndStateAfter([](RecordedSession* session) {
    InstallSome(session);
    session->RestartServer();
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1, 1400));
  });
  const EndState direct = EndStateAfter([](RecordedSession* session) {
    session->Send(HalOperation::kInstallVlan, 1, Vlan(1, 1400));
  });
  EXPECT_EQ(Diff(reinstalled, direct), "differences 0\n");
  EXPECT_EQ(Diff(restarted, direct), "differences 0\n");
}

TEST(EndState, CountsWhatDoesNotFit) {
  const EndState state = EndStateAfter([](RecordedSession* session) {
    session->Fail(HalOperation::kReplaceVlan, 1, Vlan(1), kHalSuccess);
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
  });
  EXPECT_EQ(state.not_applied, 1U);
  EXPECT_TRUE(state.tables.Contains(HalKind::kVlan, 2));
}

TEST(Diff, NamesKindIdAndDifferences) {
  const EndState a = EndStateAfter([](RecordedSession* session) {
    InstallSome(session);
    session->Send(HalOperation::kInstallVlan, 10, Vlan(10));
  });
  const EndState b = EndStateAfter([](RecordedSession* session) {
    InstallSome(session);
    session->Send(HalOperation::kInstallVlan, 2, Vlan(2));
    session->Send(HalOperation::kReplaceVlan, 1, Vlan(1, 9000));
    session->Send(HalOperation::kInstallMpls, 4, MplsOn(4, 2, 99));
  });
  EXPECT_EQ(Diff(a, a), "differences 0\n");
  EXPECT_EQ(Diff(a, b),
            "vlan 1:\n"
            "  mtu: 1500 -> 9000\n"
            "vlan 2:\n"
            "  a: not installed\n"
            "  b: vlan_destination_id: 2 mtu: 1500\n"
            "vlan 10:\n"
            "  a: vlan_destination_id: 10 mtu: 1500\n"
            "  b: not installed\n"
            "mpls 4:\n"
            "  a: not installed\n"
            "  b: dest_id: 4 vlan_tunnel_dest_id: 2 labels: 99\n"
            "differences 4\n");
}

}  // namespace
}  // namespace reference
