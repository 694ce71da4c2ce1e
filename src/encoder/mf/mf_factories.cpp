// The engines of Windows. There is no encoder behind them yet: null is a valid answer, and a
// session without an encoder stays dormant.

#include "encoder/engine_catalogue.h"
#include "encoder/platform_self_test.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "factories_win"};

constexpr const char* kSoftwareNote = "CPU encoder (Media Foundation software MFT)";

}  // namespace

std::vector<EngineEntry> EnumerateEngines() {
  const HardwareSeen seen;
  std::vector<EngineEntry> entries = EngineRows(seen, seen, kSoftwareNote);
  LogEngines(kCategory, seen, entries.size());
  return entries;
}

std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string&) { return nullptr; }

std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder() { return nullptr; }

bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result) {
  if (name == "P6.2") {
    result = "no platform encoder to run " + name + " on";
    return false;
  }
  return RaceOutputPort(result);
}

}  // namespace Veldrift
