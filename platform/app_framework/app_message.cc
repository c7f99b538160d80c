#include "app_framework/app_message.h"

AppMessage::~AppMessage() = default;
