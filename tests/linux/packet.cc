#include "tests/linux/packet.h"

#include <arpa/inet.h>

#include <algorithm>

namespace reference {
namespace {

constexpr std::size_t kMacSize = 6;
constexpr std::uint16_t kIpv4Type = 0x0800;
constexpr std::uint16_t kIpv6Type = 0x86DD;
constexpr std::uint16_t kTagType = 0x8100;
constexpr std::uint16_t kMplsType = 0x8847;
constexpr std::uint16_t kTagBits = 0x0FFF;

constexpr std::size_t kIpv4Size = 20;
constexpr std::size_t kIpv6Size = 40;
constexpr std::size_t kUdpSize = 8;
constexpr std::uint8_t kIcmp = 1;
constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kIcmpv6 = 58;
constexpr std::uint8_t kTtl = 64;
constexpr std::uint16_t kDoNotFragment = 0x4000;
constexpr std::uint16_t kFragmentationNeeded = 0x0304;  // The type and the code.
constexpr std::uint16_t kPacketTooBig = 0x0200;

const std::string kSenderMac("\x02\xEE\x00\x00\x00\x01", kMacSize);

void Append8(std::string* bytes, std::uint8_t value) { bytes->push_back(static_cast<char>(value)); }

void Append16(std::string* bytes, std::size_t value) {
  Append8(bytes, static_cast<std::uint8_t>(value >> 8U));
  Append8(bytes, static_cast<std::uint8_t>(value));
}

void AppendAddress(std::string* bytes, const std::string& text) {
  std::array<char, sizeof(in6_addr)> address{};
  const bool is_ipv6 = text.find(':') != std::string::npos;
  inet_pton(is_ipv6 ? AF_INET6 : AF_INET, text.c_str(), address.data());
  bytes->append(address.data(), is_ipv6 ? sizeof(in6_addr) : sizeof(in_addr));
}

std::uint16_t Checksum(const std::string& header) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 1 < header.size(); i += 2) {
    sum += static_cast<std::uint32_t>(static_cast<std::uint8_t>(header[i]) << 8U) +
           static_cast<std::uint8_t>(header[i + 1]);
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<std::uint16_t>(~sum);
}

std::string Ipv4Header(const Probe& probe) {
  std::string begin;
  Append16(&begin, 0x4500);
  Append16(&begin, probe.size);
  Append16(&begin, 0);
  Append16(&begin, kDoNotFragment);
  Append8(&begin, kTtl);
  Append8(&begin, kUdp);
  std::string addresses;
  AppendAddress(&addresses, probe.source);
  AppendAddress(&addresses, probe.destination);
  std::string header = begin;
  Append16(&header, Checksum(begin + addresses));
  return header + addresses;
}

std::string Ipv6Header(const Probe& probe) {
  std::string header;
  Append16(&header, 0x6000);
  Append16(&header, 0);
  Append16(&header, probe.size - kIpv6Size);
  Append8(&header, kUdp);
  Append8(&header, kTtl);
  AppendAddress(&header, probe.source);
  AppendAddress(&header, probe.destination);
  return header;
}

// Reads a frame from the front. Reads beyond the end return zeros and make `complete()` false.
class Reader {
 public:
  explicit Reader(const std::string& bytes) : bytes_(bytes) {}

  std::uint32_t Number(std::size_t size) {
    std::uint32_t value = 0;
    for (const char byte : Bytes(size)) {
      value = (value << 8U) | static_cast<std::uint8_t>(byte);
    }
    return value;
  }
  std::uint16_t Number16() { return static_cast<std::uint16_t>(Number(2)); }
  std::uint8_t Number8() { return static_cast<std::uint8_t>(Number(1)); }

  std::string Bytes(std::size_t size) {
    complete_ = complete_ && size <= left();
    std::string part = bytes_.substr(at_, size);
    at_ += std::min(size, left());
    part.resize(size);
    return part;
  }

  std::string Address(int family) {
    const std::string address = Bytes(family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr));
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(family, address.data(), text.data(), text.size());
  }

  std::size_t left() const { return bytes_.size() - at_; }
  bool complete() const { return complete_; }

