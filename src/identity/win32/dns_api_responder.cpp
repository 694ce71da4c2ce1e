// The responder of Windows 10 and later. Its functions are looked up by name when they are needed:
// where the system lacks them, the module loads all the same and isn't advertised.
//
// What a callback of the system needs is on the heap, belongs to the callback and holds no pointer
// to the responder, which can be gone by then.
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "identity/dns_sd_responder.h"
#include "platform/win32/windows_headers.h"
#include "support/guarded.h"
#include "support/plugin_log.h"
// The rest needs windows.h before it.
#include <windns.h>

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "mdns"};

constexpr ULONG kRequestVersion = 1;

static_assert(kErrorCancelled == ERROR_CANCELLED);
static_assert(kRecordTypePtr == DNS_TYPE_PTR);

struct DnsApi {
  decltype(&DnsServiceConstructInstance) constructInstance = nullptr;
  decltype(&DnsServiceFreeInstance) freeInstance = nullptr;
  decltype(&DnsServiceRegister) registerService = nullptr;
  decltype(&DnsServiceDeRegister) deregisterService = nullptr;
  decltype(&DnsServiceBrowse) browse = nullptr;
  decltype(&DnsServiceBrowseCancel) browseCancel = nullptr;
  decltype(&DnsFree) free = nullptr;
};

template <typename Function>
bool Find(HMODULE library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  if (function == nullptr) PluginLog(kLog, kLogInfo, "dnsapi.dll has no %s — mDNS off", name);
  return function != nullptr;
}

// The library stays loaded: callbacks can come at any time.
std::optional<DnsApi> FindDnsApi() {
  const HMODULE library = LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr) {
    PluginLog(kLog, kLogInfo, "dnsapi.dll: %s — mDNS off", SystemMessage(GetLastError()).c_str());
    return std::nullopt;
  }
  DnsApi api;
  const bool complete = Find(library, "DnsServiceConstructInstance", api.constructInstance) &&
                        Find(library, "DnsServiceFreeInstance", api.freeInstance) &&
                        Find(library, "DnsServiceRegister", api.registerService) &&
                        Find(library, "DnsServiceDeRegister", api.deregisterService) &&
                        Find(library, "DnsServiceBrowse", api.browse) &&
                        Find(library, "DnsServiceBrowseCancel", api.browseCancel) &&
                        Find(library, "DnsFree", api.free);
  if (!complete) return std::nullopt;
  return api;
}

const std::optional<DnsApi>& Api() {
  static const std::optional<DnsApi> api = FindDnsApi();
  return api;
}

class DnsApiInstance final : public ServiceInstance {
 public:
  explicit DnsApiInstance(DNS_SERVICE_INSTANCE* raw) : raw_(raw) {}
  ~DnsApiInstance() override { Api()->freeInstance(raw_); }
  DnsApiInstance(const DnsApiInstance&) = delete;
  DnsApiInstance& operator=(const DnsApiInstance&) = delete;

  std::string Name() const override {
    return raw_->pszInstanceName == nullptr ? "" : NarrowText(raw_->pszInstanceName);
  }
  DNS_SERVICE_INSTANCE* Raw() const { return raw_; }

 private:
  DNS_SERVICE_INSTANCE* const raw_;
};

struct RegisterCall {
  RegisterCallback callback;
  DNS_SERVICE_REGISTER_REQUEST request{};
};

void WINAPI OnRegistered(DWORD status, void* context, DNS_SERVICE_INSTANCE* result) {
  const std::unique_ptr<RegisterCall> call(static_cast<RegisterCall*>(context));
  RunGuarded(kLog, "registration callback", [&] {
    std::unique_ptr<ServiceInstance> other;
    if (result != nullptr && result != call->request.pServiceInstance) {
      other = std::make_unique<DnsApiInstance>(result);
    }
    call->callback(status, std::move(other));
  });
}

