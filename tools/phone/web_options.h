// Where the page for browsers is served, and with which keys.
#pragma once

#include <filesystem>
#include <string>

#include "platform/socket.h"

namespace Veldrift {

struct WebOptions {
  bool on = false;
  Ipv4Endpoint local;             // where the page is served
  std::filesystem::path keyFile;  // empty: the keys are this run's
};

// "[ADDR:]PORT"; without an address it is this machine's own alone. False: it is something else.
bool ParseWebPlace(const std::string& text, Ipv4Endpoint& local);

}  // namespace Veldrift
