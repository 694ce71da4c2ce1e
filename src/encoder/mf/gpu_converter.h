// The colour conversion on the graphics adapter, with the planes read back into memory.
#pragma once

#include <cstdint>

#include "encoder/mf/conversion_shader.h"
#include "encoder/mf/upload_texture.h"

namespace Veldrift {

// Gives the bytes of ConvertBgraToNv12Scalar. The first failure latches: from there on it answers
// false, and the CPU converts, until Close.
//
// Threads: one at a time, under its owner's lock.
class GpuConverter {
 public:
  // Both outlive the converter.
  GpuConverter(D3dDevice& device, ConversionShader& shader) : device_(device), shader_(shader) {}

  // Converts into packed planes (bgra_to_nv12.h). False, with the planes undefined, if the frame is
  // still to be converted: without a device, latched, or at a frame of odd sides, which latches.
  bool Convert(const BgraPicture& frame, uint8_t* luma, uint8_t* chroma);

  // There is a device, and it hasn't failed.
  bool Usable() const { return device_.Context() != nullptr && !latched_; }

  // Gives the textures back and clears the latch.
  void Close();

 private:
  // One plane of the result: written by the shader, copied to where the CPU can read it.
  struct Plane {
    bool Create(ID3D11Device* device, DXGI_FORMAT format, int32_t width, int32_t height);
    void Release();
    bool Read(ID3D11DeviceContext* context, uint8_t* out, int32_t rowBytes, int32_t rows) const;

    ComPtr<ID3D11Texture2D> texture;
    ComPtr<ID3D11UnorderedAccessView> view;
    ComPtr<ID3D11Texture2D> staging;
  };

  bool Setup(int32_t width, int32_t height);
  bool Run(const BgraPicture& frame, uint8_t* luma, uint8_t* chroma);
  void Latch();
  void ReleaseTextures();

  D3dDevice& device_;
  ConversionShader& shader_;
  UploadTexture upload_;
  Plane luma_;
  Plane chroma_;
  bool latched_ = false;
  uint64_t conversions_ = 0;
};

}  // namespace Veldrift
