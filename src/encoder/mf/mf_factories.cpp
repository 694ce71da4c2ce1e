// The engines of Windows, and the encoders bound to them.

#include "encoder/engine_catalogue.h"
#include "encoder/mf/media_layer.h"
#include "encoder/mf/mf_platform.h"
#include "encoder/mf/mf_transform_source.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "factories_win"};

constexpr const char* kSoftwareNote = "CPU encoder (Media Foundation software MFT)";

}  // namespace

std::vector<EngineEntry> EnumerateEngines() {
  const MfLibraries& libraries = MfLibraries::OfProcess();
  const MediaLayerVisit visit(libraries);
  const HardwareSeen seen = libraries.media ? FindHardware(*libraries.media) : HardwareSeen{};
  std::vector<EngineEntry> entries = EngineRows(seen, seen, kSoftwareNote);
  LogEngines(kCategory, seen, entries.size());
  return entries;
}

std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string& id) {
  return MakeMfEncoder(NormaliseEngineId(id));
}

std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder() { return MakeMfEncoder("auto"); }

}  // namespace Veldrift
