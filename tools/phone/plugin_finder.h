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

// Looks on the network for a plug-in that isn't where it was: for the installation `plugin`, or
// where that is empty for the service `id`.
class NetworkWhereabouts : public PluginWhereabouts {
 public:
  NetworkWhereabouts(std::string plugin, std::string id)
      : plugin_(std::move(plugin)), id_(std::move(id)) {}

  std::vector<Ipv4Endpoint> Look() override;
  void Rest() override { browser_.reset(); }

 private:
  const std::string plugin_;
  const std::string id_;
  int64_t nextOpenNs_ = 0;
  std::unique_ptr<ServiceBrowser> browser_;
};

// A line for each service: name, address and port, id, whether it transmits.
std::string ListOf(const std::vector<FoundService>& services);

}  // namespace Veldrift
