#include "encoder/engine_catalogue.h"

#include <algorithm>

#include "support/text.h"

namespace Veldrift {
namespace {

constexpr const char* kNoteWithoutHardware =
    "No hardware encoder detected. Using CPU — expect higher CPU load and lower quality.";

// The makers' PCI ids, as they stand in a vendor's text.
struct Family {
  std::string_view engineId;
  std::string_view pciId;  // lower case
  bool HardwareSeen::*seen;
};
constexpr Family kFamilies[] = {
    {"nvidia", "10de", &HardwareSeen::nvidia},
    {"intel", "8086", &HardwareSeen::intel},
    {"amd", "1002", &HardwareSeen::amd},
};

}  // namespace

void NoteVendor(std::string_view vendor, HardwareSeen& seen) {
  if (vendor.empty()) return;
  const std::string text = LowerCase(vendor);
  for (const Family& family : kFamilies) {
    if (text.find(family.pciId) != std::string::npos) {
      seen.*family.seen = true;
      return;
    }
  }
  seen.other = true;
}

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

bool IsExplicitEngine(std::string_view engineId) {
  if (IsSoftwareEngine(engineId)) return true;
  return std::ranges::any_of(kFamilies,
                             [&](const Family& family) { return family.engineId == engineId; });
}

bool EngineMatches(std::string_view vendor, std::string_view engineId) {
  if (IsSoftwareEngine(engineId)) return vendor.empty();
  for (const Family& family : kFamilies) {
    if (family.engineId == engineId) {
      return LowerCase(vendor).find(family.pciId) != std::string::npos;
    }
  }
  return true;
}

}  // namespace Veldrift
