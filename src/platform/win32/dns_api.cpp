#include "platform/win32/dns_api.h"

namespace Veldrift {
namespace {

template <typename Function>
bool Find(HMODULE library, const char* name, Function& function, std::string& error) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  if (function == nullptr) error = std::string("dnsapi.dll has no ") + name;
  return function != nullptr;
}

}  // namespace

std::optional<DnsApi> FindDnsApi(std::string& error) {
  const HMODULE library = LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr) {
    error = "dnsapi.dll: " + SystemMessage(GetLastError());
    return std::nullopt;
  }
  DnsApi api;
  const bool complete =
      Find(library, "DnsServiceConstructInstance", api.constructInstance, error) &&
      Find(library, "DnsServiceFreeInstance", api.freeInstance, error) &&
      Find(library, "DnsServiceRegister", api.registerService, error) &&
      Find(library, "DnsServiceDeRegister", api.deregisterService, error) &&
      Find(library, "DnsServiceBrowse", api.browse, error) &&
      Find(library, "DnsServiceBrowseCancel", api.browseCancel, error) &&
      Find(library, "DnsFree", api.free, error);
  if (!complete) return std::nullopt;
  return api;
}

}  // namespace Veldrift
