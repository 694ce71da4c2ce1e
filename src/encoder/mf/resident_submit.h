// Pictures that never leave the graphics adapter: uploaded, converted straight into a texture of a
// pool, and given to the transform as a sample of that texture.
#pragma once

#include <cstdint>
#include <string>

#include "encoder/mf/conversion_shader.h"
#include "encoder/mf/upload_texture.h"
#include "encoder/resident_status.h"

namespace Veldrift {

// What is known of the transform, and the size of the frames.
struct ResidentRequest {
  bool wanted = false;          // ResidentWanted
  bool transformOnGpu = false;  // asynchronous, or it took the device manager
  bool transformAware = false;  // MF_SA_D3D11_AWARE
  int32_t width = 0;
  int32_t height = 0;
};

// The first failure of a frame latches: from there on frames go by the CPU, until the next Setup.
// In the steady state a frame creates no object.
//
// Threads: one at a time, under its owner's lock.
class ResidentSubmit {
 public:
  // All outlive it.
  ResidentSubmit(const MfLibraries& libraries, D3dDevice& device, ConversionShader& shader)
      : libraries_(libraries), device_(device), shader_(shader) {}
  ~ResidentSubmit() { Close(); }
  ResidentSubmit(const ResidentSubmit&) = delete;
  ResidentSubmit& operator=(const ResidentSubmit&) = delete;

  // Prepares everything, in place of what was there. True if frames can be acquired; Status tells
  // why not.
  bool Setup(const ResidentRequest& request);
  // The transform has to be gone. Clears latch and status.
  void Close();

  // Prepared, whether latched or not.
  bool Active() const { return active_; }
  bool Latched() const { return latched_; }
  // Empty before Setup.
  const std::string& Status() const { return status_; }

  // The picture as an NV12 sample which the transform may read at once, without time and duration.
  // Null if the frame is lost: the pool is empty because the transform is behind, or something
  // failed, which latches.
  ComPtr<IMFSample> Acquire(const BgraPicture& picture);

  // The transform refused such a sample with `error`. The first time it is told in the log.
  void Latch(HRESULT error);

 private:
  // The views of a sample's texture through which the shader writes its planes.
  struct PlaneViews {
    ComPtr<ID3D11UnorderedAccessView> luma;
    ComPtr<ID3D11UnorderedAccessView> chroma;
  };

  struct Preparation {
    ResidentOutcome outcome = ResidentOutcome::Active;
    HRESULT result = S_OK;
  };

  Preparation Prepare(const ResidentRequest& request);
  Preparation PrepareAllocator(int32_t width, int32_t height);
  void ReleaseAllocator();
  ComPtr<IMFSample> Allocate();
  bool FindViews(IMFSample& sample, PlaneViews& views) const;
  bool MakeViews(IMFSample& sample, PlaneViews& views) const;
  bool Convert(const BgraPicture& picture, const PlaneViews& views);
  void LatchWith(const std::string& line);

  const MfLibraries& libraries_;
  D3dDevice& device_;
  ConversionShader& shader_;
  UploadTexture upload_;
  ComPtr<IMFVideoSampleAllocatorEx> allocator_;
  bool active_ = false;
  bool latched_ = false;
  std::string status_;
  uint64_t frames_ = 0;
};

}  // namespace Veldrift
