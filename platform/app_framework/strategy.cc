#include "app_framework/strategy.h"

namespace app_strategy {

Strategy::~Strategy() = default;

}  // namespace app_strategy
