#include "platform/network_interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <memory>

namespace Veldrift {
namespace {

using AddressList = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

AddressList ReadAddresses() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) first = nullptr;
  return {first, &freeifaddrs};
}

// "Running" tells a cable that is plugged in from one that isn't.
bool IsShown(const ifaddrs& entry) {
  constexpr unsigned kConnected = IFF_UP | IFF_RUNNING;
  return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_INET &&
         (entry.ifa_flags & kConnected) == kConnected && (entry.ifa_flags & IFF_LOOPBACK) == 0;
}

std::string NameOf(const ifaddrs& entry) {
  const bool named = entry.ifa_name != nullptr && entry.ifa_name[0] != '\0';
  return named ? entry.ifa_name : "?";
}

}  // namespace

std::vector<NetworkInterfaceInfo> EnumerateInterfaces() {
  const AddressList addresses = ReadAddresses();
  std::vector<NetworkInterfaceInfo> found;
  for (const ifaddrs* entry = addresses.get(); entry != nullptr; entry = entry->ifa_next) {
    if (!IsShown(*entry)) continue;
    const auto* const internet = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
    char text[INET_ADDRSTRLEN] = "";
    if (inet_ntop(AF_INET, &internet->sin_addr, text, sizeof text) == nullptr) continue;
    found.push_back({NameOf(*entry), text});
  }
  return found;
}

}  // namespace Veldrift
