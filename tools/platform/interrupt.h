// The user's wish to stop.
#pragma once

#include <atomic>

namespace Veldrift {

// True from the first Ctrl-C, request to terminate or end of the terminal, after the first call;
// the default reaction, which ends the process, is off from then on. Threads: any; the flag is set
// from anywhere.
const std::atomic<bool>& InstallInterruptFlag();

}  // namespace Veldrift
