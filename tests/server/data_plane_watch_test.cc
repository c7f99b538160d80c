/// When the server checks the hardware, and what it logs about it.

#include "reference/server/data_plane_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/hal/fake_data_plane.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

class RepairBudgetTest : public testing::Test {
 protected:
  // Makes repairs without a pause and returns how many begin before `limit`.
  int RepairUntil(milliseconds limit, milliseconds duration) {
    int repairs = 0;
    for (;; ++repairs) {
      now_ = std::max(now_, budget_.next());
      if (now_ >= start_ + limit || repairs == 1'000) return repairs;
      budget_.Spend(now_, now_ + duration);
      now_ += duration;
    }
  }

  const RepairBudget::Time start_ = RepairBudget::Time() + std::chrono::hours(1);
  RepairBudget::Time now_ = start_;
  RepairBudget budget_;
};

TEST_F(RepairBudgetTest, ShortRepairsAreLimitedToFiveASecondAfterTheFirstFifty) {
  EXPECT_EQ(RepairUntil(milliseconds(1), milliseconds(0)), 50);
  EXPECT_EQ(RepairUntil(seconds(10), milliseconds(0)), 49);
}

TEST_F(RepairBudgetTest, LongRepairsTakeATenthOfTheTimeAfterThirtySeconds) {
  EXPECT_EQ(RepairUntil(seconds(30), seconds(1)), 30);
  const int first = RepairUntil(seconds(100), seconds(1));
  EXPECT_EQ(RepairUntil(seconds(1'100), seconds(1)), 100) << "in 1,000 s";
  EXPECT_LE(first, 10);
}

TEST_F(RepairBudgetTest, ThirtySecondsComeBackInFiveMinutes) {
  RepairUntil(seconds(1'000), seconds(1));
  now_ = start_ + seconds(1'300);
  const int soon = RepairUntil(seconds(1'330), seconds(1));
  EXPECT_GE(soon, 28);
  EXPECT_LE(soon, 30);
}

TEST_F(RepairBudgetTest, TheCreditComesBack) {
  EXPECT_EQ(RepairUntil(milliseconds(1), milliseconds(0)), 50);
  now_ = start_ + seconds(60);
  EXPECT_EQ(RepairUntil(seconds(60) + milliseconds(1), milliseconds(0)), 50);
}

class DataPlaneWatchTest : public testing::Test {
 protected:
  DataPlaneWatchTest() {
    EXPECT_EQ(pipe(pipe_.data()), 0);
    data_plane_.set_change_fd(pipe_[0]);
  }
  ~DataPlaneWatchTest() override {
    watch_.reset();
    for (const int fd : pipe_) close(fd);
  }

  void Watch(seconds audit = seconds(0)) {
    watch_.emplace(
        &io_, &data_plane_, audit,
        [this](LogLevel, const std::string& line) { lines_.push_back(line); },
        [this](const Repair& repair) { broken_ = repair.broken; });
  }

  void Change() { EXPECT_EQ(write(pipe_[1], "x", 1), 1); }

  // Runs handlers until `done`, or for 20 s.
  bool RunUntil(const std::function<bool()>& done) {
    const auto end = steady_clock::now() + seconds(20);
    while (!done() && steady_clock::now() < end) io_.run_one_for(milliseconds(100));
    return done();
  }

  bool RunUntilRepairs(int repairs) {
    return RunUntil([&] { return data_plane_.repairs() >= repairs; });
  }

  boost::asio::io_context io_;
  std::array<int, 2> pipe_{};
  FakeDataPlane data_plane_;
  std::vector<std::string> lines_;
  // The last report.
  std::vector<HalObjectState> broken_;
  std::optional<DataPlaneWatch> watch_;
};

TEST_F(DataPlaneWatchTest, AChangeLeadsToARepair) {
  data_plane_.SetRepair({2, "zd10 missing, next hop 10 missing", {}});
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  EXPECT_THAT(lines_, ElementsAre("the hardware differed from the tables in 2 objects: "
                                  "zd10 missing, next hop 10 missing; repaired"));
  EXPECT_EQ(watch_->differences(), 2);
}

TEST_F(DataPlaneWatchTest, OneRepairIsEnoughForAllChangesBeforeIt) {
  Watch();
  Change();
  EXPECT_EQ(io_.run_one_for(seconds(20)), 1U);
  // The repair is due when the next change is noticed.
  std::this_thread::sleep_for(milliseconds(10));
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  io_.run_for(milliseconds(50));
  EXPECT_EQ(data_plane_.repairs(), 1);
}

TEST_F(DataPlaneWatchTest, LogsWhatItCannotRepair) {
  data_plane_.SetRepair({1, "zd10 missing", {"there is no device eth2", "no such device"}});
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  EXPECT_THAT(lines_,
              ElementsAre("the hardware differed from the tables in 1 object: zd10 missing; "
                          "cannot repair all: there is no device eth2"));
}

TEST_F(DataPlaneWatchTest, ReportsAfterEachCheckWhatIsBroken) {
  const HalObjectState host{HalKind::kHost, 20, kHalNoInterface, "there is no device eth2"};
  data_plane_.SetRepair({1, "zd10 missing", {"there is no device eth2"}, {host}});
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  EXPECT_THAT(broken_, ElementsAre(host));
  data_plane_.SetRepair({});
  Change();
  EXPECT_TRUE(RunUntilRepairs(2));
  EXPECT_THAT(broken_, IsEmpty());
}

// The kernel does not notify of the end of what made it refuse.
TEST_F(DataPlaneWatchTest, TriesAgainWhatItCouldNotRepair) {
  data_plane_.SetRepair({1, "zd10 missing", {"no memory"}});
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(2));
  data_plane_.SetRepair({});
  EXPECT_TRUE(RunUntilRepairs(3));
  EXPECT_THAT(data_plane_.checks(), ElementsAre("changes", "everything", "everything"));
  const int repairs = data_plane_.repairs();
  io_.run_for(milliseconds(1'500));
  EXPECT_EQ(data_plane_.repairs(), repairs);
}

TEST_F(DataPlaneWatchTest, TriesAgainWhatItCouldNotCompare) {
  data_plane_.set_unreadable(true);
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(2));
  Change();
  EXPECT_TRUE(RunUntilRepairs(3));
  EXPECT_THAT(lines_, ElementsAre("cannot compare the hardware with the tables, and tries again: "
                                  "changes too fast: Resource temporarily unavailable"));
  data_plane_.set_unreadable(false);
  data_plane_.SetRepair({1, "zd10 missing", {}});
  EXPECT_TRUE(RunUntilRepairs(4));
  EXPECT_THAT(lines_, testing::Contains("the hardware differed from the tables in 1 object: zd10 "
                                        "missing; repaired"));
}

// A check of everything would take long with many objects.
TEST_F(DataPlaneWatchTest, AChangeLeadsToACheckOfTheChangesAlone) {
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  watch_->CheckSoon();
  EXPECT_TRUE(RunUntilRepairs(2));
  Change();
  EXPECT_TRUE(RunUntilRepairs(3));
  EXPECT_THAT(data_plane_.checks(), ElementsAre("changes", "everything", "changes"));
}

// A successful repair of the changes alone would hide that the rest is still not as wanted.
TEST_F(DataPlaneWatchTest, AChangeAfterARefusalLeadsToACheckOfEverything) {
  data_plane_.SetRepair({1, "zd10 missing", {"no memory"}});
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  Change();
  EXPECT_TRUE(RunUntilRepairs(2));
  EXPECT_EQ(data_plane_.checks().at(1), "everything");
}

TEST_F(DataPlaneWatchTest, AChangeAfterAFailureLeadsToACheckOfEverything) {
  data_plane_.set_unreadable(true);
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  Change();
  EXPECT_TRUE(RunUntilRepairs(2));
  EXPECT_EQ(data_plane_.checks().at(1), "everything");
}

TEST_F(DataPlaneWatchTest, LogsNothingWhenNothingDiffers) {
  Watch();
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
  EXPECT_THAT(lines_, IsEmpty());
  EXPECT_EQ(watch_->differences(), 0);
}

TEST_F(DataPlaneWatchTest, ChangesOfOthersLeadToNothing) {
  data_plane_.set_concerned(false);
  Watch();
  Change();
  io_.run_for(milliseconds(100));
  EXPECT_EQ(data_plane_.repairs(), 0);
  data_plane_.set_concerned(true);
  Change();
  EXPECT_TRUE(RunUntilRepairs(1));
}

TEST_F(DataPlaneWatchTest, LogsALineAMinuteAtMost) {
  data_plane_.SetRepair({1, "zd10 missing", {}});
  Watch();
  for (int repair = 1; repair <= 3; ++repair) {
    Change();
    EXPECT_TRUE(RunUntilRepairs(repair));
  }
  EXPECT_EQ(lines_.size(), 1);
  EXPECT_EQ(watch_->differences(), 3);
}

TEST_F(DataPlaneWatchTest, AProgramThatKeepsChangingCostsLittle) {
  data_plane_.SetRepair({1, "zd10 missing", {}});
  Watch();
  const auto begin = steady_clock::now();
  while (steady_clock::now() < begin + seconds(1)) {
    Change();
    io_.run_one_for(milliseconds(1));
  }
  const auto elapsed = steady_clock::now() - begin;
  EXPECT_GT(data_plane_.repairs(), 1);
  EXPECT_LE(data_plane_.repairs(), 50 + elapsed / milliseconds(200) + 1);
}

TEST_F(DataPlaneWatchTest, AnAuditNeedsNoChange) {
  Watch(seconds(1));
  EXPECT_TRUE(RunUntilRepairs(2));
  EXPECT_THAT(data_plane_.checks(), testing::Each("everything"));
}

TEST_F(DataPlaneWatchTest, WithoutADescriptorOnlyTheAuditRepairs) {
  data_plane_.set_change_fd(-1);
  Watch(seconds(1));
  EXPECT_TRUE(RunUntilRepairs(1));
}

TEST_F(DataPlaneWatchTest, DoesNothingAfterItsEnd) {
  Watch();
  watch_->CheckSoon();
  // Both timers have expired by the time that the handlers run, this one first.
  boost::asio::steady_timer end(io_, steady_clock::now() - milliseconds(1));
  end.async_wait([this](const boost::system::error_code&) { watch_.reset(); });
  std::this_thread::sleep_for(milliseconds(5));
  io_.run_for(milliseconds(50));
  EXPECT_EQ(data_plane_.repairs(), 0);
}

TEST_F(DataPlaneWatchTest, LeavesTheDescriptorOpen) {
  Watch();
  watch_.reset();
  Change();
  std::array<char, 1> byte{};
  EXPECT_EQ(read(pipe_[0], byte.data(), byte.size()), 1);
}

}  // namespace
}  // namespace reference
