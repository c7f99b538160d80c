#include "zuskux/dest_app_messages.h"

namespace dest_mng {

AppDestMessage::~AppDestMessage() = default;

bool AppDestMessage::Unserialize(void* /*buffer*/) { return false; }

AppDestVlanMessage::~AppDestVlanMessage() = default;

AppDestHostMessage::~AppDestHostMessage() = default;

AppDestEcmpMessage::~AppDestEcmpMessage() = default;

AppDestMplsMessage::~AppDestMplsMessage() = default;

AppVrfMessage::~AppVrfMessage() = default;

}  // namespace dest_mng
