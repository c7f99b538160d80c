#include "dest_host/hai/action_flags.h"

#include "hai/table.h"

std::string_view ActionFlagLabel(ActionFlags flag) {
  static constexpr std::array<std::string_view, 3> kLabels = {"None", "Drop Packet", "To CPU"};
  return dest_mng::EntryOr(kLabels, flag, kLabels[kActionNone]);
}
