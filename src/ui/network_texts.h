// What the setup dialog says of the machine's network interfaces. The entries come from
// EnumerateInterfaces.
#pragma once

#include <string>
#include <vector>

#include "platform/network_interfaces.h"

namespace Veldrift {

// The address of the first entry with "Ethernet" in its name, else of the first with "Wi-Fi", else
// of the first; empty without entries. Upper and lower case differ.
std::string PickPrimaryAddress(const std::vector<NetworkInterfaceInfo>& entries);

// The primary address, or "(no network)".
std::string NetworkLine(const std::vector<NetworkInterfaceInfo>& entries);

// "name: address" of all entries, three blanks between them, or "(none)".
std::string InterfaceRow(const std::vector<NetworkInterfaceInfo>& entries);

}  // namespace Veldrift
