// The advertiser over a DNS-SD responder. A registration can vanish from the wire while the
// responder still holds it: the advertiser watches the wire by a read-only browse of its own
// service type, and publishes again, without deregistering, when its instance is gone.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "identity/dns_sd_responder.h"
#include "identity/service_advertiser.h"
#include "identity/wire_watch.h"
#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

// The name under which the service appears: `name`, cut to its first 40 bytes, or "Ombrette" if it
// is empty; and the service type behind it. The cut can fall inside a character.
std::string ServiceInstanceName(const std::string& name);

// Under what name the machine is found; an empty computer name stands for an unknown one.
std::string ServiceHostName(const std::string& computerName);

// Threads: as IServiceAdvertiser says; one thread of its own while it is registered, and the
// responder's, which run the browse callback.
class DnsSdServiceAdvertiser final : public IServiceAdvertiser {
 public:
  DnsSdServiceAdvertiser(std::unique_ptr<DnsSdResponder> responder, Clock& clock);
  ~DnsSdServiceAdvertiser() override;
  DnsSdServiceAdvertiser(const DnsSdServiceAdvertiser&) = delete;
  DnsSdServiceAdvertiser& operator=(const DnsSdServiceAdvertiser&) = delete;

  // Waits for the responder, 5 s at most.
  bool Start(uint16_t port, const ServiceInfo& info) override;
  bool UpdateTxt(const ServiceInfo& info) override;
  // The browse ends first, the registration after it.
  void Stop() override;
  bool IsRegistered() override { return registered_; }

 private:
  struct BrowseContext;

  bool Register(const ServiceInfo& info) VD_REQUIRES(registerMutex_);
  void Deregister() VD_REQUIRES(registerMutex_);
  void Republish() VD_REQUIRES(registerMutex_);
  // Takes the instance's name for ours, or `wanted` if it has none; the name.
  std::string ExpectOnWire(const std::string& wanted) VD_REQUIRES(registerMutex_);
  void StartSelfHeal() VD_REQUIRES(registerMutex_);
  bool StartBrowse() VD_REQUIRES(registerMutex_);
  void StopSelfHeal() VD_EXCLUDES(registerMutex_);
  void StopBrowse() VD_REQUIRES(registerMutex_);
  void SelfHealLoop() VD_EXCLUDES(registerMutex_);
  void WaitForHealTick() VD_EXCLUDES(healWakeMutex_);
  ServiceDescription Describe(const ServiceInfo& info) const VD_REQUIRES(registerMutex_);

  const std::unique_ptr<DnsSdResponder> responder_;
  Clock& clock_;

  // Held across a whole registration, so for up to 5 s. The heal thread takes it: who joins that
  // thread doesn't hold it.
  Mutex registerMutex_;
  std::atomic<bool> registered_{false};
  uint16_t port_ VD_GUARDED_BY(registerMutex_) = 0;
  std::unique_ptr<ServiceInstance> instance_ VD_GUARDED_BY(registerMutex_);
  // What was last registered; a re-publish repeats it.
  std::string lastId_ VD_GUARDED_BY(registerMutex_);
  std::string lastName_ VD_GUARDED_BY(registerMutex_);
  int32_t lastTransmit_ VD_GUARDED_BY(registerMutex_) = 0;
  BrowseHandle browseCancel_ VD_GUARDED_BY(registerMutex_) = nullptr;
  std::shared_ptr<BrowseContext> browseContext_ VD_GUARDED_BY(registerMutex_);

  std::thread healThread_;  // touched by the owner's thread only
  std::atomic<bool> healRunning_{false};
  Mutex healWakeMutex_;
  CondVar healWake_;  // ends the thread's sleep when healRunning_ has become false
  const std::shared_ptr<WireWatch> watch_ = std::make_shared<WireWatch>();
};

}  // namespace Veldrift
