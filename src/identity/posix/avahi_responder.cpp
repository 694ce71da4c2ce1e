// The responder of systems without one of their own: Avahi's, inside this process, with its own
// poll thread. A responder that the machine runs besides is no obstacle.
//
// It differs from what the seam describes as follows. There is one registration: a second Register
// takes the first one's place. A browse tells everything that is on the wire, once a second. A
// forged farewell is answered by Avahi itself, at once. Someone who takes our name later makes us
// change it here, without a word to those above. All callbacks run under the poll thread's lock.
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "identity/dns_sd_responder.h"
#include "support/guarded.h"
#include "support/plugin_log.h"
#include "support/text.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "mdns"};
constexpr unsigned kViewMillis = 1'000;

struct AvahiText {
  void operator()(char* text) const { avahi_free(text); }
};
struct AvahiTexts {
  void operator()(AvahiStringList* list) const { avahi_string_list_free(list); }
};
struct AvahiPollThread {
  void operator()(AvahiThreadedPoll* poll) const { avahi_threaded_poll_free(poll); }
};

uint32_t Failure(const char* call, int error) {
  PluginLog(kLog, kLogError, "%s failed: %d (%s)", call, error, avahi_strerror(error));
  return static_cast<uint32_t>(-error);
}

void TakeLogLine(AvahiLogLevel level, const char* text) {
  PluginLog(kLog, level == AVAHI_LOG_ERROR ? kLogError : kLogDebug, "avahi: %s", text);
}

// "label._x._tcp.local" in its parts. The label may hold anything.
struct ServiceName {
  std::string label, type, domain;

  explicit ServiceName(const std::string& full) {
    const size_t protocolEnd = full.rfind("._tcp.") + 5;
    const size_t typeStart = full.rfind('.', protocolEnd - 6) + 1;
    if (typeStart > 1) label = full.substr(0, typeStart - 1);
    type = full.substr(typeStart, protocolEnd - typeStart);
    domain = full.substr(protocolEnd + 1);
  }
};

class AvahiInstance final : public ServiceInstance {
 public:
  explicit AvahiInstance(ServiceDescription service) : service_(std::move(service)) {}
  std::string Name() const override { return service_.instanceName; }
  const ServiceDescription& Service() const { return service_; }

 private:
  const ServiceDescription service_;
};

// What is published, or is about to be.
struct Registration {
  ServiceDescription service;
  bool renamed = false;
  RegisterCallback callback;  // empty once it has been called

  void Rename() {
    const ServiceName name(service.instanceName);
    const std::unique_ptr<char, AvahiText> other(
        avahi_alternative_service_name(name.label.c_str()));
    if (!other) throw std::bad_alloc();
    service.instanceName = std::string(other.get()) + "." + name.type + "." + name.domain;
    renamed = true;
  }

  void Complete(uint32_t status) {
    const RegisterCallback waiting = std::exchange(callback, nullptr);
    if (!waiting) return;
    waiting(status, renamed ? std::make_unique<AvahiInstance>(service) : nullptr);
  }

  std::unique_ptr<AvahiStringList, AvahiTexts> Txt() const {
    AvahiStringList* list = nullptr;
    // Each is put before the others, and the list is written from its end.
    for (const auto& [key, value] : service.txt) {
      list = avahi_string_list_add_pair(list, key.c_str(), value.c_str());
    }
    return std::unique_ptr<AvahiStringList, AvahiTexts>(list);
  }
};

// Threads: the fields are touched under the poll thread's lock, which callbacks hold.
class AvahiResponder final : public DnsSdResponder {
 public:
  explicit AvahiResponder(AvahiThreadedPoll* poll) : poll_(poll) {}
  ~AvahiResponder() override;
  AvahiResponder(const AvahiResponder&) = delete;
  AvahiResponder& operator=(const AvahiResponder&) = delete;

  std::unique_ptr<ServiceInstance> ConstructInstance(const ServiceDescription& service,
                                                     uint32_t& error) override;
  uint32_t Register(ServiceInstance& instance, RegisterCallback callback) override;
  uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) override;
  uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                  BrowseHandle& handle) override;
  void BrowseCancel(BrowseHandle handle) override;

 private:
  struct Lock {
    explicit Lock(AvahiThreadedPoll* of) : poll(of) { avahi_threaded_poll_lock(poll); }
    ~Lock() { avahi_threaded_poll_unlock(poll); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    AvahiThreadedPoll* const poll;
  };

  uint32_t EnsureServer(const std::string& hostName);
  uint32_t Publish();
  uint32_t AddService();
  void OnServer(AvahiServer* server, AvahiServerState state);
  void OnGroup(AvahiEntryGroupState state);
  void OnBrowser(AvahiBrowserEvent event, const char* name, const char* type, const char* domain);
  void TellView();
  void ArmTimer();

  static void ServerCallback(AvahiServer* server, AvahiServerState state, void* self);
  static void GroupCallback(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state,
                            void* self);
  static void BrowserCallback(AvahiSServiceBrowser*, AvahiIfIndex, AvahiProtocol,
                              AvahiBrowserEvent event, const char* name, const char* type,
                              const char* domain, AvahiLookupResultFlags, void* self);
  static void TimerCallback(AvahiTimeout*, void* self);

  const std::unique_ptr<AvahiThreadedPoll, AvahiPollThread> poll_;
  AvahiServer* server_ = nullptr;
  AvahiSEntryGroup* group_ = nullptr;  // the server's
  std::optional<Registration> registration_;

  AvahiSServiceBrowser* browser_ = nullptr;  // the server's
  AvahiTimeout* timer_ = nullptr;            // the poll thread's
  BrowseCallback browseCallback_;
  std::multiset<std::string> view_;  // full names, once an interface
};

