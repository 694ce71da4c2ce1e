// The engines of this machine, and the factories of encoders bound to one. The platform supplies
// them: encoder/av/ or encoder/mf/, chosen by the build.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "encoder/hardware_encoder.h"

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

// An engine id as encoders keep it: lower case in the C locale, "auto" for an empty one.
std::string NormaliseEngineId(std::string_view id);

}  // namespace Veldrift