 private:
  const std::string& bytes_;
  std::size_t at_ = 0;
  bool complete_ = true;
};

// Returns the protocol of the payload.
std::uint8_t ReadIpv4(Reader* reader, Packet* packet) {
  packet->family = Family::kIpv4;
  const std::size_t header_size = std::size_t{4} * (reader->Number8() & 0x0FU);
  reader->Number8();
  packet->size = reader->Number16();
  // Identification, fragment, time to live.
  reader->Bytes(5);
  const std::uint8_t protocol = reader->Number8();
  reader->Number16();
  packet->source = reader->Address(AF_INET);
  packet->destination = reader->Address(AF_INET);
  reader->Bytes(std::max(header_size, kIpv4Size) - kIpv4Size);
  return protocol;
}

std::uint8_t ReadIpv6(Reader* reader, Packet* packet) {
  packet->family = Family::kIpv6;
  reader->Bytes(4);
  packet->size = reader->Number16() + kIpv6Size;
  const std::uint8_t protocol = reader->Number8();
  reader->Number8();
  packet->source = reader->Address(AF_INET6);
  packet->destination = reader->Address(AF_INET6);
  return protocol;
}

void ReadPayload(std::uint8_t protocol, Reader* reader, Packet* packet) {
  if (protocol == kUdp) {
    const std::uint16_t port = reader->Number16();
    if (reader->Number16() == kProbePort) packet->port = port;
  } else if (protocol == kIcmp) {
    const bool needed = reader->Number16() == kFragmentationNeeded;
    // The checksum, and an unused field.
    reader->Bytes(4);
    if (needed) packet->path_mtu = reader->Number16();
  } else if (protocol == kIcmpv6) {
    const bool too_big = reader->Number16() == kPacketTooBig;
    reader->Number16();
    if (too_big) packet->path_mtu = reader->Number(4);
  }
}

}  // namespace

std::string FrameOf(const Probe& probe) {
  const bool is_ipv6 = probe.destination.find(':') != std::string::npos;
  std::string frame = probe.mac + kSenderMac;
  if (probe.tag.has_value()) {
    Append16(&frame, kTagType);
    Append16(&frame, *probe.tag);
  }
  Append16(&frame, is_ipv6 ? kIpv6Type : kIpv4Type);
  const std::string header = is_ipv6 ? Ipv6Header(probe) : Ipv4Header(probe);
  frame += header;
  Append16(&frame, probe.port);
  Append16(&frame, kProbePort);
  const std::size_t udp_size = probe.size - header.size();
  Append16(&frame, udp_size);
  // The UDP checksum, which only the receiver would check.
  Append16(&frame, 0);
  return frame.append(udp_size - kUdpSize, '\0');
}

std::optional<Packet> ParseFrame(const std::string& frame) {
  Reader reader(frame);
  Packet packet;
  packet.to = reader.Bytes(kMacSize);
  packet.from = reader.Bytes(kMacSize);
  std::uint16_t type = reader.Number16();
  if (type == kTagType) {
    packet.tag = reader.Number16() & kTagBits;
    type = reader.Number16();
  }
  if (type == kMplsType) {
    bool bottom = false;
    while (!bottom && reader.complete()) {
      const std::uint32_t entry = reader.Number(4);
      bottom = (entry & 0x100U) != 0;
      packet.labels.push_back({entry >> 12U, bottom});
    }
    // Below the labels, only the packet itself shows its family.
    if (!reader.complete() || reader.left() == 0) return std::nullopt;
    type = (static_cast<std::uint8_t>(frame[frame.size() - reader.left()]) >> 4U) == 6 ? kIpv6Type
                                                                                       : kIpv4Type;
  }
  if (type != kIpv4Type && type != kIpv6Type) return std::nullopt;
  const std::uint8_t protocol =
      type == kIpv4Type ? ReadIpv4(&reader, &packet) : ReadIpv6(&reader, &packet);
  ReadPayload(protocol, &reader, &packet);
  if (!reader.complete()) return std::nullopt;
  return packet;
}

}  // namespace reference
