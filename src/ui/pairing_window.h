// The window that shows a phone's pairing code: ui/win32/ has it, ui/posix/ has none.
#pragma once

#include <memory>

#include "net/pairing_dialog.h"

namespace Veldrift {

// A dialog that isn't shown yet, for the handshake; null where the system has no windows, which
// leaves the code to the log. Threads: any.
std::unique_ptr<IPairingDialog> CreatePairingDialog();

}  // namespace Veldrift
