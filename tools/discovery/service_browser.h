// Finds plug-ins on the local network by DNS-SD, as a phone does: an embedded browser that
// publishes nothing and needs no daemon.
//
// Threads: one thread uses it; everything happens inside Poll.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/socket.h"

namespace Veldrift {

// One host application of an installation, as it was last resolved.
struct FoundService {
  std::string instance;  // the label, unique on the network
  std::string hostName;
  Ipv4Endpoint endpoint;  // of the control connection
  // Of the TXT record; empty or false where a key is missing.
  std::string version;
  std::string id;  // the installation's, with the host's suffix ("-ae")
  std::string name;
  bool transmit = false;
};

// Whether the service belongs to the installation `id`, whatever the host.
bool IsOfInstallation(const FoundService& service, const std::string& id);

class ServiceBrowser {
 public:
  virtual ~ServiceBrowser() = default;

  // Works on what the network brings for up to `milliseconds`; returns early when something came.
  // False: the browser has failed and finds nothing more.
  virtual bool Poll(int milliseconds) = 0;

  // In the order of their appearance, without those that have gone.
  virtual std::vector<FoundService> Found() const = 0;
};

// Null, with a reason in `error`, if there is no network to look at.
std::unique_ptr<ServiceBrowser> OpenServiceBrowser(std::string& error);

}  // namespace Veldrift
