#include "encoder/av/av_encoder.h"
#include "encoder/av/av_engine_probe.h"
#include "encoder/engine_catalogue.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "factories_av"};

constexpr const char* kNoteBesideHardware = "CPU encoder (libavcodec software encoder)";
constexpr const char* kNoteWithoutHardware =
    "No hardware encoder detected. Using CPU — expect higher CPU load and lower quality.";

}  // namespace

// A row is an offer, and AvEncoder drives software codecs only: hardware that is there changes the
// note and gets no row.
std::vector<EngineEntry> EnumerateEngines() {
  const HardwareSeen& seen = ProbeHardwareEncoders();
  std::vector<EngineEntry> entries{
      {"software", "Software (CPU)", seen.Any() ? kNoteBesideHardware : kNoteWithoutHardware}};
  PluginLog(kCategory, kLogInfo,
            "EnumerateEngines: nvidia=%d intel=%d amd=%d other=%d → %zu entries", seen.nvidia,
            seen.intel, seen.amd, seen.other, entries.size());
  return entries;
}

std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string& id) {
  const std::string engine = NormaliseEngineId(id);
  if (engine != "auto" && engine != "software" && engine != "sw") {
    PluginLog(kCategory, kLogInfo, "engine '%s' has no encoder here — using the software encoder",
              engine.c_str());
  }
  return std::make_unique<AvEncoder>(engine);
}

std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder() {
  return std::make_unique<AvEncoder>(NormaliseEngineId({}));
}

}  // namespace Veldrift
