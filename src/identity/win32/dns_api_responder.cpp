// What a callback of the system needs is on the heap, belongs to the callback and holds no pointer
// to the responder, which can be gone by then.
#include "identity/win32/dns_api_responder.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "mdns"};

constexpr ULONG kRequestVersion = 1;

static_assert(kErrorCancelled == ERROR_CANCELLED);
static_assert(kRecordTypePtr == DNS_TYPE_PTR);

// The system's record, freed by whoever lets go of it last: the advertiser, or a request that is
// still on its way.
class OwnedInstance {
 public:
  OwnedInstance(const DnsApi& api, DNS_SERVICE_INSTANCE* raw) : api_(api), raw_(raw) {}
  ~OwnedInstance() { api_.freeInstance(raw_); }
  OwnedInstance(const OwnedInstance&) = delete;
  OwnedInstance& operator=(const OwnedInstance&) = delete;

  DNS_SERVICE_INSTANCE* Raw() const { return raw_; }

 private:
  const DnsApi api_;
  DNS_SERVICE_INSTANCE* const raw_;
};
using SharedInstance = std::shared_ptr<const OwnedInstance>;

class DnsApiInstance final : public ServiceInstance {
 public:
  explicit DnsApiInstance(SharedInstance owned) : owned_(std::move(owned)) {}

  std::string Name() const override {
    const wchar_t* const name = owned_->Raw()->pszInstanceName;
    return name == nullptr ? "" : NarrowText(name);
  }
  const SharedInstance& Owned() const { return owned_; }

 private:
  const SharedInstance owned_;
};

// ---- Registering --------------------------------------------------------------------------------

struct RegisterCall {
  const DnsApi api;
  const SharedInstance instance;
  const bool registers;  // false: deregisters
  const RegisterCallback callback;
  DNS_SERVICE_REGISTER_REQUEST request{};
};

void WINAPI OnRegistered(DWORD status, void* context, DNS_SERVICE_INSTANCE* result);

uint32_t Start(const DnsApi& api, const SharedInstance& instance, bool registers,
               RegisterCallback callback) {
  std::unique_ptr<RegisterCall> call(
      new RegisterCall{api, instance, registers, std::move(callback)});
  call->request.Version = kRequestVersion;
  call->request.pServiceInstance = instance->Raw();
  call->request.pRegisterCompletionCallback = &OnRegistered;
  call->request.pQueryContext = call.get();
  // From the call on it belongs to the callback, which can come before the call returns.
  RegisterCall* const released = call.release();
  const DWORD status = registers ? api.registerService(&released->request, nullptr)
                                 : api.deregisterService(&released->request, nullptr);
  if (status != kRequestPending) call.reset(released);
  return status;
}

void WINAPI OnRegistered(DWORD status, void* context, DNS_SERVICE_INSTANCE* result) {
  const std::unique_ptr<RegisterCall> call(static_cast<RegisterCall*>(context));
  RunGuarded(kLog, "registration callback", [&] {
    SharedInstance other;
    if (result != nullptr && result != call->instance->Raw()) {
      other = std::make_shared<OwnedInstance>(call->api, result);
    }
    const bool wanted = call->callback(status, other ? std::make_unique<DnsApiInstance>(other)
                                                     : std::unique_ptr<DnsApiInstance>());
    if (wanted || status != ERROR_SUCCESS || !call->registers) return;
    PluginLog(kLog, kLogInfo, "a registration came too late — taking it back");
    Start(call->api, other ? other : call->instance, /*registers=*/false,
          [](uint32_t, std::unique_ptr<ServiceInstance>) { return true; });
  });
}

// ---- Browsing -----------------------------------------------------------------------------------

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
  const DnsApi api;
  const BrowseCallback callback;
  const std::wstring serviceType;
  DNS_SERVICE_BROWSE_REQUEST request{};
  DNS_SERVICE_CANCEL cancel{};
};

// `context` is never null: it is what Browse gave.
void WINAPI OnBrowsed(DWORD status, void* context, DNS_RECORD* records) {
  const auto& call = *static_cast<const BrowseCall*>(context);
  call.callback(status, [records] { return ReadRecords(records); });
  if (records != nullptr) call.api.free(records, DnsFreeRecordList);
}

// ---- The responder ------------------------------------------------------------------------------

class DnsApiResponder final : public DnsSdResponder {
 public:
  explicit DnsApiResponder(const DnsApi& api) : api_(api) {}

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
    DNS_SERVICE_INSTANCE* const raw = api_.constructInstance(
        WideText(service.instanceName).c_str(), WideText(service.hostName).c_str(), nullptr,
        nullptr, service.port, service.priority, service.weight, static_cast<DWORD>(keys.size()),
        keys.data(), values.data());
    if (raw == nullptr) {
      error = GetLastError();
      return nullptr;
    }
    return std::make_unique<DnsApiInstance>(std::make_shared<OwnedInstance>(api_, raw));
  }

  uint32_t Register(ServiceInstance& instance, RegisterCallback callback) override {
    return Start(api_, OwnedOf(instance), /*registers=*/true, std::move(callback));
  }

  uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) override {
    return Start(api_, OwnedOf(instance), /*registers=*/false, std::move(callback));
  }

  uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                  BrowseHandle& handle) override {
    std::unique_ptr<BrowseCall> call(
        new BrowseCall{api_, std::move(callback), WideText(serviceType)});
    call->request.Version = kRequestVersion;
    call->request.QueryName = call->serviceType.c_str();
    call->request.pBrowseCallback = &OnBrowsed;
    call->request.pQueryContext = call.get();
    const DNS_STATUS status = api_.browse(&call->request, &call->cancel);
    // Never freed from here on: the system may call back once more after the cancellation.
    if (static_cast<uint32_t>(status) == kRequestPending) handle = call.release();
    return static_cast<uint32_t>(status);
  }

  void BrowseCancel(BrowseHandle handle) override {
    api_.browseCancel(&static_cast<BrowseCall*>(handle)->cancel);
  }

 private:
  static const SharedInstance& OwnedOf(ServiceInstance& instance) {
    return static_cast<DnsApiInstance&>(instance).Owned();
  }

  const DnsApi api_;
};

}  // namespace

std::unique_ptr<DnsSdResponder> MakeDnsApiResponder(const DnsApi& api) {
  return std::make_unique<DnsApiResponder>(api);
}

std::unique_ptr<DnsSdResponder> CreateDnsSdResponder() {
  std::string error;
  static const std::optional<DnsApi> api = FindDnsApi(error);
  if (api) return MakeDnsApiResponder(*api);
  if (!error.empty()) PluginLog(kLog, kLogInfo, "%s — mDNS off", error.c_str());
  return nullptr;
}

}  // namespace Veldrift
