#include "encoder/resident_status.h"

#include <algorithm>

#include "encoder/hresult_name.h"
#include "platform/system.h"

namespace Veldrift {

bool ResidentWanted(const std::optional<std::string>& variable, std::string_view friendlyName) {
  if (variable == "1") return true;
  if (variable == "0") return false;
  constexpr std::string_view kKnown[] = {"NVIDIA", "Nvidia", "nvidia", "Intel", "intel"};
  return std::any_of(std::begin(kKnown), std::end(kKnown), [&](std::string_view known) {
    return friendlyName.find(known) != std::string_view::npos;
  });
}

bool ResidentWanted(std::string_view friendlyName) {
  static const std::optional<std::string> variable = GetEnvironment("VD_GPU_RESIDENT_ENCODE");
  return ResidentWanted(variable, friendlyName);
}

bool FenceForbidden(const std::optional<std::string>& variable) { return variable == "1"; }

bool FenceForbidden() {
  static const bool forbidden = FenceForbidden(GetEnvironment("VD_NO_FENCE"));
  return forbidden;
}

std::optional<ResidentOutcome> ResidentObstacle(const ResidentFacts& facts) {
  if (!facts.wanted) return ResidentOutcome::NotWanted;
  if (!facts.deviceComplete) return ResidentOutcome::NoDevice;
  if (!facts.transformOnGpu) return ResidentOutcome::TransformNotOnGpu;
  if (facts.width % 2 != 0 || facts.height % 2 != 0) return ResidentOutcome::OddSize;
  return std::nullopt;
}

std::string ResidentStatus(ResidentOutcome outcome, uint32_t result, bool transformAware) {
  switch (outcome) {
    case ResidentOutcome::NotWanted:
      return "off (auto-default is NVIDIA-only; non-NVIDIA encoder or VD_GPU_RESIDENT_ENCODE=0)";
    case ResidentOutcome::NoDevice:
      return "n/a (no D3D11 device/manager)";
    case ResidentOutcome::TransformNotOnGpu:
      return "n/a (MFT not on GPU — SET_D3D_MANAGER rejected)";
    case ResidentOutcome::OddSize:
      return "n/a (odd dimensions)";
    case ResidentOutcome::NoShader:
      return "fallback (shader compile failed)";
    case ResidentOutcome::NoUploadTexture:
      return "fallback (BGRA upload texture create failed)";
    case ResidentOutcome::NoAllocator:
      return "fallback (MFCreateVideoSampleAllocatorEx " + HresultName(result) + ")";
    case ResidentOutcome::NoAttributes:
      return "fallback (MFCreateAttributes failed)";
    case ResidentOutcome::NoMediaType:
      return "fallback (NV12 media type create failed)";
    case ResidentOutcome::AllocatorRefused:
      return "fallback (InitializeSampleAllocatorEx " + HresultName(result) +
             " — driver likely rejects UAV-bound NV12)";
    case ResidentOutcome::Active:
      break;
  }
  return std::string("ACTIVE (allocator ready; MF_SA_D3D11_AWARE=") +
         (transformAware ? "yes" : "no") + ", D3D mgr accepted)";
}

}  // namespace Veldrift
