#include "reference/manager/hal_dump.h"

#include <array>
#include <chrono>
#include <memory>
#include <thread>

#include "base_encap_message.pb.h"
#include "zuskux/ecmp_encapsulation_message.h"

namespace reference {
namespace {

template <typename Message>
std::unique_ptr<google::protobuf::Message> Make() {
  return std::make_unique<Message>();
}

using Maker = std::unique_ptr<google::protobuf::Message> (*)();
constexpr std::array<Maker, kHalKinds> kMakers = {
    Make<encapsulation::VrfMessage>, Make<encapsulation::VlanMessage>,
    Make<encapsulation::HostMessage>, Make<encapsulation::EcmpMessage>,
    Make<encapsulation::MplsMessage>};

void Pause() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

}  // namespace

// A request that the HAL refuses without changing anything, but whose result comes after all that
// was sent before.
void WaitUntilApplied(EmbeddedHal* hal) {
  while (!hal->HasRoom()) Pause();
  const std::uint64_t results = hal->counters().results;
  EcmpEncapsulationMessage without_id;
  hal->InstallEcmpEncap(&without_id);
  while (hal->counters().results == results) {
    Pause();
  }
}

void DumpTables(const HalTables& tables, std::ostream* out) {
  for (std::size_t i = 0; i < kHalKinds; ++i) {
    const auto kind = static_cast<HalKind>(i);
    const auto message = kMakers.at(i)();
    for (const auto& [id, payload] : tables.Entries(kind)) {
      message->ParseFromString(payload);
      *out << HalKindName(kind) << ':' << id << ' ' << message->ShortDebugString() << '\n';
    }
  }
}

}  // namespace reference
