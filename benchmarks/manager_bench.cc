// How much memory the reference manager needs per object.
//
//     manager_bench SOCKET OBJECTS     installs a generated site in the server on SOCKET and prints
//                                      bytes per object: the growth of the process at its peak
//                                      ("peak"), and the objects alone ("records")

#include <malloc.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "benchmarks/destinations.h"
#include "reference/manager/engine/manager.h"
#include "reference/site/generate_site.h"
#include "reference/socket_client/socket_hal.h"

namespace {

// For this process, from the kernel.
std::size_t Kibibytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string name;
  std::size_t value = 0;
  while (status >> name) {
    if (name == field + ":" && status >> value) return value;
  }
  return 0;
}

std::size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::size_t RecordBytes(std::size_t objects) {
  const std::size_t before = HeapInUse();
  const bench::Destinations destinations = bench::MakeDestinations(objects);
  return HeapInUse() - before;
}

std::size_t ManagerPeak(const std::string& socket, std::size_t objects) {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
  const std::size_t before = Kibibytes("VmRSS");

  boost::asio::io_context io;
  const auto work = boost::asio::make_work_guard(io);
  reference::ManagerEvents events;
  events.finished = [&io] { io.stop(); };
  reference::Manager manager(&io, events);
  reference::SocketHalOptions options;
  options.path = socket;
  reference::SocketHal hal(options);
  manager.Apply(reference::GenerateSite(1, objects));
  manager.Start(&hal);
  io.run();
  return (Kibibytes("VmHWM") - before) * 1024;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::size_t objects = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
    if (objects == 0) {
      std::cerr << "usage: manager_bench SOCKET OBJECTS\n";
      return 2;
    }
    const std::size_t records = RecordBytes(objects);
    const std::size_t peak = ManagerPeak(argv[1], objects);
    const auto each = [objects](std::size_t bytes) {
      return static_cast<double>(bytes) / static_cast<double>(objects);
    };
    std::cout << "peak " << each(peak) << "\nrecords " << each(records) << "\n";
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "manager_bench: " << error.what() << "\n";
    return 1;
  }
}
