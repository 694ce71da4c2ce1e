// What the pairing window says beside its fixed texts.
#pragma once

#include <string>
#include <string_view>

namespace Veldrift {

// "Enter this code on <peer's name>:", or "... on iPhone:" for a phone without a name. What could
// break the line or end it early in a stranger's name becomes a blank, and bytes that aren't UTF-8
// the replacement character.
std::string PairingPrompt(std::string_view peerName);

// One blank between the characters of the code, none at its ends: "1 2 3 4 5 6".
std::string SpacedCode(std::string_view code);

}  // namespace Veldrift
