// What a phone learns from the pairing URI that it has scanned.
#pragma once

#include <optional>
#include <string_view>

#include "identity/install_identity.h"

namespace Veldrift {

// The plug-in's id and name in `uri`, either of them possibly empty; nothing if the text isn't
// `veldrift://pair?v=3&id=<id>&name=<name>` with both values percent-encoded, in ASCII without
// blanks. Later plug-ins may say more: further keys in the form `&key=value` are passed over.
std::optional<InstallIdentity> ParsePairingUri(std::string_view uri);

}  // namespace Veldrift
