#include "identity/dns_sd_service_advertiser.h"

#include <utility>
#include <vector>

#include "platform/system.h"
#include "support/guarded.h"
#include "support/plugin_log.h"
#include "support/text.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "mdns"};
constexpr const char* kServiceType = "_veldrift._tcp.local";
constexpr const char* kNamelessLabel = "Ombrette";
constexpr const char* kRecordVersion = "4";
constexpr size_t kLabelBytes = 40;
constexpr int64_t kRegisterNanos = 5 * kNanosPerSecond;
constexpr int64_t kDeregisterNanos = 3 * kNanosPerSecond;
constexpr int64_t kHealTickNanos = 200 * kNanosPerMilli;
constexpr int kCallbackPatience = 500;  // times 1 ms

unsigned long Number(uint32_t status) { return status; }

// One request: the caller and the callback hold it, and a callback that comes after the caller has
// given up still finds it.
class RegisterWait {
 public:
  struct Outcome {
    bool done = false;
    uint32_t status = 0;
    std::unique_ptr<ServiceInstance> resultInstance;
  };

  // False: too late.
  bool Complete(uint32_t status, std::unique_ptr<ServiceInstance> result) {
    MutexLock lock(mutex_);
    if (givenUp_) return false;
    outcome_ = {true, status, std::move(result)};
    changed_.NotifyAll();
    return true;
  }

  Outcome Await(Clock& clock, int64_t nanos) {
    const int64_t deadline = clock.NowNanos() + nanos;
    MutexLock lock(mutex_);
    while (!outcome_.done && clock.NowNanos() < deadline) {
      clock.WaitUntil(changed_, lock, deadline);
    }
    givenUp_ = !outcome_.done;
    return std::exchange(outcome_, {});
  }

 private:
  Mutex mutex_;
  CondVar changed_;
  Outcome outcome_ VD_GUARDED_BY(mutex_);
  bool givenUp_ VD_GUARDED_BY(mutex_) = false;
};

RegisterCallback CompletionOf(const std::shared_ptr<RegisterWait>& wait) {
  return [wait](uint32_t status, std::unique_ptr<ServiceInstance> result) {
    return wait->Complete(status, std::move(result));
  };
}

std::vector<std::string> InstanceNames(const RecordReader& records) {
  std::vector<std::string> names;
  for (DnsRecord& record : records()) {
    if (record.type == kRecordTypePtr && !record.target.empty()) {
      names.push_back(std::move(record.target));
    }
  }
  return names;
}

}  // namespace

std::string ServiceInstanceName(const std::string& name) {
  const std::string label = name.empty() ? kNamelessLabel : name.substr(0, kLabelBytes);
  return label + "." + kServiceType;
}

std::string ServiceHostName(const std::string& computerName) {
  if (computerName.empty()) return "localhost.local";
  return LowerCase(computerName) + ".local";
}

// What a browse callback gets. Shared with the callback, which can come once more when the browse
// is cancelled and the advertiser gone: it then finds `alive` false.
struct DnsSdServiceAdvertiser::BrowseContext {
  BrowseContext(std::shared_ptr<WireWatch> watch, Clock& now)
      : owner(std::move(watch)), clock(now) {}

  const std::shared_ptr<WireWatch> owner;
  Clock& clock;
  std::atomic<bool> alive{true};
  std::atomic<int32_t> inFlight{0};  // callbacks that run at this moment

  void OnResult(uint32_t status, const RecordReader& records) {
    if (status == kErrorCancelled) return;
    ++inFlight;
    if (alive) {
      RunGuarded(kLog, "browse callback",
                 [&] { owner->TakeResult(InstanceNames(records), clock.NowNanos()); });
    }
    --inFlight;
  }
};

DnsSdServiceAdvertiser::DnsSdServiceAdvertiser(std::unique_ptr<DnsSdResponder> responder,
                                               Clock& clock)
    : responder_(std::move(responder)), clock_(clock) {}

DnsSdServiceAdvertiser::~DnsSdServiceAdvertiser() { Stop(); }

