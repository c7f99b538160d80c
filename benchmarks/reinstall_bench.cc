// The cost of a reinstall: the HAL server is found, and everything goes through the library again.
//
//     reinstall_bench OBJECTS     prints CPU nanoseconds per object: for the library, and for its
//                                 floor, a walk over the same objects that calls an empty function

#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "benchmarks/destinations.h"
#include "benchmarks/objects.h"
#include "reference/manager/engine/adapters.h"
#include "reference/manager/engine/notification_sink.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"

namespace {

using reference::HaiObject;
using reference::HalKind;

// Small sites are reinstalled repeatedly, so that the clock can measure them.
constexpr std::size_t kLeastObjects = 200'000;

[[gnu::noinline]] void Nothing(HaiObject* destination) {
  asm volatile("" : : "r"(destination) : "memory");
}

/// A manager that reinstalls its objects on request and does nothing else.
class Walker : public reference::NotificationSink {
 public:
  explicit Walker(std::size_t objects) : destinations_(bench::MakeDestinations(objects)) {
    SetNotificationSink(this);
  }
  Walker(const Walker&) = delete;
  Walker& operator=(const Walker&) = delete;
  ~Walker() override { reference::SetNotificationSink(nullptr); }

  void OnResult(const reference::HalResult& /*result*/) override {}
  void OnReinstall(HalKind kind) override {
    for (HaiObject& destination : destinations_[static_cast<std::size_t>(kind)]) {
      reference::SendInstall(&destination);
    }
  }

  void Walk() {
    for (auto& kind : destinations_) {
      for (HaiObject& destination : kind) Nothing(&destination);
    }
  }

 private:
  bench::Destinations destinations_;
};

double CpuNanoseconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

template <typename Function>
double NanosecondsAnObject(std::size_t objects, Function reinstall) {
  reinstall();
  std::size_t done = 0;
  const double begin = CpuNanoseconds();
  for (; done < kLeastObjects; done += objects) reinstall();
  return (CpuNanoseconds() - begin) / static_cast<double>(done);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t objects = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
  if (objects == 0) {
    std::cerr << "usage: reinstall_bench OBJECTS\n";
    return 2;
  }
  dest_mng::Hai::GetInstance()->set_client(&bench::IdleClient());
  Walker walker(objects);
  std::cout << "library "
            << NanosecondsAnObject(
                   objects,
                   [] { dest_mng::HaiDestClientCallback::HalServerFoundCallback(nullptr); })
            << "\nfloor " << NanosecondsAnObject(objects, [&walker] { walker.Walk(); }) << "\n";
  return 0;
}
