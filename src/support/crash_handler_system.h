// The part of the crash handler that each system has its own of: posix/crash_handler.cpp and
// win32/crash_handler.cpp, chosen by CMake.
#pragma once

#include "support/plugin_log.h"

namespace Veldrift {

inline constexpr LogCategory kCrashLog{kLogSubsystem, "crash"};

// Chooses the dumps' folder and installs the handlers. Called once per process.
void InstallSystemCrashHandlers();

}  // namespace Veldrift
