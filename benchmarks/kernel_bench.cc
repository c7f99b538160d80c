// The cost of adding next hops to the Linux kernel: with hand-written messages, as few as possible,
// and with requests to zuskux-hal, up to their results.
//
//     kernel_bench KINDS OBJECTS ROUNDS ZUSKUX_HAL
//
// KINDS is host,group or mpls,group. Writes OBJECTS of each kind, one kind after the other; a group
// has four members of the other kind. Needs root: works in a network namespace of its own. Prints
// lines of a name and a number; each round prints all of them:
//
//     KIND/WRITER/ns      elapsed time per object
//     KIND/WRITER/cpu-ns  processor time per object
//     KIND/WRITER/bytes   resident memory per object; the simulation is a zuskux-hal without a
//                         data plane

#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base_encap_message.pb.h"
#include "benchmarks/child_process.h"
#include "benchmarks/kernel_nexthops.h"
#include "reference/data_plane/linux/linux_kernel.h"
#include "reference/hal/kinds.h"
#include "reference/record/wrapped_message.h"
#include "reference/socket_client/socket_hal.h"

namespace {

using bench::ChildProcess;
using bench::Cost;
using bench::NexthopKind;
using reference::HalKind;
using reference::LinuxKernel;
using reference::SocketHal;

using Clock = std::chrono::steady_clock;

const std::map<std::string_view, NexthopKind> kKinds = {
    {"host", NexthopKind::kHost}, {"mpls", NexthopKind::kMpls}, {"group", NexthopKind::kGroup}};
const std::string kMacBytes(bench::kMac.begin(), bench::kMac.end());

struct Options {
  std::vector<std::pair<std::string, NexthopKind>> kinds;
  std::uint32_t objects = 0;
  int rounds = 0;
  std::string server;
  // Empty for none.
  std::string zebra;
};

std::vector<NexthopKind> KindsOf(const Options& options) {
  std::vector<NexthopKind> kinds;
  for (const auto& [name, kind] : options.kinds) kinds.push_back(kind);
  return kinds;
}

// Requests, and what they take in the server.

struct Request {
  decltype(reference::OperationTraits::request) install = nullptr;
  reference::WrappedMessage wrapped;
};

template <typename Message>
Request MakeRequest(HalKind kind, const Message& message) {
  // The first operation of each kind is its install.
  const auto install = VisitKind(kind, [](auto row) { return row.kOperations[0].request; });
  return {install, reference::WrapMessage(kind, message.SerializeAsString())};
}

Request MakeVlan() {
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(bench::kVlan);
  vlan.set_lim_id(std::string("\x01\0\0\0", 4));
  return MakeRequest(HalKind::kVlan, vlan);
}

Request MakeDestination(NexthopKind kind, std::uint32_t i, std::uint32_t objects) {
  if (kind == NexthopKind::kHost) {
    encapsulation::HostMessage host;
    host.set_dest_id(bench::kFirstDestination + i);
    host.set_vlan_dest_id(bench::kVlan);
    host.set_dest_mac(kMacBytes);
    return MakeRequest(HalKind::kHost, host);
  }
  if (kind == NexthopKind::kMpls) {
    encapsulation::MplsMessage mpls;
    mpls.set_dest_id(bench::kFirstDestination + i);
    mpls.set_vlan_tunnel_dest_id(bench::kVlan);
    mpls.set_dest_mac(kMacBytes);
    mpls.add_labels(bench::LabelOf(bench::kFirstDestination + i));
    return MakeRequest(HalKind::kMpls, mpls);
  }
  encapsulation::EcmpMessage group;
  group.set_db_id(bench::kFirstGroup + i);
  for (const std::uint32_t member : bench::MembersOf(i, objects)) group.add_members(member);
  return MakeRequest(HalKind::kEcmp, group);
}

/// The server's cost for a kind, from the first request to the last result.
struct ServerCost {
  Cost cost;
  std::ptrdiff_t bytes = 0;
};

/// Sends one list of requests after the other, each when the one before has all its results. Makes
/// them within the connection's reports, so that the measurement involves no other thread.
class Installer : public reference::HalCallbackBase {
 public:
  Installer(std::vector<std::vector<Request>> lists, const ChildProcess* server)
      : lists_(std::move(lists)), server_(*server) {}

