// The compute shader of bgra_to_nv12_shader.h on a device.
#pragma once

#include "encoder/mf/d3d_device.h"

namespace Veldrift {

// Threads: one at a time, under the lock of who uses the device.
class ConversionShader {
 public:
  // Both outlive the shader.
  ConversionShader(const MfLibraries& libraries, const D3dDevice& device)
      : libraries_(libraries), device_(device) {}

  // Compiles it, unless that is done already. False, told in the log unless it is for want of a
  // device, if there is no shader; the next call tries again.
  bool Prepare();
  void Release() { shader_.Reset(); }
  bool Ready() const { return shader_ != nullptr; }

  // Queues the conversion of a picture of that size. Only while it is ready.
  void Run(ID3D11ShaderResourceView* picture, ID3D11UnorderedAccessView* luma,
           ID3D11UnorderedAccessView* chroma, int32_t width, int32_t height) const;

 private:
  ComPtr<ID3DBlob> Compile() const;

  const MfLibraries& libraries_;
  const D3dDevice& device_;
  ComPtr<ID3D11ComputeShader> shader_;
};

}  // namespace Veldrift
