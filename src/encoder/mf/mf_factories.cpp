// The engines of Windows. There is no encoder behind them yet: null is a valid answer, and a
// session without an encoder stays dormant.

#include "encoder/engine_catalogue.h"
#include "encoder/platform_self_test.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "factories_win"};

constexpr const char* kNoteWithoutHardware =
    "No hardware encoder detected. Using CPU — expect higher CPU load and lower quality.";

}  // namespace

std::vector<EngineEntry> EnumerateEngines() {
  std::vector<EngineEntry> entries{{"software", "Software (CPU)", kNoteWithoutHardware}};
  PluginLog(kCategory, kLogInfo,
            "EnumerateEngines: nvidia=%d intel=%d amd=%d other=%d → %zu entries", 0, 0, 0, 0,
            entries.size());
  return entries;
}

std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string&) { return nullptr; }

std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder() { return nullptr; }

bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result) {
  result = "no platform encoder to run " + name + " on";
  return false;
}

}  // namespace Veldrift
