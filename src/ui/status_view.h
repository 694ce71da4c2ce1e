// The setup window as plain text, for people and systems without windows.
//
// Threads: any thread.
#pragma once

#include <string>
#include <vector>

#include "identity/trusted_peers.h"
#include "ui/setup_data.h"

namespace Veldrift {

// Lines that end in "\n": the device, the trusted phones and all of the panel, in the window's own
// order and words. What strangers supply can neither begin a line nor move a terminal's cursor.
std::string StatusView(const InstallState& install, const LiveState& live,
                       const std::vector<TrustedPeer>& peers);

}  // namespace Veldrift
