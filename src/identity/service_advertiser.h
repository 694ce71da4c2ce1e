// How a phone finds the plug-in without typing an address.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Veldrift {

struct ServiceInfo {
  std::string id;
  std::string name;
  int32_t transmit = 0;  // not 0: the host's transmit is active

  bool operator==(const ServiceInfo&) const = default;
};

// Advertises this installation on the local network by DNS-SD, until it is stopped or destroyed.
// Threads: Start, UpdateTxt and Stop come from one thread at a time; IsRegistered from any.
class IServiceAdvertiser {
 public:
  virtual ~IServiceAdvertiser() = default;

  // Publishes the service on `port`. False: it couldn't be, and nothing is left behind.
  virtual bool Start(uint16_t port, const ServiceInfo& info) = 0;

  // Replaces what the service tells about itself. False: it isn't published, or that failed.
  virtual bool UpdateTxt(const ServiceInfo& info) = 0;

  virtual void Stop() = 0;

  virtual bool IsRegistered() = 0;
};

// The platform's advertiser. Null is a valid answer: there is none, and phones connect by address.
std::unique_ptr<IServiceAdvertiser> CreateServiceAdvertiser();

}  // namespace Veldrift
