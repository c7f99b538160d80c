// What the reference manager takes for the objects of a generated site.
//
//     manager_bench memory SOCKET OBJECTS    installs them in the server on SOCKET. Prints bytes
//     per
//                                            object: the growth of the process at its peak ("peak")
//                                            and afterwards ("held"), the site ("site"), the
//                                            objects' records ("records"); and the seconds
//                                            ("seconds")
//     manager_bench install OBJECTS          installs them in an embedded HAL. Prints nanoseconds
//                                            per object ("install-ns"), and microseconds for a
//                                            change of one object, from the change to its result
//                                            ("change-us")
//     manager_bench read FILE                reads a site file; prints nanoseconds per object
//                                            ("read-ns")

#include <malloc.h>

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <ratio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "benchmarks/destinations.h"
#include "reference/hal/embedded_hal.h"
#include "reference/manager/engine/manager.h"
#include "reference/site/generate_site.h"
#include "reference/site/site_reader.h"
#include "reference/socket_client/socket_hal.h"

namespace {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;
using Microseconds = std::chrono::duration<double, std::micro>;
using Seconds = std::chrono::duration<double>;
using reference::Site;

constexpr std::uint32_t kSeed = 1;
// Changes are measured that often, or for that long.
constexpr std::size_t kChanges = 101;
constexpr std::chrono::seconds kChangeTime{5};
constexpr std::size_t kTableSize = 10'000'000;

// For this process, from the kernel.
std::size_t Bytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string name;
  std::size_t kibibytes = 0;
  while (status >> name) {
    if (name == field + ":" && status >> kibibytes) return kibibytes * 1024;
  }
  return 0;
}

std::size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// How much the heap holds of what `make` returns.
template <typename Make>
std::size_t HeapBytes(const Make& make) {
  const std::size_t before = HeapInUse();
  const auto made = make();
  return HeapInUse() - before;
}

/// A manager on this thread.
class RunningManager {
 public:
  reference::Manager* manager() { return &manager_; }

  /// Runs until the manager has finished.
  void Finish() {
    io_.restart();
    io_.run();
    if (!manager_.settled()) throw std::runtime_error("not everything was installed");
  }

 private:
  static reference::ManagerEvents Events(boost::asio::io_context* io) {
    reference::ManagerEvents events;
    events.finished = [io] { io->stop(); };
    return events;
  }

  boost::asio::io_context io_;
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_ =
      boost::asio::make_work_guard(io_);
  reference::Manager manager_{&io_, Events(&io_)};
};

void PrintBytes(std::string_view name, std::size_t bytes, std::size_t objects) {
  std::cout << name << ' ' << static_cast<double>(bytes) / static_cast<double>(objects) << '\n';
}

double ProcessorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void MeasureRecords(std::size_t objects) {
  PrintBytes("records", HeapBytes([objects] { return bench::MakeDestinations(objects); }), objects);
  PrintBytes("site", HeapBytes([objects] { return reference::GenerateSite(kSeed, objects); }),
             objects);
}

void MeasureMemory(const std::string& socket, std::size_t objects) {
  const std::size_t before = Bytes("VmRSS");
  const std::size_t heap_before = HeapInUse();
  RunningManager running;
  reference::SocketHalOptions options;
  options.path = socket;
  reference::SocketHal hal(options);
  Site site = reference::GenerateSite(kSeed, objects);
  const Clock::time_point begin = Clock::now();
  const double spent = ProcessorSeconds();
  running.manager()->Apply(std::move(site));
  running.manager()->Start(&hal);
  running.Finish();
  std::cout << "seconds " << Seconds(Clock::now() - begin).count() << '\n';
  std::cout << "processor-seconds " << ProcessorSeconds() - spent << '\n';
  PrintBytes("peak", Bytes("VmHWM") - before, objects);
  PrintBytes("held", HeapInUse() - heap_before, objects);
}

/// The median time for the change of an object, which the manager need not look for: `change` has a
/// host, whose MAC address changes each time.
Microseconds MeasureChange(RunningManager* running, reference::SiteDifference change) {
  std::vector<Microseconds> times;
  const Clock::time_point end = Clock::now() + kChangeTime;
  while (times.size() < kChanges && (times.empty() || Clock::now() < end)) {
    change.changed.hosts.at(0).mac.emplace().back() = static_cast<std::uint8_t>(times.size() + 1);
    reference::SiteDifference difference = change;
    const Clock::time_point begin = Clock::now();
    running->manager()->Apply(std::move(difference));
    running->Finish();
    times.emplace_back(Clock::now() - begin);
  }
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

void MeasureInstall(std::size_t objects) {
  Site site = reference::GenerateSite(kSeed, objects);
  reference::SiteDifference change;
  change.present = objects;
  change.changed.interfaces = site.interfaces;
  change.changed.hosts = {site.hosts.at(0)};
  RunningManager running;
  reference::EmbeddedHalOptions options;
  options.table_capacity = kTableSize;
  reference::EmbeddedHal hal(options);
  const Clock::time_point begin = Clock::now();
  running.manager()->Apply(std::move(site));
  running.manager()->Start(&hal);
  running.Finish();
  const Nanoseconds time = Clock::now() - begin;
  std::cout << "install-ns " << time.count() / static_cast<double>(objects) << '\n';
  std::cout << "change-us " << MeasureChange(&running, std::move(change)).count() << '\n';
}

void MeasureReading(const std::string& path) {
  const Clock::time_point begin = Clock::now();
  const auto read = reference::ReadSiteFile(path);
  const Nanoseconds time = Clock::now() - begin;
  const auto objects = static_cast<double>(CountObjects(std::get<Site>(read)));
  std::cout << "read-ns " << time.count() / objects << '\n';
}

std::size_t Number(const char* text) {
  const std::size_t number = std::strtoul(text, nullptr, 10);
  if (number == 0) throw std::runtime_error("the number of objects must be at least 1");
  return number;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "records" && argc == 3) {
      MeasureRecords(Number(argv[2]));
    } else if (what == "memory" && argc == 4) {
      MeasureMemory(argv[2], Number(argv[3]));
    } else if (what == "install" && argc == 3) {
      MeasureInstall(Number(argv[2]));
    } else if (what == "read" && argc == 3) {
      MeasureReading(argv[2]);
    } else {
      std::cerr << "usage: manager_bench records OBJECTS | memory SOCKET OBJECTS | install OBJECTS "
                   "| read FILE\n";
      return 2;
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "manager_bench: " << error.what() << "\n";
    return 1;
  }
}
