// Where the setup window's figures come from: copies out of the session, the encoder, the identity
// and the machine. No lock of theirs is held when a function returns, and none that greets a phone
// or switches an engine is waited for.
//
// Threads: any thread.
#pragma once

#include <string>
#include <vector>

#include "identity/install_identity.h"
#include "platform/network_interfaces.h"
#include "session/shared_transport.h"
#include "ui/setup_texts.h"

namespace Veldrift {

// What changes by itself; read twice a second.
LiveState ReadLiveState(const SharedTransport& transport);

// What the user changes, and the network; read at the start and when it was changed.
struct InstallState {
  InstallIdentity identity;
  std::vector<NetworkInterfaceInfo> interfaces;
  bool discoverable = false;
  bool asyncHwEncoders = false;
};
InstallState ReadInstallState();

// The panel's three values of the network.
std::string NetworkText(PanelValue value, const InstallState& state);

}  // namespace Veldrift
