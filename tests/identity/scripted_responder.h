// A responder that does what a test tells it to, and remembers what it was told.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "identity/dns_sd_responder.h"
#include "platform/mutex.h"

namespace Veldrift {

// What the test sees and sets; outlives the responder. Threads: any.
class ResponderScript {
 public:
  struct Behaviour {
    uint32_t constructError = 0;  // not 0: ConstructInstance fails with it
    uint32_t registerResult = kRequestPending;
    uint32_t deregisterResult = kRequestPending;
    uint32_t browseResult = kRequestPending;
    bool holdRegistration = false;  // its callback waits in `held`
    bool holdDeregistration = false;
    uint32_t registerStatus = 0;  // what the callback says
    std::string otherName;        // not empty: the callback has another instance, of this name
    bool nameless = false;        // instances don't tell their name
  };

  void Change(const std::function<void(Behaviour&)>& change) {
    MutexLock lock(mutex_);
    change(behaviour_);
  }
  Behaviour Now() const {
    MutexLock lock(mutex_);
    return behaviour_;
  }

  // The calls in their order: "construct NAME", "register NAME", "deregister NAME",
  // "browse TYPE", "cancel", "gone".
  void Record(const std::string& call, const std::string& about = "") {
    MutexLock lock(mutex_);
    calls_.push_back(about.empty() ? call : call + " " + about);
  }
  std::vector<std::string> Calls() const {
    MutexLock lock(mutex_);
    return calls_;
  }
  size_t Count(const std::string& start) const {
    size_t count = 0;
    for (const std::string& call : Calls()) count += call.starts_with(start) ? 1 : 0;
    return count;
  }

  void Describe(const ServiceDescription& service) {
    MutexLock lock(mutex_);
    described_ = service;
  }
  ServiceDescription Described() const {
    MutexLock lock(mutex_);
    return described_;
  }

  // Callbacks that the responder hasn't called.
  void Hold(RegisterCallback callback) {
    MutexLock lock(mutex_);
    held_.push_back(std::move(callback));
  }
  std::vector<RegisterCallback> TakeHeld() {
    MutexLock lock(mutex_);
    return std::exchange(held_, {});
  }

  void SetBrowse(BrowseCallback callback) {
    MutexLock lock(mutex_);
    browse_ = std::move(callback);
  }
  // The last browse's callback, which also stays callable after the cancellation.
  BrowseCallback Browse() const {
    MutexLock lock(mutex_);
    return browse_;
  }

  void CountInstances(int delta) {
    MutexLock lock(mutex_);
    instances_ += delta;
  }
  int Instances() const {
    MutexLock lock(mutex_);
    return instances_;
  }

 private:
  mutable Mutex mutex_;
  Behaviour behaviour_ VD_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ VD_GUARDED_BY(mutex_);
  ServiceDescription described_ VD_GUARDED_BY(mutex_);
  std::vector<RegisterCallback> held_ VD_GUARDED_BY(mutex_);
  BrowseCallback browse_ VD_GUARDED_BY(mutex_);
  int instances_ VD_GUARDED_BY(mutex_) = 0;
};

class ScriptedInstance final : public ServiceInstance {
 public:
  ScriptedInstance(std::shared_ptr<ResponderScript> script, std::string name)
      : script_(std::move(script)), name_(std::move(name)) {
    script_->CountInstances(1);
  }
  ~ScriptedInstance() override { script_->CountInstances(-1); }
  std::string Name() const override { return script_->Now().nameless ? "" : name_; }
  const std::string& TrueName() const { return name_; }

 private:
  const std::shared_ptr<ResponderScript> script_;
  const std::string name_;
};

class ScriptedResponder final : public DnsSdResponder {
 public:
  explicit ScriptedResponder(std::shared_ptr<ResponderScript> script)
      : script_(std::move(script)) {}
  ~ScriptedResponder() override { script_->Record("gone"); }

  std::unique_ptr<ServiceInstance> ConstructInstance(const ServiceDescription& service,
                                                     uint32_t& error) override {
    script_->Record("construct", service.instanceName);
    script_->Describe(service);
    error = script_->Now().constructError;
    if (error != 0) return nullptr;
    return std::make_unique<ScriptedInstance>(script_, service.instanceName);
  }

  uint32_t Register(ServiceInstance& instance, RegisterCallback callback) override {
    script_->Record("register", TrueName(instance));
    const auto now = script_->Now();
    if (now.registerResult != kRequestPending) return now.registerResult;
    if (now.holdRegistration) {
      script_->Hold(std::move(callback));
    } else {
      callback(now.registerStatus, Other());
    }
    return kRequestPending;
  }

  uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) override {
    script_->Record("deregister", TrueName(instance));
    const auto now = script_->Now();
    if (now.deregisterResult != kRequestPending) return now.deregisterResult;
    if (now.holdDeregistration) {
      script_->Hold(std::move(callback));
    } else {
      callback(0, Other());
    }
    return kRequestPending;
  }

  uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                  BrowseHandle& handle) override {
    script_->Record("browse", serviceType);
    if (script_->Now().browseResult != kRequestPending) return script_->Now().browseResult;
    script_->SetBrowse(std::move(callback));
    handle = this;
    return kRequestPending;
  }

  void BrowseCancel(BrowseHandle) override { script_->Record("cancel"); }

 private:
  static const std::string& TrueName(ServiceInstance& instance) {
    return static_cast<ScriptedInstance&>(instance).TrueName();
  }
  std::unique_ptr<ServiceInstance> Other() const {
    const std::string name = script_->Now().otherName;
    return name.empty() ? nullptr : std::make_unique<ScriptedInstance>(script_, name);
  }

  const std::shared_ptr<ResponderScript> script_;
};

}  // namespace Veldrift
