// The library as shipped, with the configured log library: the contents of the log file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"
#include "tests/system/keeping_hal_client.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_vlan.h"

namespace dest_mng {
namespace {

using ::testing::ElementsAre;

class LogFileTest : public ::testing::Test {
 protected:
  LogFileTest() : folder_(::testing::TempDir() + "zuskux_log_" + std::to_string(getpid())) {
    std::filesystem::create_directory(folder_);
    Hai::GetInstance()->set_client(&client_);
  }

  ~LogFileTest() override {
    Hai::GetInstance()->set_client(nullptr);
    g_trace = nullptr;
    zlog_fini();
    std::filesystem::remove_all(folder_);
  }

  // Starts logging at `level` and above.
  void LogFrom(const std::string& level) {
    const std::string path = folder_ + "/zlog.conf";
    std::ofstream(path) << "[levels]\nTRACE = 10\nHAL_ERROR = 12\n"
                        << "[formats]\nline = \"%V %c %F %U:%L %m%n\"\n"
                        << "[rules]\nzuskux." << level << " \"" << folder_ << "/log\"; line\n";
    ASSERT_EQ(zlog_init(path.c_str()), 0);
    g_trace = zlog_get_category("zuskux");
    ASSERT_NE(g_trace, nullptr);
  }

  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    std::ifstream file(folder_ + "/log");
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  const std::string folder_;
  KeepingHalClient client_;
};

DbHostObject HostTwelve() {
  DbHostObject host;
  auto record = std::make_unique<DestHostMessage>();
  record->set_dest_id(12);
  host.record = std::move(record);
  return host;
}

TEST_F(LogFileTest, TracesAreWrittenWithTheirPlace) {
  LogFrom("TRACE");
  auto host = HostTwelve();
  HaiL3MplsEncapsulationHost().CreateDestination(&host);
  Hai::GetInstance()->hal_encap_callback()->InstallHostOutgoingEncapsulationResCallback({}, 12);
  HaiDestClientCallback::HalServerFoundCallback(nullptr);
  EXPECT_THAT(
      Lines(),
      ElementsAre("TRACE zuskux src/dest_host/hai/hai_dest_host "
                  "TranslateHostObjectToEncapMessage:60 Host Object message: dest_id: 12",
                  "TRACE zuskux src/dest_host/hai/hai_dest_host CreateDestination:68 "
                  "[TX ===>] hai:host:Install host destination at HW",
                  "TRACE zuskux src/hai/hai_callback "
                  "InstallHostOutgoingEncapsulationResCallback:65 Entry Point",
                  "TRACE zuskux src/hai/hai_callback HalServerFoundCallback:179 Entry Point"));
}

TEST_F(LogFileTest, OnlyErrorsAreWrittenAboveTheTraceLevel) {
  LogFrom("HAL_ERROR");
  auto host = HostTwelve();
  HaiL3MplsEncapsulationHost().CreateDestination(&host);
  Hai::GetInstance()->hal_encap_callback()->InstallHostOutgoingEncapsulationResCallback({}, 12);
  EXPECT_THAT(Lines(), ElementsAre());
  EXPECT_THAT(client_.requests, ElementsAre("InstallHost dest_id: 12"));

  Hai::GetInstance()->set_client(nullptr);
  HaiL3MplsEncapsulationHost().DeleteDestination(&host);
  HaiL3MplsEncapsulationEcmp().InstallEcmp(EcmpData{7, {}});
  EXPECT_THAT(Lines(),
              ElementsAre("HAL_ERROR zuskux src/dest_host/hai/hai_dest_host DeleteDestination:90 "
                          "There is no HAL client available",
                          "HAL_ERROR zuskux src/dest_ecmp/hai/hai_dest_ecmp InstallEcmp:29 "
                          "Hai has no HalL3MplsEncapsulationClient registered!!!"));
}

}  // namespace
}  // namespace dest_mng
