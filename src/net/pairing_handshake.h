// How a phone proves itself, first thing on every connection: by the token of an earlier pairing,
// or by the six-digit code that this machine shows.
#pragma once

#include <memory>
#include <string>

#include "net/control_connection.h"
#include "net/pairing_dialog.h"

namespace Veldrift {

// Runs the dialogue on the connection's read thread. The phone's token on success, an empty text on
// failure; the caller closes the connection then. There is no time limit: it ends when the phone
// answers, the connection dies or is ended, or the user cancels the dialog. A wrong code costs the
// connection.
//
// The connection is shared with the dialog's cancel, which may come when this function is gone.
std::string DoPairingHandshake(const std::shared_ptr<ControlConnection>& connection,
                               const PairingDialogFactory& createDialog);

}  // namespace Veldrift
