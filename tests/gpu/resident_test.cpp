// Samples that stay on an adapter whose driver lets the shader write NV12 by plane.
#include <gmock/gmock.h>

#include "encoder/mf/resident_submit.h"
#include "platform/system.h"
#include "tests/gpu/context_doubles.h"
#include "tests/gpu/gpu_fixture.h"
#include "tests/gpu/scripted_allocator.h"
#include "tests/support/eventually.h"

namespace Veldrift {
namespace {

constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 360;
constexpr int kPool = 16;

class ResidentTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    resident_.Setup(request_);
  }

  // Luma and chroma of the sample's texture, copied out by the device.
  std::vector<uint8_t> ReadBack(IMFSample* sample) {
    ComPtr<IMFMediaBuffer> buffer;
    ComPtr<IMFDXGIBuffer> dxgi;
    ComPtr<ID3D11Texture2D> texture;
    UINT slice = 0;
    EXPECT_EQ(sample->GetBufferByIndex(0, &buffer), S_OK);
    EXPECT_EQ(buffer.As(&dxgi), S_OK);
    EXPECT_EQ(dxgi->GetResource(IID_PPV_ARGS(&texture)), S_OK);
    EXPECT_EQ(dxgi->GetSubresourceIndex(&slice), S_OK);
    D3D11_TEXTURE2D_DESC description{};
    texture->GetDesc(&description);
    EXPECT_EQ(description.Format, DXGI_FORMAT_NV12);
    description.ArraySize = 1;
    description.Usage = D3D11_USAGE_STAGING;
    description.BindFlags = 0;
    description.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    description.MiscFlags = 0;
    ComPtr<ID3D11Texture2D> staging;
    EXPECT_EQ(device_.Device()->CreateTexture2D(&description, nullptr, &staging), S_OK);
    device_.Context()->CopySubresourceRegion(staging.Get(), 0, 0, 0, 0, texture.Get(), slice,
                                             nullptr);
    return Planes(staging.Get(), description.Height);
  }

  ComPtr<ID3D11Texture2D> MakeArray(UINT slices) {
    const D3D11_TEXTURE2D_DESC description = {
        kWidth, kHeight, 1, slices, DXGI_FORMAT_NV12, {1, 0}, D3D11_USAGE_DEFAULT, 0xA8, 0, 0};
    ComPtr<ID3D11Texture2D> texture;
    EXPECT_EQ(device_.Device()->CreateTexture2D(&description, nullptr, &texture), S_OK);
    return texture;
  }

  ComPtr<IMFSample> SampleOf(ID3D11Texture2D* texture, UINT slice) {
    using Create = HRESULT(WINAPI*)(REFIID, IUnknown*, UINT, BOOL, IMFMediaBuffer**);
    const auto create = reinterpret_cast<Create>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("mfplat.dll"), "MFCreateDXGISurfaceBuffer")));
    ComPtr<IMFMediaBuffer> buffer;
    ComPtr<IMFSample> sample;
    EXPECT_EQ(create(__uuidof(ID3D11Texture2D), texture, slice, FALSE, &buffer), S_OK);
    EXPECT_EQ(libraries_.media->createSample(&sample), S_OK);
    EXPECT_EQ(sample->AddBuffer(buffer.Get()), S_OK);
    return sample;
  }

  // The platform takes samples back on a thread of its own, and until then the pool may be empty.
  ComPtr<IMFSample> AcquireSoon(const NoiseFrame& frame) {
    ComPtr<IMFSample> sample;
    EXPECT_TRUE(Eventually([&] {
      sample = resident_.Acquire(frame.Picture());
      return sample != nullptr || resident_.Latched();
    }));
    return sample;
  }

  bool ShowsFrame(IMFSample* sample, const NoiseFrame& frame) {
    return sample != nullptr && Differences(ReadBack(sample), frame.Nv12()) == 0;
  }

  ResidentRequest request_{.wanted = true,
                           .transformOnGpu = true,
                           .transformAware = true,
                           .width = kWidth,
                           .height = kHeight};
  ResidentSubmit resident_{libraries_, device_, shader_};

 private:
  std::vector<uint8_t> Planes(ID3D11Texture2D* staging, UINT textureHeight) {
    D3D11_MAPPED_SUBRESOURCE mapped{};
    EXPECT_EQ(device_.Context()->Map(staging, 0, D3D11_MAP_READ, 0, &mapped), S_OK);
    if (mapped.pData == nullptr) return {};
    const auto* luma = static_cast<const uint8_t*>(mapped.pData);
    const uint8_t* chroma = luma + static_cast<size_t>(mapped.RowPitch) * textureHeight;
    std::vector<uint8_t> planes;
    for (int32_t y = 0; y < kHeight * 3 / 2; ++y) {
      const uint8_t* row = y < kHeight
                               ? luma + static_cast<size_t>(y) * mapped.RowPitch
                               : chroma + static_cast<size_t>(y - kHeight) * mapped.RowPitch;
      planes.insert(planes.end(), row, row + kWidth);
    }
    device_.Context()->Unmap(staging, 0);
    return planes;
  }
};