AvahiResponder::~AvahiResponder() {
  if (server_ == nullptr) return;
  avahi_threaded_poll_stop(poll_.get());
  avahi_server_free(server_);  // says farewell
}

std::unique_ptr<ServiceInstance> AvahiResponder::ConstructInstance(
    const ServiceDescription& service, uint32_t&) {
  ServiceDescription mended = service;
  mended.instanceName = MendUtf8(service.instanceName);
  return std::make_unique<AvahiInstance>(std::move(mended));
}

// ---- The server ---------------------------------------------------------------------------------

// Only IPv4, since the plug-in listens on nothing else.
uint32_t AvahiResponder::EnsureServer(const std::string& hostName) {
  if (server_ != nullptr) return 0;
  AvahiServerConfig config;
  avahi_server_config_init(&config);
  config.host_name = avahi_strdup(hostName.substr(0, hostName.rfind(".local")).c_str());
  config.use_ipv4 = 1;
  config.use_ipv6 = 0;
  config.publish_hinfo = 0;
  config.publish_workstation = 0;
  config.publish_domain = 0;
  config.publish_aaaa_on_ipv4 = 0;
  config.enable_wide_area = 0;
  int error = AVAHI_OK;
  server_ = avahi_server_new(avahi_threaded_poll_get(poll_.get()), &config, &ServerCallback, this,
                             &error);
  avahi_server_config_free(&config);
  if (server_ == nullptr) return Failure("avahi_server_new", error);
  if (avahi_threaded_poll_start(poll_.get()) == 0) return 0;
  avahi_server_free(std::exchange(server_, nullptr));
  return Failure("avahi_threaded_poll_start", AVAHI_ERR_FAILURE);
}

void AvahiResponder::ServerCallback(AvahiServer* server, AvahiServerState state, void* self) {
  RunGuarded(kLog, "avahi server",
             [=] { static_cast<AvahiResponder*>(self)->OnServer(server, state); });
}

void AvahiResponder::OnServer(AvahiServer* server, AvahiServerState state) {
  if (server != server_) return;  // from within avahi_server_new
  if (state == AVAHI_SERVER_COLLISION) {
    // The service's record names the host: it goes with the old name.
    if (group_ != nullptr) avahi_s_entry_group_reset(group_);
    const std::unique_ptr<char, AvahiText> other(
        avahi_alternative_host_name(avahi_server_get_host_name(server)));
    if (const int error = avahi_server_set_host_name(server, other.get()); error != AVAHI_OK) {
      Failure("avahi_server_set_host_name", error);
    }
  } else if (state == AVAHI_SERVER_FAILURE) {
    const uint32_t status = Failure("avahi server", avahi_server_errno(server));
    if (registration_) registration_->Complete(status);
  } else if (registration_ && (group_ == nullptr || avahi_s_entry_group_is_empty(group_))) {
    if (const uint32_t status = Publish(); status != 0) registration_->Complete(status);
  }
}

// ---- Registration -------------------------------------------------------------------------------

uint32_t AvahiResponder::Register(ServiceInstance& instance, RegisterCallback callback) {
  const Lock lock(poll_.get());
  const ServiceDescription& service = static_cast<AvahiInstance&>(instance).Service();
  uint32_t status = EnsureServer(service.hostName);
  if (status != 0) return status;
  registration_ = Registration{service, false, std::move(callback)};
  status = Publish();
  if (status == 0) return kRequestPending;
  registration_.reset();
  return status;
}

// Puts the registration on the wire beside the host's own records, without waiting for these; but
// not under a host name that is just being given up: OnServer does it then.
uint32_t AvahiResponder::Publish() {
  const AvahiServerState state = avahi_server_get_state(server_);
  if (state == AVAHI_SERVER_FAILURE) return Failure("avahi server", avahi_server_errno(server_));
  if (state != AVAHI_SERVER_RUNNING && state != AVAHI_SERVER_REGISTERING) return 0;
  if (group_ == nullptr) {
    group_ = avahi_s_entry_group_new(server_, &GroupCallback, this);
    if (group_ == nullptr) return Failure("avahi_s_entry_group_new", avahi_server_errno(server_));
  } else {
    avahi_s_entry_group_reset(group_);
  }
  if (const uint32_t status = AddService(); status != 0) return status;
  const int error = avahi_s_entry_group_commit(group_);
  return error == AVAHI_OK ? 0 : Failure("avahi_s_entry_group_commit", error);
}

