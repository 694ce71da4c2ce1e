// The machine's network interfaces, for showing.
// Real: platform/posix/, platform/win32/.
#pragma once

#include <string>
#include <vector>

namespace Veldrift {

// One IPv4 address; an interface with two gives two entries.
struct NetworkInterfaceInfo {
  std::string name;     // as the user knows the interface, UTF-8; "?" if it has none
  std::string address;  // "192.0.2.1"
};

// What is connected, without loopback, in the system's order of interfaces and addresses; empty if
// there is nothing or the system doesn't tell. Threads: any thread.
std::vector<NetworkInterfaceInfo> EnumerateInterfaces();

}  // namespace Veldrift
