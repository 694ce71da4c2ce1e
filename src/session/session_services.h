// What a transmit instance gets from outside: the process's own, or a test's.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "encoder/engine_catalogue.h"
#include "session/shared_transport.h"

struct SessionServices {
  SharedTransport& transport;
  std::function<std::unique_ptr<Veldrift::IHardwareEncoder>()> createDefaultEncoder =
      Veldrift::CreateDefaultEncoder;
  std::function<std::unique_ptr<Veldrift::IHardwareEncoder>(const std::string&)> createForEngine =
      Veldrift::CreateForEngine;
  std::function<std::vector<Veldrift::EngineEntry>()> enumerateEngines = Veldrift::EnumerateEngines;
};
