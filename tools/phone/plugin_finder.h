// Finds the plug-in to connect to, where no address was given.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "phone_exit.h"
#include "phone_options.h"
#include "tools/discovery/service_browser.h"
#include "tools/receiver/session.h"

namespace Veldrift {

struct FoundPlugins {
  std::vector<FoundService> services;  // all that were seen
  Ipv4Endpoint chosen;
  std::string chosenId;
};

// Looks for the installation `options.plugin`, or for any if that is empty, for at most
// `options.waitSeconds`. Of several that fit, one that transmits is chosen, else the first.
// kExitCantConnect with a sentence if there is none; an interrupt gives kExitInterrupted.
PhoneExit FindPlugin(const PhoneOptions& options, const std::atomic<bool>& interrupted,
                     FoundPlugins& found, std::string& sentence);

// Looks on the network for a plug-in that isn't where it was: for the service `id`, or where that
// isn't known for the one of the installation `plugin` with this control port. Another host
// application's is another one: it keeps a list of its own of the phones that it trusts.
class NetworkWhereabouts : public PluginWhereabouts {
 public:
  NetworkWhereabouts(std::string id, std::string plugin, uint16_t port)
      : id_(std::move(id)), plugin_(std::move(plugin)), port_(port) {}

  std::vector<Ipv4Endpoint> Look() override;
  void Rest() override { browser_.reset(); }

 private:
  const std::string id_;
  const std::string plugin_;
  const uint16_t port_;
  int64_t nextOpenNs_ = 0;
  std::unique_ptr<ServiceBrowser> browser_;
};

// A line for each service: name, address and port, id, whether it transmits.
std::string ListOf(const std::vector<FoundService>& services);

}  // namespace Veldrift
