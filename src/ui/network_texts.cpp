#include "ui/network_texts.h"

#include <algorithm>

namespace Veldrift {

std::string PickPrimaryAddress(const std::vector<NetworkInterfaceInfo>& entries) {
  for (const char* kind : {"Ethernet", "Wi-Fi"}) {
    const auto found = std::find_if(entries.begin(), entries.end(), [kind](const auto& entry) {
      return entry.name.find(kind) != std::string::npos;
    });
    if (found != entries.end()) return found->address;
  }
  return entries.empty() ? "" : entries.front().address;
}

std::string NetworkLine(const std::vector<NetworkInterfaceInfo>& entries) {
  return entries.empty() ? "(no network)" : PickPrimaryAddress(entries);
}

std::string InterfaceRow(const std::vector<NetworkInterfaceInfo>& entries) {
  if (entries.empty()) return "(none)";
  std::string row;
  for (const NetworkInterfaceInfo& entry : entries) {
    if (!row.empty()) row += "   ";
    row += entry.name + ": " + entry.address;
  }
  return row;
}

}  // namespace Veldrift
