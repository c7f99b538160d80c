#include "dest_host/hai/action_flags.h"

#include "hai/table.h"

namespace dest_mng {

std::string_view ActionFlagLabel(::ActionFlags flag) {
  static constexpr std::array<std::string_view, 3> kLabels = {"None", "Drop Packet", "To CPU"};
  return EntryOr(kLabels, flag, kLabels[kActionNone]);
}

}  // namespace dest_mng