uint32_t AvahiResponder::AddService() {
  const auto txt = registration_->Txt();
  while (true) {
    const ServiceName name(registration_->service.instanceName);
    const int error = avahi_server_add_service_strlst(
        server_, group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
        name.label.c_str(), name.type.c_str(), name.domain.c_str(), nullptr,
        registration_->service.port, txt.get());
    if (error == AVAHI_OK) return 0;
    if (error != AVAHI_ERR_COLLISION) return Failure("avahi_server_add_service", error);
    registration_->Rename();
  }
}

void AvahiResponder::GroupCallback(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state,
                                   void* self) {
  RunGuarded(kLog, "avahi entries", [=] { static_cast<AvahiResponder*>(self)->OnGroup(state); });
}

void AvahiResponder::OnGroup(AvahiEntryGroupState state) {
  if (!registration_) return;
  uint32_t status = 0;
  if (state == AVAHI_ENTRY_GROUP_COLLISION) {
    registration_->Rename();
    status = Publish();
    if (status == 0) return;
  } else if (state == AVAHI_ENTRY_GROUP_FAILURE) {
    status = Failure("avahi entries", avahi_server_errno(server_));
  } else if (state != AVAHI_ENTRY_GROUP_ESTABLISHED) {
    return;
  }
  registration_->Complete(status);
}

uint32_t AvahiResponder::Deregister(ServiceInstance&, RegisterCallback callback) {
  {
    const Lock lock(poll_.get());
    registration_.reset();
    if (group_ != nullptr) avahi_s_entry_group_reset(group_);
  }
  callback(0, nullptr);
  return kRequestPending;
}

// ---- Browsing -----------------------------------------------------------------------------------

uint32_t AvahiResponder::Browse(const std::string& serviceType, BrowseCallback callback,
                                BrowseHandle& handle) {
  const Lock lock(poll_.get());
  if (server_ == nullptr) return Failure("avahi_s_service_browser_new", AVAHI_ERR_BAD_STATE);
  const ServiceName name(serviceType);
  browser_ =
      avahi_s_service_browser_new(server_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name.type.c_str(),
                                  name.domain.c_str(), AvahiLookupFlags(0), &BrowserCallback, this);
  if (browser_ == nullptr) {
    return Failure("avahi_s_service_browser_new", avahi_server_errno(server_));
  }
  browseCallback_ = std::move(callback);
  ArmTimer();
  handle = browser_;
  return kRequestPending;
}

void AvahiResponder::BrowseCancel(BrowseHandle) {
  const Lock lock(poll_.get());
  if (timer_ != nullptr) {
    avahi_threaded_poll_get(poll_.get())->timeout_free(std::exchange(timer_, nullptr));
  }
  avahi_s_service_browser_free(std::exchange(browser_, nullptr));
  browseCallback_ = nullptr;
  view_.clear();
}

void AvahiResponder::BrowserCallback(AvahiSServiceBrowser*, AvahiIfIndex, AvahiProtocol,
                                     AvahiBrowserEvent event, const char* name, const char* type,
                                     const char* domain, AvahiLookupResultFlags, void* self) {
  RunGuarded(kLog, "avahi browser",
             [=] { static_cast<AvahiResponder*>(self)->OnBrowser(event, name, type, domain); });
}

void AvahiResponder::OnBrowser(AvahiBrowserEvent event, const char* name, const char* type,
                               const char* domain) {
  if (event == AVAHI_BROWSER_FAILURE) view_.clear();
  if (event != AVAHI_BROWSER_NEW && event != AVAHI_BROWSER_REMOVE) return;
  const std::string full = std::string(name) + "." + type + "." + domain;
  if (event == AVAHI_BROWSER_NEW) {
    view_.insert(full);
  } else if (const auto found = view_.find(full); found != view_.end()) {
    view_.erase(found);
  }
}

// The changes come one by one, and while they do, the view has some names and not yet others: it is
// told as a whole, between them.
void AvahiResponder::TimerCallback(AvahiTimeout*, void* self) {
  RunGuarded(kLog, "avahi view", [=] { static_cast<AvahiResponder*>(self)->TellView(); });
}

void AvahiResponder::TellView() {
  ArmTimer();
  browseCallback_(0, [this] {
    std::vector<DnsRecord> records;
    for (const std::string& name : view_) records.push_back({kRecordTypePtr, name});
    return records;
  });
}

void AvahiResponder::ArmTimer() {
  const AvahiPoll* api = avahi_threaded_poll_get(poll_.get());
  timeval at{};
  avahi_elapse_time(&at, kViewMillis, 0);
  if (timer_ == nullptr) {
    timer_ = api->timeout_new(api, &at, &TimerCallback, this);
  } else {
    api->timeout_update(timer_, &at);
  }
}

}  // namespace

std::unique_ptr<DnsSdResponder> CreateDnsSdResponder() {
  avahi_set_log_function(&TakeLogLine);
  AvahiThreadedPoll* poll = avahi_threaded_poll_new();
  if (poll == nullptr) {
    PluginLog(kLog, kLogInfo, "avahi_threaded_poll_new failed — mDNS off");
    return nullptr;
  }
  return std::make_unique<AvahiResponder>(poll);
}

}  // namespace Veldrift
