// Finds the plug-in to connect to, where no address was given.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "phone_exit.h"
#include "phone_options.h"
#include "tools/discovery/service_browser.h"

namespace Veldrift {

struct FoundPlugins {
  std::vector<FoundService> services;  // all that were seen
  Ipv4Endpoint chosen;
};

// Looks for the installation `options.plugin`, or for any if that is empty, for at most
// `options.waitSeconds`. Of several that fit, one that transmits is chosen, else the first.
// kExitCantConnect with a sentence if there is none; an interrupt gives kExitGood with a sentence.
PhoneExit FindPlugin(const PhoneOptions& options, const std::atomic<bool>& interrupted,
                     FoundPlugins& found, std::string& sentence);

// A line for each service: name, address and port, id, whether it transmits.
std::string ListOf(const std::vector<FoundService>& services);

}  // namespace Veldrift