using Resident = ResidentTest;

TEST_F(Resident, IsActiveAndSaysWhatTheTransformKnows) {
  EXPECT_TRUE(resident_.Active());
  EXPECT_EQ(resident_.Status(),
            "ACTIVE (allocator ready; MF_SA_D3D11_AWARE=yes, D3D mgr accepted)");
  request_.transformAware = false;
  EXPECT_TRUE(resident_.Setup(request_));
  EXPECT_EQ(resident_.Status(), "ACTIVE (allocator ready; MF_SA_D3D11_AWARE=no, D3D mgr accepted)");
}

// More frames than the pool has samples, one sample held back by the transform.
TEST_F(Resident, ItsSamplesHaveTheBytesOfThePlainConversion) {
  const NoiseFrame first(kWidth, kHeight, 1);
  const ComPtr<IMFSample> held = resident_.Acquire(first.Picture());
  for (uint32_t seed = 2; seed < 2 + 2 * kPool; ++seed) {
    const NoiseFrame frame(kWidth, kHeight, seed);
    EXPECT_TRUE(ShowsFrame(AcquireSoon(frame).Get(), frame)) << "seed " << seed;
  }
  EXPECT_TRUE(ShowsFrame(held.Get(), first));
  EXPECT_FALSE(resident_.Latched());
}

// A transform may read it from a device of its own, to which this one's order says nothing.
TEST_F(Resident, ASampleIsGivenAwayWhenTheAdapterIsThroughWithIt) {
  const NoiseFrame frame(kWidth, kHeight, 1);
  const ContextWatch watch(device_.Context());
  EXPECT_TRUE(resident_.Acquire(frame.Picture()) != nullptr);
  const bool forbidden = GetEnvironment("VD_NO_FENCE") == "1";
  EXPECT_EQ(watch.Deeds(), forbidden ? "DF" : "DER");
}

// As some drivers make their pools: one texture, of which a sample has a slice.
TEST_F(Resident, ASliceOfAnArrayIsWrittenAndNoOther) {
  ScriptedAllocator allocator;
  scriptedAllocator = &allocator;
  libraries_.media->createSampleAllocator = GiveScriptedAllocator;
  ASSERT_TRUE(resident_.Setup(request_));
  const ComPtr<ID3D11Texture2D> texture = MakeArray(3);
  ASSERT_TRUE(texture != nullptr);
  std::vector<ComPtr<IMFSample>> samples;
  for (const UINT slice : {2U, 0U, 1U}) {
    samples.push_back(allocator.next = SampleOf(texture.Get(), slice));
    ASSERT_TRUE(resident_.Acquire(NoiseFrame(kWidth, kHeight, slice).Picture()) != nullptr);
  }
  EXPECT_TRUE(ShowsFrame(samples[0].Get(), NoiseFrame(kWidth, kHeight, 2)));
  EXPECT_TRUE(ShowsFrame(samples[1].Get(), NoiseFrame(kWidth, kHeight, 0)));
  EXPECT_TRUE(ShowsFrame(samples[2].Get(), NoiseFrame(kWidth, kHeight, 1)));
}

