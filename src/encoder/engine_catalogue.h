// The engines of this machine, and the factories of encoders bound to one. The platform supplies
// them: encoder/av/ or encoder/mf/, chosen by the build.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "support/plugin_log.h"

namespace Veldrift {

// One row, as the phone sees it.
struct EngineEntry {
  std::string id;     // what comes back in SetEncoderEngine: "nvidia", "intel", "amd", "software"
  std::string label;  // display name
  std::string note;   // an extra sentence, usually empty
};

// Never fails: the software row is always there, and last.
std::vector<EngineEntry> EnumerateEngines();

// A new encoder bound to the engine, not configured. Null if the platform has no encoder at all.
std::unique_ptr<IHardwareEncoder> CreateForEngine(const std::string& id);

// A new encoder with no engine chosen ("auto"). Null if the platform has no encoder at all.
std::unique_ptr<IHardwareEncoder> CreateDefaultEncoder();

// ---- What the platforms build these with ----

// The families of hardware encoders that this machine has.
struct HardwareSeen {
  bool nvidia = false;
  bool intel = false;
  bool amd = false;
  bool other = false;

  bool Any() const { return nvidia || intel || amd || other; }
};

// Which family a vendor's text stands for, such as "VEN_10DE&DEV_2204": the PCI id of the maker is
// looked for in it, in any case. An empty text is no hardware.
void NoteVendor(std::string_view vendor, HardwareSeen& seen);

// A row for each family that can be chosen, and the software row, whose note is `softwareNote` if
// there is hardware of any kind, and a warning else.
std::vector<EngineEntry> EngineRows(const HardwareSeen& offered, const HardwareSeen& seen,
                                    const char* softwareNote);

// The line that tells what EnumerateEngines found.
void LogEngines(const LogCategory& category, const HardwareSeen& seen, size_t rows);

// An engine id as encoders keep it: lower case in the C locale, "auto" for an empty one.
std::string NormaliseEngineId(std::string_view id);

// "software", or "sw" as some phones say.
bool IsSoftwareEngine(std::string_view engineId);

// The id names an engine, so that only encoders of that family should do. "auto" doesn't, nor does
// an id that nobody knows.
bool IsExplicitEngine(std::string_view engineId);

// An encoder whose hardware has this vendor's text, empty for software, belongs to the engine.
bool EngineMatches(std::string_view vendor, std::string_view engineId);

}  // namespace Veldrift
