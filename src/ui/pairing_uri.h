// The text that a phone scans to learn which installation it is about to pair with; the phone's
// side is tools/receiver/pairing_uri_reader.h.
//
// Threads: any thread.
#pragma once

#include <string>
#include <string_view>

#include "identity/install_identity.h"

namespace Veldrift {

// `veldrift://pair?v=3&id=<id>&name=<name>`, ASCII only: both values percent-encoded, both keys
// always there. It tells no address, port, key or pairing code.
std::string BuildPairingUri(const InstallIdentity& identity);

// ASCII letters, digits and "-._~" stay as they are; every other byte of the UTF-8 text becomes "%"
// and two upper-case hexadecimal digits.
std::string PercentEncode(std::string_view text);

}  // namespace Veldrift
