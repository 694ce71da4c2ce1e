#include "encoder/mf/mf_platform.h"

#include <utility>

#include "encoder/encoder_shell.h"
#include "encoder/mf/mf_samples.h"
#include "encoder/mf/mf_transform_source.h"
#include "encoder/resident_status.h"
#include "encoder/transform_backend.h"
#include "identity/install_identity.h"

namespace Veldrift {

MfPlatform::MfPlatform(const MfLibraries& libraries)
    : libraries_(libraries),
      layer_(libraries),
      device_(libraries),
      shader_(libraries, device_),
      converter_(device_, shader_),
      resident_(libraries, device_, shader_) {}

void MfPlatform::CloseDevice() {
  resident_.Close();
  converter_.Close();
  shader_.Release();
  device_.Close();
}

std::vector<std::unique_ptr<TransformCandidate>> MfPlatform::Find(TransformClass kind,
                                                                  int32_t codec) {
  if (!layer_.Started()) return {};
  return FindCandidates(*libraries_.media, kind, codec, device_.Manager());
}

std::unique_ptr<TransformSample> MfPlatform::MakeSample(size_t bytes, int32_t& error) {
  HRESULT result = S_OK;
  std::unique_ptr<TransformSample> sample = MfSample::InMemory(*libraries_.media, bytes, result);
  error = result;
  return sample;
}

// A frame of another size is only scaled in whole for a device that will take it.
bool MfPlatform::ConvertOnGpu(FrameInput& frame, uint8_t* luma, uint8_t* chroma) {
  return converter_.Usable() && converter_.Convert(frame.Picture(), luma, chroma);
}

std::string MfPlatform::SetUpResident(const ChosenTransform& chosen) {
  resident_.Setup(
      {ResidentWanted(chosen.name), chosen.onGpu, chosen.d3d11Aware, chosen.width, chosen.height});
  return resident_.Status();
}

std::unique_ptr<TransformSample> MfPlatform::ResidentSample(FrameInput& frame) {
  ComPtr<IMFSample> sample = resident_.Acquire(frame.Picture());
  return sample ? std::make_unique<MfSample>(std::move(sample)) : nullptr;
}

std::unique_ptr<IHardwareEncoder> MakeMfEncoder(const std::string& engineId) {
  const auto makeBackend = []() -> std::unique_ptr<EncoderBackend> {
    return std::make_unique<TransformBackend>(TransformBackend::Environment{
        std::make_unique<MfPlatform>(), &IsAsyncHwEncodersEnabled, SystemClock()});
  };
  return std::make_unique<EncoderShell>(makeBackend, engineId);
}

}  // namespace Veldrift
