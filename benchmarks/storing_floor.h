#ifndef ZUSKUX_BENCHMARKS_STORING_FLOOR_H_
#define ZUSKUX_BENCHMARKS_STORING_FLOOR_H_

#include <tsl/robin_map.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base_encap_message.pb.h"
#include "reference/hal/kinds.h"
#include "reference/support/id_hash.h"

namespace bench {

/// The least that a HAL server does for an install: parses it, makes the checks of
/// `reference::HalTables`, and stores it, by hand. One message of each kind is reused; payloads lie
/// one after the other. It has no digests, reinstalls, replacements or removals. Used by one
/// thread.
class StoringFloor {
 public:
  struct Outcome {
    reference::HalReturnCode code{};
    std::uint32_t id = 0;
    std::uint32_t secondary_id = 0;
  };

  explicit StoringFloor(std::size_t capacity) : capacity_(capacity) {}

  /// Refuses what is no install, as a bad request.
  Outcome Install(reference::HalOperation operation, std::string_view payload);

 private:
  /// Where a payload lies in `payloads_`.
  struct Place {
    std::size_t begin = 0;
    std::size_t size = 0;
  };
  using Table = tsl::robin_map<std::uint32_t, Place, reference::IdHash>;

  Outcome InstallVrf(std::string_view payload);
  Outcome InstallVlan(std::string_view payload);
  Outcome InstallHost(std::string_view payload);
  Outcome InstallMpls(std::string_view payload);
  Outcome InstallEcmp(std::string_view payload);
  // What is the same for every kind, once its own checks have passed.
  reference::HalReturnCode Store(Table* table, std::uint32_t id, std::string_view payload);

  const std::size_t capacity_;
  std::string payloads_;
  Table vrfs_;
  Table vlans_;
  Table hosts_;
  Table mpls_;
  Table ecmps_;
  encapsulation::VrfMessage vrf_;
  encapsulation::VlanMessage vlan_;
  encapsulation::HostMessage host_;
  encapsulation::MplsMessage mpls_message_;
  encapsulation::EcmpMessage ecmp_;
};

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_STORING_FLOOR_H_
