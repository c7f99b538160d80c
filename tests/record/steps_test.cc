#include "reference/record/steps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

using ::testing::ElementsAre;

std::vector<Step> StepsOf(const std::vector<record::Entry>& entries) {
  const std::string bytes = RecordingBytes(TestHeader(), entries);
  RecordingReader recording = ReaderOf(bytes);
  return ReadSteps(&recording);
}

std::string Name(const Step& step) {
  switch (step.kind) {
    case Step::Kind::kServerFound:
      return "found";
    case Step::Kind::kBeginReinstall:
      return "begin";
    case Step::Kind::kEndReinstall:
      return "end";
    case Step::Kind::kRequest:
      break;
  }
  const std::string code =
      step.code ? std::to_string(static_cast<std::uint32_t>(*step.code)) : "none";
  return "#" + std::to_string(step.number) + "=" + code;
}

std::vector<std::string> Names(const std::vector<record::Entry>& entries) {
  std::vector<std::string> names;
  for (const Step& step : StepsOf(entries)) names.push_back(Name(step));
  return names;
}

record::Entry Install(std::uint64_t number) {
  return RequestEntry(number, HalOperation::kInstallVlan, Vlan(1), 1);
}

record::Entry Installed(std::uint64_t number, HalReturnCode code = kHalSuccess) {
  return ResultEntry(number, HalOperation::kInstallVlan, 1, code);
}

TEST(ReadSteps, KeepsTheContentsOfARequest) {
  record::Entry request = RequestEntry(4, HalOperation::kReplaceMpls, MplsOn(17, 5), 17);
  request.mutable_request()->set_secondary_id(99);
  record::Entry omitted = RequestEntry(5, HalOperation::kReplaceMpls, encapsulation::MplsMessage());
  omitted.mutable_request()->set_omitted_payload_bytes(1);
  const auto steps = StepsOf({request, omitted});
  ASSERT_EQ(steps.size(), 2U);
  EXPECT_EQ(steps[0].number, 4U);
  EXPECT_EQ(steps[0].request.operation, HalOperation::kReplaceMpls);
  EXPECT_EQ(steps[0].request.id, 17U);
  EXPECT_EQ(steps[0].request.secondary_id, 99U);
  EXPECT_EQ(steps[0].request.payload, MplsOn(17, 5).SerializeAsString());
  EXPECT_FALSE(steps[0].payload_omitted);
  EXPECT_TRUE(steps[1].payload_omitted);
}

TEST(ReadSteps, FollowTheOrderOfTheRequests) {
  record::Entry begin;
  begin.mutable_begin_reinstall();
  record::Entry end;
  end.mutable_end_reinstall();
  EXPECT_THAT(Names({ServerFoundEntry(), begin, Install(1), Install(2), end, EventEntry("event"),
                     Install(3), Installed(2, kHalExists), Installed(1)}),
              ElementsAre("found", "begin", "#1=0", "#2=3", "end", "#3=none"));
}

TEST(ReadSteps, PutARequestBehindTheServerThatAnsweredIt) {
  EXPECT_THAT(
      Names({ServerFoundEntry(), Install(1), Install(2), Install(3), Installed(1, kHalServerLost),
             Install(4), ServerFoundEntry(), Install(5), Installed(3), Installed(4), Installed(5)}),
      ElementsAre("found", "#1=100", "#2=none", "found", "#3=0", "#4=0", "#5=0"));
}

TEST(ReadSteps, RefuseAResultWithoutARequest) {
  const std::string before = RecordingBytes(TestHeader(), {Install(1)});
  const std::string offset = std::to_string(before.size());
  EXPECT_EQ(ErrorOf([] {
              StepsOf({Install(1), Installed(2)});
            }),
            "test: byte " + offset +
                ": a result of request #2, which does not precede it; the part before it is valid: "
                "head -c " +
                offset + " extracts it");
}

}  // namespace
}  // namespace reference