TEST_F(Resident, ASampleSaysThatItsBufferIsFull) {
  const ComPtr<IMFSample> sample = resident_.Acquire(NoiseFrame(kWidth, kHeight, 1).Picture());
  ASSERT_TRUE(sample != nullptr);
  DWORD length = 0;
  EXPECT_EQ(sample->GetTotalLength(&length), S_OK);
  EXPECT_EQ(length, DWORD{kWidth * kHeight * 3 / 2});
}

TEST_F(Resident, AnEmptyPoolCostsTheFrameAndNothingElse) {
  const NoiseFrame frame(kWidth, kHeight, 7);
  std::vector<ComPtr<IMFSample>> held;
  for (int i = 0; i < kPool; ++i) held.push_back(resident_.Acquire(frame.Picture()));
  EXPECT_THAT(held, testing::Each(testing::Truly([](const auto& s) { return s != nullptr; })));
  EXPECT_TRUE(resident_.Acquire(frame.Picture()) == nullptr);
  EXPECT_FALSE(resident_.Latched());
  held.pop_back();
  EXPECT_TRUE(ShowsFrame(AcquireSoon(frame).Get(), frame));
}

// The steady state makes no views: a sample that comes back brings those that it was given.
TEST_F(Resident, ASampleKeepsTheViewsOfItsPlanes) {
  constexpr GUID kLumaView = {
      0x7E2B9A40, 0x1C3D, 0x4F5E, {0x8A, 0x6B, 0x10, 0x21, 0x32, 0x43, 0x54, 0x65}};
  const NoiseFrame frame(kWidth, kHeight, 7);
  std::vector<std::pair<IMFSample*, ID3D11UnorderedAccessView*>> seen;
  for (int i = 0; i < 2 * kPool; ++i) {
    const ComPtr<IMFSample> sample = AcquireSoon(frame);
    ASSERT_TRUE(sample != nullptr);
    ComPtr<ID3D11UnorderedAccessView> view;
    ASSERT_EQ(sample->GetUnknown(kLumaView, IID_PPV_ARGS(&view)), S_OK);
    for (const auto& [known, itsView] : seen) {
      EXPECT_TRUE(known != sample.Get() || itsView == view.Get());
    }
    seen.emplace_back(sample.Get(), view.Get());
  }
}

TEST_F(Resident, APictureThatCantBeUploadedLatchesUntilTheNextSetup) {
  EXPECT_TRUE(resident_.Acquire(NoiseFrame(kWidth, kHeight + 2, 1).Picture()) == nullptr);
  EXPECT_TRUE(resident_.Latched());
  EXPECT_TRUE(resident_.Active());
  EXPECT_TRUE(resident_.Setup(request_));
  EXPECT_FALSE(resident_.Latched());
  const NoiseFrame frame(kWidth, kHeight, 2);
  EXPECT_TRUE(ShowsFrame(resident_.Acquire(frame.Picture()).Get(), frame));
}

TEST_F(Resident, ItCanBeClosedWithASampleStillOutside) {
  const NoiseFrame frame(kWidth, kHeight, 3);
  const ComPtr<IMFSample> sample = resident_.Acquire(frame.Picture());
  resident_.Close();
  EXPECT_FALSE(resident_.Active());
  EXPECT_EQ(resident_.Status(), "");
  EXPECT_TRUE(ShowsFrame(sample.Get(), frame));
}

}  // namespace
}  // namespace Veldrift