bool DnsSdServiceAdvertiser::Start(uint16_t port, const ServiceInfo& info) {
  StopSelfHeal();
  MutexLock lock(registerMutex_);
  Deregister();
  port_ = port;
  if (!Register(info)) return false;
  StartSelfHeal();
  return true;
}

bool DnsSdServiceAdvertiser::UpdateTxt(const ServiceInfo& info) {
  MutexLock lock(registerMutex_);
  if (!registered_) {
    PluginLog(kLog, kLogInfo, "UpdateTxt: not registered — skipping");
    return false;
  }
  Deregister();
  if (!Register(info)) return false;
  ExpectOnWire(ServiceInstanceName(info.name));
  return true;
}

void DnsSdServiceAdvertiser::Stop() {
  StopSelfHeal();
  MutexLock lock(registerMutex_);
  Deregister();
}

// ---- Registration -------------------------------------------------------------------------------

ServiceDescription DnsSdServiceAdvertiser::Describe(const ServiceInfo& info) const {
  return {.instanceName = ServiceInstanceName(info.name),
          .hostName = ServiceHostName(GetComputerName()),
          .port = port_,
          .priority = 0,
          .weight = 0,
          .txt = {{"ver", kRecordVersion},
                  {"id", info.id},
                  {"name", info.name},
                  {"transmit", info.transmit != 0 ? "1" : "0"}}};
}

bool DnsSdServiceAdvertiser::Register(const ServiceInfo& info) {
  uint32_t error = 0;
  std::unique_ptr<ServiceInstance> instance = responder_->ConstructInstance(Describe(info), error);
  if (!instance) {
    PluginLog(kLog, kLogError, "DnsServiceConstructInstance failed: err=%lu", Number(error));
    return false;
  }
  const auto wait = std::make_shared<RegisterWait>();
  const uint32_t started = responder_->Register(*instance, CompletionOf(wait));
  if (started != kRequestPending) {
    PluginLog(kLog, kLogError, "DnsServiceRegister returned %lu — registration refused",
              Number(started));
    return false;
  }
  RegisterWait::Outcome outcome = wait->Await(clock_, kRegisterNanos);
  if (!outcome.done) {
    PluginLog(kLog, kLogError, "DnsServiceRegister callback timed out after 5s");
    return false;
  }
  if (outcome.status != 0) {
    PluginLog(kLog, kLogError, "DnsServiceRegister callback status=%lu", Number(outcome.status));
    return false;
  }
  instance_ = std::move(outcome.resultInstance ? outcome.resultInstance : instance);
  registered_ = true;
  lastId_ = info.id;
  lastName_ = info.name;
  lastTransmit_ = info.transmit;
  PluginLog(kLog, kLogInfo, "advertising :%u id=%{public}s name=%{public}s transmit=%d", port_,
            info.id.c_str(), info.name.c_str(), info.transmit);
  return true;
}

void DnsSdServiceAdvertiser::Deregister() {
  const std::unique_ptr<ServiceInstance> instance = std::move(instance_);
  if (!registered_.exchange(false) || !instance) return;
  const auto wait = std::make_shared<RegisterWait>();
  const uint32_t started = responder_->Deregister(*instance, CompletionOf(wait));
  if (started == kRequestPending) {
    wait->Await(clock_, kDeregisterNanos);
  } else {
    PluginLog(kLog, kLogInfo, "DnsServiceDeRegister returned %lu — continuing teardown",
              Number(started));
  }
  PluginLog(kLog, kLogInfo, "advertising stopped");
}

// ---- Self-heal ----------------------------------------------------------------------------------

void DnsSdServiceAdvertiser::StartSelfHeal() {
  if (browseCancel_ != nullptr || healThread_.joinable()) return;
  const std::string name = instance_ ? instance_->Name() : "";
  if (name.empty()) {
    PluginLog(kLog, kLogInfo, "[bj] self-heal: no instance name — skipping");
    return;
  }
  watch_->Expect(name);
  if (!StartBrowse()) return;
  healRunning_ = true;
  healThread_ = std::thread([this] { SelfHealLoop(); });
  PluginLog(kLog, kLogInfo, "[bj] self-heal: started (read-only browse + register-only on loss)");
}

