// The system's calls for DNS-SD, as a table: Windows 10 and later have them, so they are looked up
// by name when they are needed, and a test supplies a table of its own.
#pragma once

#include <optional>
#include <string>

#include "platform/win32/windows_headers.h"
// Needs windows.h before it.
#include <windns.h>

namespace Veldrift {

// Plain pointers: whoever may be called back late keeps a copy.
struct DnsApi {
  decltype(&DnsServiceConstructInstance) constructInstance = nullptr;
  decltype(&DnsServiceFreeInstance) freeInstance = nullptr;
  decltype(&DnsServiceRegister) registerService = nullptr;
  decltype(&DnsServiceDeRegister) deregisterService = nullptr;
  decltype(&DnsServiceBrowse) browse = nullptr;
  decltype(&DnsServiceBrowseCancel) browseCancel = nullptr;
  decltype(&DnsFree) free = nullptr;
};

// The system's; its library stays loaded, since callbacks can come at any time. Nothing if this
// system lacks one of them, with the reason in `error`.
std::optional<DnsApi> FindDnsApi(std::string& error);

}  // namespace Veldrift
