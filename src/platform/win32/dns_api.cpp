#include "platform/win32/dns_api.h"

#include "platform/win32/system_library.h"

namespace Veldrift {

std::optional<DnsApi> FindDnsApi(std::string& error) {
  SystemLibrary library;
  DnsApi api;
  const bool complete = library.Load("dnsapi.dll", error) &&
                        library.Find("DnsServiceConstructInstance", api.constructInstance, error) &&
                        library.Find("DnsServiceFreeInstance", api.freeInstance, error) &&
                        library.Find("DnsServiceRegister", api.registerService, error) &&
                        library.Find("DnsServiceDeRegister", api.deregisterService, error) &&
                        library.Find("DnsServiceBrowse", api.browse, error) &&
                        library.Find("DnsServiceBrowseCancel", api.browseCancel, error) &&
                        library.Find("DnsFree", api.free, error);
  if (!complete) return std::nullopt;
  return api;
}

}  // namespace Veldrift