  /// Returns the cost of each list. Throws `std::runtime_error` if there were failures.
  std::vector<ServerCost> Run(const std::string& socket) {
    reference::SocketHalOptions options;
    options.path = socket;
    SocketHal hal(options);
    hal_ = &hal;
    hal.Start({this, [this] { Begin(); }, [this] { Send(); }});
    auto end = end_.get_future();
    while (end.wait_for(std::chrono::seconds(1)) != std::future_status::ready) {
      if (server_.HasEnded()) throw std::runtime_error("the server has ended");
    }
    end.get();
    return costs_;
  }

 private:
  void Begin() {
    next_ = 0;
    results_ = 0;
    begin_ = Clock::now();
    processor_ = server_.ProcessorTime();
    bytes_ = server_.ResidentBytes();
    Send();
  }

  void Send() {
    const std::vector<Request>& requests = lists_[costs_.size()];
    while (next_ < requests.size() && hal_->HasRoom()) {
      const Request& request = requests[next_++];
      (hal_->*request.install)(request.wrapped.message.get());
    }
  }

  void OnResult(reference::HalOperation /*operation*/, reference::HalReturnCode code,
                const reference::ResultIds& /*ids*/) override {
    if (code != reference::kHalSuccess && !std::exchange(failed_, true)) {
      end_.set_exception(std::make_exception_ptr(
          std::runtime_error("a request failed: " + reference::MakeErrorCode(code).message())));
    }
    if (failed_ || ++results_ < lists_[costs_.size()].size()) return;
    const auto end = Clock::now();
    costs_.push_back({{end - begin_, server_.ProcessorTime() - processor_},
                      static_cast<std::ptrdiff_t>(server_.ResidentBytes() - bytes_)});
    if (costs_.size() < lists_.size()) return Begin();
    end_.set_value();
  }

  const std::vector<std::vector<Request>> lists_;
  const ChildProcess& server_;
  SocketHal* hal_ = nullptr;
  // On the connection's thread, until `end_`:
  std::size_t next_ = 0;
  std::size_t results_ = 0;
  bool failed_ = false;
  Clock::time_point begin_;
  std::chrono::nanoseconds processor_{};
  std::size_t bytes_ = 0;
  std::vector<ServerCost> costs_;

  std::promise<void> end_;
};

/// A folder for the server's socket and site file.
class Folder {
 public:
  Folder() {
    std::string pattern = std::filesystem::temp_directory_path() / "kernel_bench.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), "cannot make a folder");
    }
    path_ = pattern;
    std::ofstream(path_ / "site") << "interface { name: \"eth0\" lim_id: 1 type: 1 ifindex: 1 }\n";
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string path() const { return path_; }
  std::string operator/(const char* file) const { return path_ / file; }

