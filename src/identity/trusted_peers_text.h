// The text form of the list of trusted phones.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "identity/trusted_peers.h"

namespace Veldrift {

// Takes whatever objects it finds, in order: text around them is ignored, and so is an object that
// the text's end cuts off. An object without an id or a token is skipped.
std::vector<TrustedPeer> ParseTrustedPeers(std::string_view text);

// The array on one line, with a line feed at its end.
std::string FormatTrustedPeers(const std::vector<TrustedPeer>& peers);

}  // namespace Veldrift
