// GPU-resident submit, the way on which a picture never leaves the graphics adapter: when it is
// wanted, and what is said about it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Veldrift {

// Whether it is wanted for the transform of that friendly name: the variable's "1" or "0" decides,
// anything else leaves it to the name, of which NVIDIA's and Intel's are known to take it.
bool ResidentWanted(const std::optional<std::string>& variable, std::string_view friendlyName);
// The same by this process's VD_GPU_RESIDENT_ENCODE, which is read once.
bool ResidentWanted(std::string_view friendlyName);

// No wait for the adapter behind a conversion: the variable is "1".
bool FenceForbidden(const std::optional<std::string>& variable);
// The same by this process's VD_NO_FENCE, which is read once.
bool FenceForbidden();

// How the preparation ended, in the order in which it is gone through.
enum class ResidentOutcome {
  NotWanted,
  NoDevice,
  TransformNotOnGpu,
  OddSize,
  NoShader,
  NoUploadTexture,
  NoAllocator,
  NoAttributes,
  NoMediaType,
  AllocatorRefused,
  Active,
};

// What is known before anything is made.
struct ResidentFacts {
  bool wanted = false;
  bool deviceComplete = false;  // device, context and manager
  bool transformOnGpu = false;
  int32_t width = 0;
  int32_t height = 0;
};

// What forbids it; nothing if it can be prepared.
std::optional<ResidentOutcome> ResidentObstacle(const ResidentFacts& facts);

// The status as the log and the self-test show it. `result` is the platform's, for the two
// outcomes that tell it; `transformAware`: the transform says that it knows Direct3D 11.
std::string ResidentStatus(ResidentOutcome outcome, uint32_t result, bool transformAware);

}  // namespace Veldrift
