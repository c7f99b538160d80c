#include "tests/support/quiet_host.h"

#include <zlog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

#include "app_framework/message_controller.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "zuskux/dest_controllers.h"
#include "zuskux/hai.h"

namespace testing_support {
namespace {

HostCalls calls;
int until_failure = 0;
bool trace_on = true;

void Count(int* calls_of_kind) {
  ++*calls_of_kind;
  if (until_failure != 0 && --until_failure == 0) throw HostFailure();
}

class QuietHalClient : public HalL3MplsEncapsulationClient {
 public:
  ReturnCode InitEncapsulationModule() override { return {}; }
  ReturnCode InstallVrfIngressInterface(AppMessage*) override { return Take(); }
  ReturnCode DestroyVrfIngressInterface(AppMessage*) override { return Take(); }
  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode InstallHostOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode InstallEcmpEncap(AppMessage*) override { return Take(); }
  ReturnCode DestroyEcmpEncap(AppMessage*) override { return Take(); }
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage*) override { return Take(); }
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage*) override { return Take(); }

 private:
  static ReturnCode Take() {
    Count(&calls.requests);
    return {};
  }
};

QuietHalClient client;

}  // namespace

void StartQuietHost() {
  dest_mng::Hai::GetInstance()->set_client(&client);
  FailHostCall(0);
  SetQuietTrace(true);
  ForgetHostCalls();
}

void SetQuietTrace(bool on) { trace_on = on; }

void ForgetHostCalls() { calls = {}; }

const HostCalls& CallsOfHost() { return calls; }

void FailHostCall(int n) { until_failure = n; }

}  // namespace testing_support

int zlog_level_enabled(zlog_category_t* /*category*/, const int level) {
  return level != 10 || testing_support::trace_on ? 1 : 0;
}

void zlog(zlog_category_t* /*category*/, const char* /*file*/, size_t /*filelen*/,
          const char* /*func*/, size_t /*funclen*/, long /*line*/, int /*level*/,
          const char* format, ...) {
  std::array<char, 4096> line;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  testing_support::Count(&testing_support::calls.log_lines);
}

namespace dest_mng {

#define HANDLER(controller, handler) \
  void controller::handler() { testing_support::Count(&testing_support::calls.notifications); }

HANDLER(MessageControllerVlan, CreatedDestVlanSuccess)
HANDLER(MessageControllerVlan, CreatedDestVlanError)
HANDLER(MessageControllerVlan, UpdatedDestVlanSuccess)
HANDLER(MessageControllerVlan, UpdatedDestVlanError)
HANDLER(MessageControllerVlan, DeletedDestVlanSuccess)
HANDLER(MessageControllerVlan, DeletedDestVlanError)
HANDLER(MessageControllerVlan, ReinstallDestVlan)
HANDLER(MessageControllerHost, CreatedDestHostSuccess)
HANDLER(MessageControllerHost, CreatedDestHostError)
HANDLER(MessageControllerHost, UpdatedDestHostSuccess)
HANDLER(MessageControllerHost, UpdatedDestHostError)
HANDLER(MessageControllerHost, DeletedDestHostSuccess)
HANDLER(MessageControllerHost, DeletedDestHostError)
HANDLER(MessageControllerHost, ReinstallDestHost)
HANDLER(MessageControllerEcmp, CreatedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, CreatedDestEcmpError)
HANDLER(MessageControllerEcmp, DeletedDestEcmpSuccess)
HANDLER(MessageControllerEcmp, DeletedDestEcmpError)
HANDLER(MessageControllerEcmp, ReinstallDestEcmp)
HANDLER(MessageControllerMpls, CreatedDestMplsSuccess)
HANDLER(MessageControllerMpls, CreatedDestMplsError)
HANDLER(MessageControllerMpls, UpdatedDestMplsSuccess)
HANDLER(MessageControllerMpls, UpdatedDestMplsError)
HANDLER(MessageControllerMpls, DeletedDestMplsSuccess)
HANDLER(MessageControllerMpls, DeletedDestMplsError)
HANDLER(MessageControllerMpls, ReinstallDestMpls)
HANDLER(VrfController, ReinstallVrf)

#undef HANDLER

}  // namespace dest_mng
