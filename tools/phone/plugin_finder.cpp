#include "plugin_finder.h"

#include <algorithm>

#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int kPollMs = 100;
// Others may answer a little later than the first.
constexpr int64_t kOthersNs = kNanosPerSecond;
// A network that is away can't be looked at; it may come back.
constexpr int64_t kReopenNs = kNanosPerSecond;
constexpr int kEventsAtOnce = 16;

std::vector<FoundService> Fitting(const std::vector<FoundService>& services,
                                  const std::string& plugin) {
  std::vector<FoundService> fitting;
  for (const FoundService& service : services) {
    if (plugin.empty() || IsOfInstallation(service, plugin)) fitting.push_back(service);
  }
  return fitting;
}

PhoneExit NothingFound(const PhoneOptions& options, const FoundPlugins& found,
                       std::string& sentence) {
  sentence =
      options.plugin.empty()
          ? "no plug-in was found on the network: it answers on UDP port 5353, on this subnet "
            "alone; elsewhere give its address, --host"
          : "the plug-in " + options.plugin + " was not found on the network, where " +
                std::to_string(found.services.size()) + " others are";
  return kExitCantConnect;
}

}  // namespace

PhoneExit FindPlugin(const PhoneOptions& options, const std::atomic<bool>& interrupted,
                     FoundPlugins& found, std::string& sentence) {
  const std::unique_ptr<ServiceBrowser> browser = OpenServiceBrowser(sentence);
  if (!browser) {
    sentence = "can't look for plug-ins on the network: " + sentence;
    return kExitFailed;
  }
  int64_t deadline = SteadyNanos() + int64_t(options.waitSeconds * 1e9);
  bool any = false;
  while (!interrupted && SteadyNanos() < deadline && browser->Poll(kPollMs)) {
    found.services = browser->Found();
    if (any || Fitting(found.services, options.plugin).empty()) continue;
    any = true;
    deadline = std::min(deadline, SteadyNanos() + kOthersNs);
  }
  if (interrupted) {
    sentence = "interrupted";
    return kExitInterrupted;
  }
  const std::vector<FoundService> fitting = Fitting(found.services, options.plugin);
  if (fitting.empty()) return NothingFound(options, found, sentence);
  const auto transmitting = std::ranges::find_if(fitting, &FoundService::transmit);
  const FoundService& chosen = transmitting == fitting.end() ? fitting.front() : *transmitting;
  found.chosen = chosen.endpoint;
  found.chosenId = chosen.id;
  return kExitGood;
}

std::vector<Ipv4Endpoint> NetworkWhereabouts::Look() {
  const int64_t nowNs = SteadyNanos();
  if (!browser_) {
    if (nowNs < nextOpenNs_) return {};
    nextOpenNs_ = nowNs + kReopenNs;
    std::string reason;
    browser_ = OpenServiceBrowser(reason);
    if (!browser_) return {};
  }
  for (int i = 0; i < kEventsAtOnce; ++i) {
    if (browser_->Poll(0)) continue;
    browser_.reset();
    return {};
  }
  std::vector<Ipv4Endpoint> places;
  for (const FoundService& service : browser_->Found()) {
    const bool fits = id_.empty()
                          ? IsOfInstallation(service, plugin_) && service.endpoint.port == port_
                          : service.id == id_;
    if (fits) places.push_back(service.endpoint);
  }
  return places;
}

std::string ListOf(const std::vector<FoundService>& services) {
  std::string text;
  for (const FoundService& service : services) {
    text += "  " + service.name + "  " + AddressText(service.endpoint.address) + ":" +
            std::to_string(service.endpoint.port) + "  id=" + service.id +
            "  transmit=" + (service.transmit ? "1" : "0") + "\n";
  }
  return text;
}

}  // namespace Veldrift
