#ifndef ZUSKUX_DEST_HOST_HAI_ACTION_FLAGS_H_
#define ZUSKUX_DEST_HOST_HAI_ACTION_FLAGS_H_

#include <cstdint>
#include <string_view>

/// What happens to a packet, as renderings show it; shared by host and MPLS destinations. The fixed
/// underlying type makes any value from the wire a defined one.
enum ActionFlags : std::int32_t {
  kActionNone = 0,
  kActionDrop = 1,
  kActionToCpu = 2,
};

namespace dest_mng {

/// The text for `flag`; "None" for an unknown one.
std::string_view ActionFlagLabel(::ActionFlags flag);

}  // namespace dest_mng

#endif  // ZUSKUX_DEST_HOST_HAI_ACTION_FLAGS_H_