bool DnsSdServiceAdvertiser::StartBrowse() {
  browseContext_ = std::make_shared<BrowseContext>(watch_, clock_);
  const auto callback = [context = browseContext_](uint32_t status, const RecordReader& records) {
    context->OnResult(status, records);
  };
  const uint32_t status = responder_->Browse(kServiceType, callback, browseCancel_);
  if (status == kRequestPending) return true;
  PluginLog(kLog, kLogError, "[bj] self-heal: DnsServiceBrowse failed s=%lu — self-heal off",
            Number(status));
  browseContext_.reset();
  browseCancel_ = nullptr;
  return false;
}

void DnsSdServiceAdvertiser::StopSelfHeal() {
  healRunning_ = false;
  // The empty lock closes the gap in which the thread has tested its condition but doesn't wait
  // yet.
  { MutexLock lock(healWakeMutex_); }
  healWake_.NotifyAll();
  if (healThread_.joinable()) healThread_.join();
  MutexLock lock(registerMutex_);
  StopBrowse();
}

// A callback that still runs when patience is out does no harm: it holds what it works on.
void DnsSdServiceAdvertiser::StopBrowse() {
  if (browseContext_) {
    browseContext_->alive = false;
    for (int i = 0; i < kCallbackPatience && browseContext_->inFlight >= 1; ++i) {
      clock_.SleepFor(kNanosPerMilli);
    }
  }
  if (browseCancel_ != nullptr) responder_->BrowseCancel(std::exchange(browseCancel_, nullptr));
  browseContext_.reset();
}

void DnsSdServiceAdvertiser::WaitForHealTick() {
  const int64_t deadline = clock_.NowNanos() + kHealTickNanos;
  MutexLock lock(healWakeMutex_);
  while (healRunning_ && clock_.NowNanos() < deadline) {
    clock_.WaitUntil(healWake_, lock, deadline);
  }
}

void DnsSdServiceAdvertiser::SelfHealLoop() {
  for (WaitForHealTick(); healRunning_; WaitForHealTick()) {
    // What one turn throws, such as for want of memory, ends that turn only.
    RunGuarded(kLog, "self-heal", [this] {
      if (!watch_->TakeRepublishTurn(clock_.NowNanos())) return;
      MutexLock lock(registerMutex_);
      Republish();
    });
  }
}

void DnsSdServiceAdvertiser::Republish() {
  if (lastId_.empty() || port_ == 0) return;
  PluginLog(kLog, kLogInfo, "[bj] self-heal: re-publishing (register-only) id=%{public}s",
            lastId_.c_str());
  instance_.reset();
  registered_ = false;
  const std::string wanted = ServiceInstanceName(lastName_);
  if (!Register({lastId_, lastName_, lastTransmit_})) {
    PluginLog(kLog, kLogError, "[bj] self-heal: re-register failed");
    return;
  }
  if (!SameDnsName(ExpectOnWire(wanted), wanted)) {
    PluginLog(kLog, kLogInfo,
              "[bj] self-heal: WinDNS uniquified our name — adopting it, self-heal stays active");
  }
}

std::string DnsSdServiceAdvertiser::ExpectOnWire(const std::string& wanted) {
  const std::string held = instance_->Name();
  const std::string& name = held.empty() ? wanted : held;
  watch_->Expect(name);
  return name;
}

// ---- The factory --------------------------------------------------------------------------------

std::unique_ptr<IServiceAdvertiser> CreateServiceAdvertiser() {
  std::unique_ptr<DnsSdResponder> responder = CreateDnsSdResponder();
  if (!responder) return nullptr;
  return std::make_unique<DnsSdServiceAdvertiser>(std::move(responder), SystemClock());
}

}  // namespace Veldrift
