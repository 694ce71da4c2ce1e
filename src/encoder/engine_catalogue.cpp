#include "encoder/engine_catalogue.h"

#include "support/text.h"

namespace Veldrift {
namespace {

constexpr const char* kNoteWithoutHardware =
    "No hardware encoder detected. Using CPU — expect higher CPU load and lower quality.";

}  // namespace

std::vector<EngineEntry> EngineRows(const HardwareSeen& offered, const HardwareSeen& seen,
                                    const char* softwareNote) {
  std::vector<EngineEntry> rows;
  if (offered.nvidia) rows.push_back({"nvidia", "NVIDIA NVENC", ""});
  if (offered.intel) rows.push_back({"intel", "Intel Quick Sync", ""});
  if (offered.amd) rows.push_back({"amd", "AMD AMF", ""});
  rows.push_back({"software", "Software (CPU)", seen.Any() ? softwareNote : kNoteWithoutHardware});
  return rows;
}

void LogEngines(const LogCategory& category, const HardwareSeen& seen, size_t rows) {
  PluginLog(category, kLogInfo,
            "EnumerateEngines: nvidia=%d intel=%d amd=%d other=%d → %zu entries", seen.nvidia,
            seen.intel, seen.amd, seen.other, rows);
}

std::string NormaliseEngineId(std::string_view id) { return id.empty() ? "auto" : LowerCase(id); }

bool IsSoftwareEngine(std::string_view engineId) {
  return engineId == "software" || engineId == "sw";
}

}  // namespace Veldrift
