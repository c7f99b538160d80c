#include "tests/linux/test_network.h"

#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <arpa/inet.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace reference {
namespace {

constexpr std::size_t kLargestFrame = 65'536;
constexpr std::size_t kMacsSize = 12;
// Holds thousands of packets.
constexpr int kReceiveBuffer = 32 << 20U;

int Checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

OwnedFd ThreadNamespace() {
  return OwnedFd(Checked(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "namespace"));
}

void Enter(const OwnedFd& network_namespace) {
  Checked(setns(network_namespace.get(), CLONE_NEWNET), "setns");
}

void MakeNamespace() {
  Checked(unshare(CLONE_NEWNET), "unshare");
  // Without IPv6, devices send nothing on their own; those that need IPv6 turn it on.
  SetSysctl("ipv6/conf/default/disable_ipv6", 1);
}

OwnedFd MemoryFile(const std::string& contents) {
  OwnedFd file(Checked(memfd_create("ip", MFD_CLOEXEC), "memfd_create"));
  Checked(static_cast<int>(pwrite(file.get(), contents.data(), contents.size(), 0)), "pwrite");
  return file;
}

std::string Contents(const OwnedFd& file) {
  struct stat about {};
  Checked(fstat(file.get(), &about), "fstat");
  std::string contents(static_cast<std::size_t>(about.st_size), '\0');
  Checked(static_cast<int>(pread(file.get(), contents.data(), contents.size(), 0)), "pread");
  return contents;
}

// Returns the processors on which the thread might run.
cpu_set_t StayOnOneProcessor() {
  cpu_set_t former;
  Checked(sched_getaffinity(0, sizeof(former), &former), "sched_getaffinity");
  const auto current = static_cast<std::size_t>(Checked(sched_getcpu(), "sched_getcpu"));
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(current, &processors);
  Checked(sched_setaffinity(0, sizeof(processors), &processors), "sched_setaffinity");
  return former;
}

}  // namespace

OwnedFd& OwnedFd::operator=(OwnedFd&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

OwnedFd::~OwnedFd() {
  if (fd_ >= 0) close(fd_);
}

PacketSocket::PacketSocket(const std::string& device)
    : socket_(Checked(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)), "socket")) {
  const int on = 1;
  Checked(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer,
                     sizeof(kReceiveBuffer)),
          "receive buffer");
  // The kernel strips the 802.1Q tag from the frame, and passes it beside the frame.
  Checked(setsockopt(socket_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)), "tags");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(device.c_str()));
  if (address.sll_ifindex == 0) throw std::system_error(errno, std::generic_category(), device);
  Checked(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
          "bind");
}

void PacketSocket::Send(const Probe& probe) {
  const std::string frame = FrameOf(probe);
  Checked(static_cast<int>(send(socket_.get(), frame.data(), frame.size(), 0)), "send");
}

std::optional<Packet> PacketSocket::Receive(int patience_ms) {
  std::string frame;
  for (;;) {
    pollfd readable{socket_.get(), POLLIN, 0};
    if (Checked(poll(&readable, 1, patience_ms), "poll") == 0) return std::nullopt;
    frame.resize(kLargestFrame);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control{};
    sockaddr_ll address{};
    iovec part{frame.data(), frame.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    frame.resize(static_cast<std::size_t>(
        Checked(static_cast<int>(recvmsg(socket_.get(), &message, 0)), "recvmsg")));
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_type == PACKET_AUXDATA) {
      tpacket_auxdata beside{};
      std::memcpy(&beside, CMSG_DATA(header), sizeof(beside));
      if ((beside.tp_status & TP_STATUS_VLAN_VALID) != 0) {
        const std::array<std::uint16_t, 2> tag = {htons(beside.tp_vlan_tpid),
                                                  htons(beside.tp_vlan_tci)};
        frame.insert(kMacsSize, reinterpret_cast<const char*>(tag.data()), sizeof(tag));
      }
    }
    if (std::optional<Packet> packet = ParseFrame(frame)) return packet;
  }
}

TestNetwork::TestNetwork()
    : original_namespace_(ThreadNamespace()), original_processors_(StayOnOneProcessor()) {
  MakeNamespace();
  const OwnedFd others = ThreadNamespace();
  MakeNamespace();
  for (const char* const family : {"all", "default"}) {
    SetSysctl(std::string("ipv4/conf/") + family + "/rp_filter", 0);
  }
  // Without this per-device setting, the kernel forwards IPv6 only if the operator turns it on for
  // all devices.
  if (!HasSysctl("ipv6/conf/all/force_forwarding")) SetSysctl("ipv6/conf/all/forwarding", 1);
  const std::string others_path =
      "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(others.get());
  std::string commands = "link set lo up\n";
  for (int port = 1; port <= kPorts; ++port) {
    const std::string number = std::to_string(port);
    commands += "link add eth" + number;
    commands += " type veth peer name out" + number;
    commands += " netns " + others_path;
    commands += "\nlink set eth" + number + " up\n";
  }
  Ip(commands);
  const OwnedFd router = ThreadNamespace();
  Enter(others);
  std::string up;
  for (int port = 1; port <= kPorts; ++port) up += "link set out" + std::to_string(port) + " up\n";
  Ip(up);
  for (int port = 1; port <= kPorts; ++port) outside_.emplace_back("out" + std::to_string(port));
  Enter(router);
}

TestNetwork::~TestNetwork() {
  setns(original_namespace_.get(), CLONE_NEWNET);
  sched_setaffinity(0, sizeof(original_processors_), &original_processors_);
}

std::string Ip(const std::string& commands, Family family) {
  const OwnedFd input = MemoryFile(commands);
  const OwnedFd output = MemoryFile("");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.get(), STDERR_FILENO);
  std::vector<std::string> words = {"ip", "-batch", "-"};
  if (family == Family::kIpv6) words.insert(words.begin() + 1, "-6");
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = 0;
  const int error = posix_spawnp(&child, "ip", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), "ip");
  int status = 0;
  Checked(waitpid(child, &status, 0), "waitpid");
  std::string text = Contents(output);
  if (status != 0) throw std::runtime_error(commands + text);
  return text;
}

bool HasSysctl(const std::string& path) { return std::ifstream("/proc/sys/net/" + path).good(); }

void SetSysctl(const std::string& path, int value) {
  std::ofstream file("/proc/sys/net/" + path);
  file << value << std::flush;
  if (!file) throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace reference
