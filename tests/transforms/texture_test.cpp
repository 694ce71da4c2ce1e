// Pictures that lie in Direct3D textures, where Wine can make such textures: not every one can.
#include <d3d10.h>
#include <d3d11.h>
#include <gtest/gtest.h>
#include <mfapi.h>

#include <algorithm>
#include <vector>

#include "tests/transforms/client/scenario.h"
#include "tests/transforms/encoder_client.h"

namespace Veldrift::Transforms {
namespace {

class Textures : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const UINT flags = D3D11_CREATE_DEVICE_VIDEO_SUPPORT | D3D11_CREATE_DEVICE_BGRA_SUPPORT;
    D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, flags, nullptr, 0,
                      D3D11_SDK_VERSION, device_.Put(), nullptr, context_.Put());
    if (!device_) GTEST_SKIP() << "this Wine has no Direct3D device";
    // The encoder reads on a thread of its own.
    ComPtr<ID3D10Multithread> threads;
    if (SUCCEEDED(context_->QueryInterface(__uuidof(ID3D10Multithread), threads.PutVoid()))) {
      threads->SetMultithreadProtected(TRUE);
    }
    if (!MakeTexture(kHeight, D3D11_USAGE_DEFAULT, D3D11_BIND_SHADER_RESOURCE, 0)) {
      GTEST_SKIP() << "this Wine's Direct3D has no NV12 textures";
    }
  }

  ComPtr<ID3D11Texture2D> MakeTexture(UINT height, D3D11_USAGE usage, UINT bind, UINT access) {
    const D3D11_TEXTURE2D_DESC description = {kWidth, height, 1,    1,      DXGI_FORMAT_NV12,
                                              {1, 0}, usage,  bind, access, 0};
    ComPtr<ID3D11Texture2D> texture;
    device_->CreateTexture2D(&description, nullptr, texture.Put());
    return texture;
  }

  // The first picture in a texture of as many rows or more.
  ComPtr<IMFSample> SampleInTexture(UINT height) {
    const auto staging = MakeTexture(height, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_WRITE);
    const auto texture = MakeTexture(height, D3D11_USAGE_DEFAULT, D3D11_BIND_SHADER_RESOURCE, 0);
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    if (!staging || !texture ||
        FAILED(context_->Map(staging.Get(), 0, D3D11_MAP_WRITE, 0, &mapped))) {
      return {};
    }
    const std::vector<uint8_t> picture = PictureAt(0);
    for (UINT row = 0; row < kHeight * 3 / 2; ++row) {
      const UINT to = row < kHeight ? row : height + row - kHeight;
      std::copy_n(&picture[size_t{row} * kWidth], kWidth,
                  static_cast<uint8_t*>(mapped.pData) + size_t{to} * mapped.RowPitch);
    }
    context_->Unmap(staging.Get(), 0);
    context_->CopyResource(texture.Get(), staging.Get());
    ComPtr<IMFMediaBuffer> buffer;
    MFCreateDXGISurfaceBuffer(__uuidof(ID3D11Texture2D), texture.Get(), 0, FALSE, buffer.Put());
    ComPtr<IMFSample> sample = SampleOf(picture, 0);
    sample->RemoveAllBuffers();
    sample->AddBuffer(buffer.Get());
    return sample;
  }

  ComPtr<IMFDXGIDeviceManager> Manager() {
    UINT token = 0;
    ComPtr<IMFDXGIDeviceManager> manager;
    MFCreateDXGIDeviceManager(&token, manager.Put());
    manager->ResetDevice(device_.Get(), token);
    return manager;
  }

  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, Textures, testing::Values("nvidia", "nvidia-async"),
                         [](const auto& kind) {
                           return std::string(kind.param) == "nvidia" ? "synchronous"
                                                                      : "asynchronous";
                         });

TEST_P(Textures, BecomeTheSameStreamAsMemory) {
  const Scenario scenario(GetParam());
  std::vector<std::vector<uint8_t>> streams;
  constexpr UINT kTaller = kHeight + 48;
  for (const auto& sample :
       {SampleOf(PictureAt(0), 0), SampleInTexture(kHeight), SampleInTexture(kTaller)}) {
    ASSERT_TRUE(sample);
    EncoderClient encoder(true);
    const auto manager = Manager();
    ASSERT_EQ(encoder.Activate(), S_OK);
    ASSERT_EQ(encoder.Unlock(), S_OK);
    ASSERT_EQ(
        encoder.Message(MFT_MESSAGE_SET_D3D_MANAGER, reinterpret_cast<ULONG_PTR>(manager.Get())),
        S_OK);
    ASSERT_EQ(encoder.NegotiateOutput(), S_OK);
    ASSERT_EQ(encoder.NegotiateInput(), S_OK);
    ASSERT_EQ(encoder.Start(), S_OK);
    Unit unit;
    ASSERT_EQ(encoder.EncodeOne(*sample.Get(), unit), S_OK);
    streams.push_back(unit.bytes);
  }
  EXPECT_EQ(streams[0], streams[1]);
  EXPECT_EQ(streams[0], streams[2]);
}

}  // namespace
}  // namespace Veldrift::Transforms