 private:
  std::filesystem::path path_;
};

std::vector<ServerCost> InstallThroughServer(const Options& options, bool with_data_plane) {
  const Folder folder;
  std::vector<std::string> command = {options.server, "--quiet",      "--socket",
                                      folder / "hal", "--table-size", "10000000"};
  if (with_data_plane) {
    for (const std::string& word : {std::string("--data-plane"), std::string("linux"),
                                    std::string("--interfaces"), folder / "site"}) {
      command.push_back(word);
    }
  }
  const ChildProcess server(command);
  std::vector<std::vector<Request>> lists;
  lists.emplace_back().push_back(MakeVlan());
  for (const NexthopKind kind : KindsOf(options)) {
    auto& list = lists.emplace_back();
    for (std::uint32_t i = 0; i < options.objects; ++i) {
      list.push_back(MakeDestination(kind, i, options.objects));
    }
  }
  std::vector<ServerCost> costs = Installer(std::move(lists), &server).Run(folder / "hal");
  // The VLAN destination's.
  costs.erase(costs.begin());
  return costs;
}

// The kernel.

void Reset() {
  // Everything of the round before goes with the device.
  if (std::system("ip link del eth0 2>/dev/null; ip link set lo up && "  // NOLINT
                  "ip link add eth0 type veth peer name far0 && ip link set eth0 up && "
                  "ip link set far0 up") != 0) {
    throw std::runtime_error("cannot make a device");
  }
}

void MakeVlanDevice() {
  LinuxKernel kernel("");
  kernel.Read();
  const std::string name = reference::DestinationDevice(bench::kVlan);
  const reference::MacvlanDevice device = {"eth0", bench::kMac, 0, "", false, ""};
  if (!kernel.Apply({reference::PutDevice{name, device, {}}}).empty()) {
    throw std::runtime_error("cannot make the device " + name);
  }
}

// `others` are the next hops of other kinds.
void CheckWritten(const Options& options, std::size_t others) {
  const std::size_t written = LinuxKernel("").Read().nexthops.size();
  if (written != options.kinds.size() * options.objects + others) {
    throw std::runtime_error("next hops are missing");
  }
}

void Print(const std::string& name, double value) {
  std::cout << name << ' ' << std::fixed << value << '\n' << std::flush;
}

void Print(const std::string& name, const Cost& cost, std::uint32_t objects) {
  Print(name + "/ns", static_cast<double>(cost.elapsed.count()) / objects);
  Print(name + "/cpu-ns", static_cast<double>(cost.processor.count()) / objects);
}

// Fewer, since it takes a hundred times as long.
std::uint32_t ZebraObjects(const Options& options) { return options.objects / 10; }

void MeasureRound(const Options& options) {
  Reset();
  MakeVlanDevice();
  const std::vector<Cost> raw = bench::WriteRaw(KindsOf(options), options.objects);
  CheckWritten(options, 0);
  Reset();
  const std::vector<ServerCost> simulation = InstallThroughServer(options, false);
  const std::vector<ServerCost> server = InstallThroughServer(options, true);
  // The VLAN destination has one too.
  CheckWritten(options, 1);
  std::vector<Cost> zebra;
  if (!options.zebra.empty()) {
    Reset();
    MakeVlanDevice();
    const Folder folder;
    zebra = bench::WriteThroughZebra(options.zebra, folder.path(), KindsOf(options),
                                     ZebraObjects(options));
  }
  for (std::size_t i = 0; i < options.kinds.size(); ++i) {
    const std::string& name = options.kinds[i].first;
    Print(name + "/raw", raw[i], options.objects);
    Print(name + "/server", server[i].cost, options.objects);
    Print(name + "/server/bytes", static_cast<double>(server[i].bytes) / options.objects);
    if (!zebra.empty()) Print(name + "/zebra", zebra[i], ZebraObjects(options));
    Print(name + "/simulation", simulation[i].cost, options.objects);
    Print(name + "/simulation/bytes", static_cast<double>(simulation[i].bytes) / options.objects);
  }
}

Options ReadOptions(const std::vector<std::string>& arguments) {
  if (arguments.size() != 4 && arguments.size() != 5) {
    throw std::runtime_error("usage: kernel_bench KINDS OBJECTS ROUNDS ZUSKUX_HAL [ZEBRA]");
  }
  Options options;
  std::istringstream names(arguments[0]);
  for (std::string name; std::getline(names, name, ',');) {
    options.kinds.emplace_back(name, kKinds.at(name));
  }
  options.objects = static_cast<std::uint32_t>(std::stoul(arguments[1]));
  options.rounds = std::stoi(arguments[2]);
  options.server = arguments[3];
  if (arguments.size() == 5) options.zebra = arguments[4];
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ReadOptions({argv + 1, argv + argc});
    if (unshare(CLONE_NEWNET) != 0) {
      throw std::system_error(errno, std::generic_category(),
                              "kernel_bench needs root, for a network namespace");
    }
    for (int round = 0; round < options.rounds; ++round) MeasureRound(options);
  } catch (const std::exception& error) {
    std::cerr << "kernel_bench: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
