#include "encoder/mf/upload_texture.h"

#include <cstring>

namespace Veldrift {

bool UploadTexture::Create(ID3D11Device* device, int32_t width, int32_t height) {
  Release();
  const D3D11_TEXTURE2D_DESC description{.Width = static_cast<UINT>(width),
                                         .Height = static_cast<UINT>(height),
                                         .MipLevels = 1,
                                         .ArraySize = 1,
                                         .Format = DXGI_FORMAT_B8G8R8A8_UNORM,
                                         .SampleDesc = {.Count = 1, .Quality = 0},
                                         .Usage = D3D11_USAGE_DYNAMIC,
                                         .BindFlags = D3D11_BIND_SHADER_RESOURCE,
                                         .CPUAccessFlags = D3D11_CPU_ACCESS_WRITE,
                                         .MiscFlags = 0};
  if (FAILED(device->CreateTexture2D(&description, nullptr, &texture_)) ||
      FAILED(device->CreateShaderResourceView(texture_.Get(), nullptr, &view_))) {
    Release();
    return false;
  }
  width_ = width;
  height_ = height;
  return true;
}

void UploadTexture::Release() {
  view_.Reset();
  texture_.Reset();
  width_ = height_ = 0;
}

bool UploadTexture::Write(ID3D11DeviceContext* context, const BgraPicture& picture) {
  if (!Fits(picture)) return false;
  D3D11_MAPPED_SUBRESOURCE mapped{};
  if (FAILED(context->Map(texture_.Get(), 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) return false;
  auto* out = static_cast<uint8_t*>(mapped.pData);
  const uint8_t* row = picture.pixels;
  for (int32_t y = 0; y < height_; ++y) {
    std::memcpy(out, row, static_cast<size_t>(width_) * 4);
    out += mapped.RowPitch;
    row += picture.strideBytes;
  }
  context->Unmap(texture_.Get(), 0);
  return true;
}

}  // namespace Veldrift
