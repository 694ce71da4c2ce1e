#include "platform/network_interfaces.h"

#include "platform/win32/windows_headers.h"
// The rest needs winsock2.h before it.
#include <iphlpapi.h>

#include <cstddef>

namespace Veldrift {
namespace {

constexpr ULONG kUsualBytes = 15'360;

ULONG AskForAdapters(std::vector<std::byte>& buffer, ULONG& size) {
  constexpr ULONG kFlags =
      GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  buffer.resize(size);
  return GetAdaptersAddresses(AF_INET, kFlags, nullptr,
                              reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
}

// A list in `buffer`; null if the system gives none.
const IP_ADAPTER_ADDRESSES* ReadAdapters(std::vector<std::byte>& buffer) {
  ULONG size = kUsualBytes;
  ULONG result = AskForAdapters(buffer, size);
  if (result == ERROR_BUFFER_OVERFLOW) result = AskForAdapters(buffer, size);
  return result == ERROR_SUCCESS ? reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()) : nullptr;
}

bool IsShown(const IP_ADAPTER_ADDRESSES& adapter) {
  return adapter.IfType != IF_TYPE_SOFTWARE_LOOPBACK && adapter.OperStatus == IfOperStatusUp;
}

std::string NameOf(const IP_ADAPTER_ADDRESSES& adapter) {
  const std::string name = adapter.FriendlyName == nullptr ? "" : NarrowText(adapter.FriendlyName);
  return name.empty() ? "?" : name;
}

void AppendAddresses(const IP_ADAPTER_ADDRESSES& adapter,
                     std::vector<NetworkInterfaceInfo>& found) {
  for (const auto* unicast = adapter.FirstUnicastAddress; unicast != nullptr;
       unicast = unicast->Next) {
    const sockaddr* const address = unicast->Address.lpSockaddr;
    if (address == nullptr || address->sa_family != AF_INET) continue;
    const auto* const internet = reinterpret_cast<const sockaddr_in*>(address);
    char text[INET_ADDRSTRLEN] = "";
    if (inet_ntop(AF_INET, &internet->sin_addr, text, sizeof text) == nullptr) continue;
    found.push_back({NameOf(adapter), text});
  }
}

}  // namespace

std::vector<NetworkInterfaceInfo> EnumerateInterfaces() {
  std::vector<std::byte> buffer;
  std::vector<NetworkInterfaceInfo> found;
  for (const auto* adapter = ReadAdapters(buffer); adapter != nullptr; adapter = adapter->Next) {
    if (IsShown(*adapter)) AppendAddresses(*adapter, found);
  }
  return found;
}

}  // namespace Veldrift
