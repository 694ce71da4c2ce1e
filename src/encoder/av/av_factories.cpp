#include "encoder/av/av_backend.h"
#include "encoder/av/av_engine_probe.h"
#include "encoder/engine_catalogue.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "factories_av"};

constexpr const char* kSoftwareNote = "CPU encoder (libavcodec software encoder)";

}  // namespace

// A row is an offer, and the backend drives software codecs only: hardware that is there changes
// the note and gets no row.
std::vector<EngineEntry> EnumerateEngines() {
  const HardwareSeen& seen = ProbeHardwareEncoders();
  std::vector<EngineEntry> entries = EngineRows({}, seen, kSoftwareNote);
  LogEngines(kCategory, seen, entries.size());
  return entries;
}

std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string& id) {
  const std::string engine = NormaliseEngineId(id);
  if (engine != "auto" && !IsSoftwareEngine(engine)) {
    PluginLog(kCategory, kLogInfo, "engine '%s' has no encoder here — using the software encoder",
              engine.c_str());
  }
  return MakeAvEncoder(engine);
}

std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder() {
  return MakeAvEncoder(NormaliseEngineId({}));
}

}  // namespace Veldrift
