// What encoding by transforms needs of Windows.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "encoder/mf/conversion_shader.h"
#include "encoder/mf/d3d_device.h"
#include "encoder/mf/gpu_converter.h"
#include "encoder/mf/media_layer.h"
#include "encoder/mf/mf_libraries.h"
#include "encoder/mf/resident_submit.h"
#include "encoder/transform_platform.h"

namespace Veldrift {

// Threads: as the seam says.
class MfPlatform final : public TransformPlatform {
 public:
  explicit MfPlatform(const MfLibraries& libraries = MfLibraries::OfProcess());

  void OpenDevice(const std::string& engineId) override { device_.Open(engineId); }
  void CloseDevice() override;
  void AwaitGpu() override { device_.WaitIdle(); }
  std::vector<std::unique_ptr<TransformCandidate>> Find(TransformClass kind,
                                                        int32_t codec) override;
  std::unique_ptr<TransformSample> MakeSample(size_t bytes, int32_t& error) override;
  bool ConvertOnGpu(FrameInput& frame, uint8_t* luma, uint8_t* chroma) override;
  std::string SetUpResident(const ChosenTransform& chosen) override;
  bool ResidentActive() override { return resident_.Active() && !resident_.Latched(); }
  std::unique_ptr<TransformSample> ResidentSample(FrameInput& frame) override;
  void RefuseResident(int32_t error) override { resident_.Latch(error); }

 private:
  const MfLibraries& libraries_;
  // The last is destroyed first.
  const MediaLayer layer_;
  D3dDevice device_;
  ConversionShader shader_;
  GpuConverter converter_;
  ResidentSubmit resident_;
};

// An encoder over it, not configured. `engineId` as NormaliseEngineId leaves it.
std::unique_ptr<IHardwareEncoder> MakeMfEncoder(const std::string& engineId);

}  // namespace Veldrift
