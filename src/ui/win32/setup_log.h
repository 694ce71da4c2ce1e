#pragma once

#include "support/plugin_log.h"

namespace Veldrift {

inline constexpr LogCategory kSetupLog{kLogSubsystem, "setup_dialog"};

}  // namespace Veldrift
