#include "tools/discovery/service_browser.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/simple-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>

#include <algorithm>
#include <list>
#include <optional>

namespace Veldrift {

namespace {

constexpr const char* kServiceType = "_veldrift._tcp";

struct PollDeleter {
  void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
};
struct ServerDeleter {
  void operator()(AvahiServer* server) const { avahi_server_free(server); }
};
struct BrowserDeleter {
  void operator()(AvahiSServiceBrowser* browser) const { avahi_s_service_browser_free(browser); }
};
struct ResolverDeleter {
  void operator()(AvahiSServiceResolver* resolver) const {
    avahi_s_service_resolver_free(resolver);
  }
};

std::string TextOf(AvahiStringList* txt, const char* key) {
  AvahiStringList* entry = avahi_string_list_find(txt, key);
  char* value = nullptr;
  if (entry == nullptr || avahi_string_list_get_pair(entry, nullptr, &value, nullptr) != 0) {
    return {};
  }
  const std::string text = value == nullptr ? "" : value;
  avahi_free(value);
  return text;
}

class AvahiBrowser final : public ServiceBrowser {
 public:
  bool Open(std::string& error) {
    // Its log would go between the lines of whoever looks.
    avahi_set_log_function([](AvahiLogLevel, const char*) {});
    poll_.reset(avahi_simple_poll_new());
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    config.disable_publishing = 1;
    config.use_ipv6 = 0;
    int code = 0;
    server_.reset(
        avahi_server_new(avahi_simple_poll_get(poll_.get()), &config, nullptr, nullptr, &code));
    avahi_server_config_free(&config);
    if (server_) {
      browser_.reset(avahi_s_service_browser_new(server_.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_INET,
                                                 kServiceType, nullptr, AvahiLookupFlags{},
                                                 &AvahiBrowser::OnBrowsed, this));
      if (!browser_) code = avahi_server_errno(server_.get());
    }
    if (!browser_) error = avahi_strerror(code);
    return browser_ != nullptr;
  }

  bool Poll(int milliseconds) override {
    return avahi_simple_poll_iterate(poll_.get(), milliseconds) == 0;
  }

  std::vector<FoundService> Found() const override {
    std::vector<FoundService> found;
    for (const Sighting& sighting : sightings_) {
      const auto known = [&](const FoundService& other) {
        return other.instance == sighting.instance;
      };
      // On a machine with several interfaces, the first to answer counts.
      if (sighting.service && std::none_of(found.begin(), found.end(), known)) {
        found.push_back(*sighting.service);
      }
    }
    return found;
  }

 private:
  // A service seen on one interface; resolved over and over until it goes.
  struct Sighting {
    AvahiIfIndex interface;
    std::string instance;
    std::optional<FoundService> service;
    std::unique_ptr<AvahiSServiceResolver, ResolverDeleter> resolver;
  };

  static void OnBrowsed(AvahiSServiceBrowser*, AvahiIfIndex interface, AvahiProtocol,
                        AvahiBrowserEvent event, const char* name, const char* type,
                        const char* domain, AvahiLookupResultFlags, void* data) {
    auto& self = *static_cast<AvahiBrowser*>(data);
    if (event == AVAHI_BROWSER_NEW) self.Add(interface, name, type, domain);
    if (event == AVAHI_BROWSER_REMOVE) self.Remove(interface, name);
  }

  static void OnResolved(AvahiSServiceResolver*, AvahiIfIndex, AvahiProtocol,
                         AvahiResolverEvent event, const char*, const char*, const char*,
                         const char* hostName, const AvahiAddress* address, uint16_t port,
                         AvahiStringList* txt, AvahiLookupResultFlags, void* data) {
    auto& sighting = *static_cast<Sighting*>(data);
    if (event != AVAHI_RESOLVER_FOUND || address == nullptr) return;
    FoundService service;
    service.instance = sighting.instance;
    service.hostName = hostName == nullptr ? "" : hostName;
    service.endpoint = {address->data.ipv4.address, port};
    service.version = TextOf(txt, "ver");
    service.id = TextOf(txt, "id");
    service.name = TextOf(txt, "name");
    service.transmit = TextOf(txt, "transmit") == "1";
    sighting.service = std::move(service);
  }

  void Add(AvahiIfIndex interface, const char* name, const char* type, const char* domain) {
    Sighting& sighting = sightings_.emplace_back(Sighting{interface, name, {}, {}});
    sighting.resolver.reset(avahi_s_service_resolver_new(
        server_.get(), interface, AVAHI_PROTO_INET, name, type, domain, AVAHI_PROTO_INET,
        AvahiLookupFlags{}, &AvahiBrowser::OnResolved, &sighting));
  }

  void Remove(AvahiIfIndex interface, const std::string& name) {
    sightings_.remove_if([&](const Sighting& sighting) {
      return sighting.interface == interface && sighting.instance == name;
    });
  }

  // In this order: each is freed before what it uses.
  std::unique_ptr<AvahiSimplePoll, PollDeleter> poll_;
  std::unique_ptr<AvahiServer, ServerDeleter> server_;
  std::unique_ptr<AvahiSServiceBrowser, BrowserDeleter> browser_;
  std::list<Sighting> sightings_;  // a resolver points at its own
};

}  // namespace

bool IsOfInstallation(const FoundService& service, const std::string& id) {
  return service.id == id || service.id.starts_with(id + "-");
}

std::unique_ptr<ServiceBrowser> OpenServiceBrowser(std::string& error) {
  auto browser = std::make_unique<AvahiBrowser>();
  if (!browser->Open(error)) return nullptr;
  return browser;
}

}  // namespace Veldrift
