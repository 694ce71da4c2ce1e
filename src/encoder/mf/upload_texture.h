// The way of a picture into the graphics adapter.
#pragma once

#include "encoder/mf/com_scope.h"
#include "encoder/nearest_scale.h"

namespace Veldrift {

// A texture that the CPU writes anew for each picture and the shader reads.
//
// Threads: one at a time, under the lock of who uses the device.
class UploadTexture {
 public:
  // In place of an earlier one. False, with none, if the device refuses.
  bool Create(ID3D11Device* device, int32_t width, int32_t height);
  void Release();

  // Copies the picture. False if there is no texture, or one of another size, or the device refuses
  // to have it written.
  bool Write(ID3D11DeviceContext* context, const BgraPicture& picture);

  bool Fits(const BgraPicture& picture) const {
    return view_ != nullptr && picture.width == width_ && picture.height == height_;
  }
  // Null without a texture.
  ID3D11ShaderResourceView* View() const { return view_.Get(); }

 private:
  ComPtr<ID3D11Texture2D> texture_;
  ComPtr<ID3D11ShaderResourceView> view_;
  int32_t width_ = 0;
  int32_t height_ = 0;
};

}  // namespace Veldrift