std::vector<DnsRecord> ReadRecords(const DNS_RECORDW* records) {
  std::vector<DnsRecord> list;
  for (const DNS_RECORDW* record = records; record != nullptr; record = record->pNext) {
    DnsRecord& read = list.emplace_back(DnsRecord{record->wType, {}});
    if (record->wType != DNS_TYPE_PTR || record->Data.PTR.pNameHost == nullptr) continue;
    read.target = NarrowText(record->Data.PTR.pNameHost);
  }
  return list;
}

struct BrowseCall {
  BrowseCallback callback;
  std::wstring serviceType;
  DNS_SERVICE_BROWSE_REQUEST request{};
  DNS_SERVICE_CANCEL cancel{};
};

void WINAPI OnBrowsed(DWORD status, void* context, DNS_RECORD* records) {
  if (const auto* call = static_cast<const BrowseCall*>(context)) {
    call->callback(status, [records] { return ReadRecords(records); });
  }
  if (records != nullptr) Api()->free(records, DnsFreeRecordList);
}

class DnsApiResponder final : public DnsSdResponder {
 public:
  std::unique_ptr<ServiceInstance> ConstructInstance(const ServiceDescription& service,
                                                     uint32_t& error) override {
    std::vector<std::wstring> texts;
    for (const auto& [key, value] : service.txt) {
      texts.push_back(WideText(key));
      texts.push_back(WideText(value));
    }
    std::vector<const wchar_t*> keys, values;
    for (size_t i = 0; i < texts.size(); i += 2) {
      keys.push_back(texts[i].c_str());
      values.push_back(texts[i + 1].c_str());
    }
    DNS_SERVICE_INSTANCE* const raw = Api()->constructInstance(
        WideText(service.instanceName).c_str(), WideText(service.hostName).c_str(), nullptr,
        nullptr, service.port, service.priority, service.weight, static_cast<DWORD>(keys.size()),
        keys.data(), values.data());
    if (raw == nullptr) {
      error = GetLastError();
      return nullptr;
    }
    return std::make_unique<DnsApiInstance>(raw);
  }

  uint32_t Register(ServiceInstance& instance, RegisterCallback callback) override {
    return Call(Api()->registerService, instance, std::move(callback));
  }

  uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) override {
    return Call(Api()->deregisterService, instance, std::move(callback));
  }

  uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                  BrowseHandle& handle) override {
    auto call = std::make_unique<BrowseCall>();
    call->callback = std::move(callback);
    call->serviceType = WideText(serviceType);
    call->request.Version = kRequestVersion;
    call->request.QueryName = call->serviceType.c_str();
    call->request.pBrowseCallback = &OnBrowsed;
    call->request.pQueryContext = call.get();
    const DNS_STATUS status = Api()->browse(&call->request, &call->cancel);
    // Never freed from here on: the system may call back once more after the cancellation.
    if (static_cast<uint32_t>(status) == kRequestPending) handle = call.release();
    return static_cast<uint32_t>(status);
  }

  void BrowseCancel(BrowseHandle handle) override {
    Api()->browseCancel(&static_cast<BrowseCall*>(handle)->cancel);
  }

 private:
  static uint32_t Call(decltype(&DnsServiceRegister) function, ServiceInstance& instance,
                       RegisterCallback callback) {
    auto call = std::make_unique<RegisterCall>();
    call->callback = std::move(callback);
    call->request.Version = kRequestVersion;
    call->request.pServiceInstance = static_cast<DnsApiInstance&>(instance).Raw();
    call->request.pRegisterCompletionCallback = &OnRegistered;
    call->request.pQueryContext = call.get();
    // From the call on it belongs to the callback, which can come before the call returns.
    RegisterCall* const released = call.release();
    const DWORD status = function(&released->request, nullptr);
    if (status != kRequestPending) call.reset(released);
    return status;
  }
};

}  // namespace

std::unique_ptr<DnsSdResponder> CreateDnsSdResponder() {
  if (!Api()) return nullptr;
  return std::make_unique<DnsApiResponder>();
}

}  // namespace Veldrift
