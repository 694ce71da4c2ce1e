// What an adapter or a Windows that refuses something makes of the ways over the graphics adapter.
// Nothing here needs a compiler or NV12 textures: any device will do.
#include "encoder/mf/gpu_converter.h"
#include "encoder/mf/resident_submit.h"
#include "tests/gpu/gpu_fixture.h"
#include "tests/gpu/scripted_allocator.h"

namespace Veldrift {
namespace {

// Bytes in the place of what the compiler gives.
class Blob final : public ComImplementation<ID3DBlob> {
 public:
  template <size_t n>
  explicit Blob(const uint32_t (&words)[n]) : words_(words), bytes_(sizeof words) {}

  HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG WINAPI AddRef() override { return 1; }
  ULONG WINAPI Release() override { return 1; }
  void* WINAPI GetBufferPointer() override { return const_cast<uint32_t*>(words_); }
  SIZE_T WINAPI GetBufferSize() override { return bytes_; }

 private:
  const uint32_t* words_;
  const SIZE_T bytes_;
};

// "cs_5_0", a group of one thread, "ret".
constexpr uint32_t kIdleShader[] = {0x43425844, 0xCA84669B, 0xEE6D1AFB, 0xC5E7677F, 0x5E7CE539,
                                    0x00000001, 0x00000048, 0x00000001, 0x00000024, 0x52444853,
                                    0x0000001C, 0x00050050, 0x00000007, 0x0400009B, 0x00000001,
                                    0x00000001, 0x00000001, 0x0100003E};
constexpr uint32_t kRubbish[] = {1, 2, 3, 4};

HRESULT WINAPI CompileIdle(LPCVOID, SIZE_T, LPCSTR, const D3D_SHADER_MACRO*, ID3DInclude*, LPCSTR,
                           LPCSTR, UINT, UINT, ID3DBlob** code, ID3DBlob**) {
  static Blob blob(kIdleShader);
  *code = &blob;
  return S_OK;
}

HRESULT WINAPI CompileRubbish(LPCVOID, SIZE_T, LPCSTR, const D3D_SHADER_MACRO*, ID3DInclude*,
                              LPCSTR, LPCSTR, UINT, UINT, ID3DBlob** code, ID3DBlob**) {
  static Blob blob(kRubbish);
  *code = &blob;
  return S_OK;
}

HRESULT WINAPI RefuseToCompile(LPCVOID, SIZE_T, LPCSTR, const D3D_SHADER_MACRO*, ID3DInclude*,
                               LPCSTR, LPCSTR, UINT, UINT, ID3DBlob**, ID3DBlob**) {
  return E_FAIL;
}

class DegradedTest : public GpuTest {
 protected:
  void SetUp() override {
    GpuTest::SetUp();
    scriptedAllocator = &allocator_;
    libraries_.compiler = ShaderCompilerApi{CompileIdle};
    libraries_.media->createSampleAllocator = GiveScriptedAllocator;
    logBefore_ = ReadPluginLog().size();
  }

  // In what this test has logged.
  size_t CountInLog(const std::string& text) const {
    return CountIn(ReadPluginLog().substr(logBefore_), text);
  }

  bool Convert(int32_t width, int32_t height) {
    const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
    std::vector<uint8_t> planes(luma * 2);
    return converter_.Convert(NoiseFrame(width, height, 1).Picture(), planes.data(),
                              planes.data() + luma);
  }

  size_t logBefore_ = 0;
  ScriptedAllocator allocator_;
  ResidentRequest request_{
      .wanted = true, .transformOnGpu = true, .transformAware = true, .width = 64, .height = 48};
  const NoiseFrame frame_{64, 48, 1};
  GpuConverter converter_{device_, shader_};
  ResidentSubmit resident_{libraries_, device_, shader_};
};

using Degraded = DegradedTest;

TEST_F(Degraded, EachRefusalHasItsStatusAndMakesNothingActive) {
  struct Case {
    const char* status;
    void (*spoil)(MfLibraries& libraries, ResidentRequest& request);
  };
  const Case cases[] = {
      {"off (auto-default is NVIDIA-only; non-NVIDIA encoder or VD_GPU_RESIDENT_ENCODE=0)",
       [](MfLibraries&, ResidentRequest& request) { request.wanted = false; }},
      {"n/a (MFT not on GPU — SET_D3D_MANAGER rejected)",
       [](MfLibraries&, ResidentRequest& request) { request.transformOnGpu = false; }},
      {"n/a (odd dimensions)", [](MfLibraries&, ResidentRequest& request) { request.width = 63; }},
      {"fallback (shader compile failed)",
       [](MfLibraries& libraries, ResidentRequest&) { libraries.compiler.reset(); }},
      {"fallback (shader compile failed)",
       [](MfLibraries& libraries, ResidentRequest&) {
         libraries.compiler = ShaderCompilerApi{RefuseToCompile};
       }},
      {"fallback (shader compile failed)",
       [](MfLibraries& libraries, ResidentRequest&) {
         libraries.compiler = ShaderCompilerApi{CompileRubbish};
       }},
      {"fallback (BGRA upload texture create failed)",
       [](MfLibraries&, ResidentRequest& request) { request.width = 65536; }},
      {"fallback (MFCreateVideoSampleAllocatorEx E_NOTIMPL (0x80004001))",
       [](MfLibraries& libraries, ResidentRequest&) {
         libraries.media->createSampleAllocator = [](REFIID, void**) -> HRESULT {
           return E_NOTIMPL;
         };
       }},
      {"fallback (MFCreateAttributes failed)",
       [](MfLibraries& libraries, ResidentRequest&) {
         libraries.media->createAttributes = [](IMFAttributes**, UINT32) -> HRESULT {
           return E_OUTOFMEMORY;
         };
       }},
      {"fallback (NV12 media type create failed)",
       [](MfLibraries& libraries, ResidentRequest&) {
         libraries.media->createMediaType = [](IMFMediaType**) -> HRESULT { return E_OUTOFMEMORY; };
       }},
      {"fallback (InitializeSampleAllocatorEx E_INVALIDARG (0x80070057) — driver likely rejects "
       "UAV-bound NV12)",
       [](MfLibraries&, ResidentRequest&) { scriptedAllocator->initializeResult = E_INVALIDARG; }},
  };
  const MfLibraries libraries = libraries_;
  for (const Case& c : cases) {
    libraries_ = libraries;
    shader_.Release();
    ResidentRequest request = request_;
    c.spoil(libraries_, request);
    EXPECT_FALSE(resident_.Setup(request)) << c.status;
    EXPECT_EQ(resident_.Status(), c.status);
    EXPECT_FALSE(resident_.Active()) << c.status;
    EXPECT_TRUE(resident_.Acquire(frame_.Picture()) == nullptr) << c.status;
    EXPECT_FALSE(resident_.Latched()) << c.status;
  }
}

TEST_F(Degraded, ThePoolIsAskedForTexturesThatTheShaderWrites) {
  EXPECT_TRUE(resident_.Setup(request_));
  EXPECT_EQ(allocator_.manager, device_.Manager());
  EXPECT_EQ(allocator_.initial, 4u);
  EXPECT_EQ(allocator_.most, 16u);
  EXPECT_EQ(allocator_.usage, 0u);
  EXPECT_EQ(allocator_.bindFlags, 0xA8u);
  EXPECT_EQ(allocator_.buffersPerSample, 1u);
  EXPECT_EQ(allocator_.interlace, 2u);
  EXPECT_EQ(allocator_.size, uint64_t{64} << 32 | 48);
  EXPECT_EQ(allocator_.subtype.Data1, MAKEFOURCC('N', 'V', '1', '2'));
  resident_.Close();
  EXPECT_EQ(allocator_.uninitialized, 1);
}

TEST_F(Degraded, AnEmptyPoolLatchesNothing) {
  ASSERT_TRUE(resident_.Setup(request_));
  EXPECT_TRUE(resident_.Acquire(frame_.Picture()) == nullptr);  // success, and no sample
  allocator_.allocateResult = MF_E_SAMPLEALLOCATOR_EMPTY;
  EXPECT_TRUE(resident_.Acquire(frame_.Picture()) == nullptr);
  EXPECT_FALSE(resident_.Latched());
}

// A sample of memory, as an allocator gives that has no device.
TEST_F(Degraded, ASampleWithoutATextureLatches) {
  ASSERT_TRUE(resident_.Setup(request_));
  ComPtr<IMFMediaBuffer> buffer;
  ASSERT_EQ(libraries_.media->createMemoryBuffer(64 * 48 * 3 / 2, &buffer), S_OK);
  ASSERT_EQ(libraries_.media->createSample(&allocator_.next), S_OK);
  ASSERT_EQ(allocator_.next->AddBuffer(buffer.Get()), S_OK);
  EXPECT_TRUE(resident_.Acquire(frame_.Picture()) == nullptr);
  EXPECT_TRUE(resident_.Latched());
  EXPECT_EQ(CountInLog("[BigOne] plane-UAV create failed — latching CPU fallback"), 1u);
  EXPECT_TRUE(resident_.Acquire(frame_.Picture()) == nullptr);
  EXPECT_EQ(CountInLog("[BigOne] plane-UAV create failed — latching CPU fallback"), 1u);
  ASSERT_TRUE(resident_.Setup(request_));
  EXPECT_FALSE(resident_.Latched());
}

TEST_F(Degraded, ARefusedSampleLatchesAndIsToldOnce) {
  ASSERT_TRUE(resident_.Setup(request_));
  resident_.Latch(E_FAIL);
  resident_.Latch(E_INVALIDARG);
  EXPECT_TRUE(resident_.Latched());
  EXPECT_EQ(CountInLog("encoder:ERROR] [BigOne] ProcessInput(D3D sample) failed E_FAIL "
                       "(0x80004005) — latching CPU fallback\r\n"),
            1u);
  EXPECT_EQ(CountInLog("ProcessInput(D3D sample) failed E_INVALIDARG"), 0u);
}

TEST_F(Degraded, WithoutACompilerTheCpuConvertsUntilTheNextTime) {
  libraries_.compiler = ShaderCompilerApi{RefuseToCompile};
  EXPECT_FALSE(Convert(64, 48));
  libraries_.compiler = ShaderCompilerApi{CompileIdle};
  EXPECT_FALSE(Convert(64, 48));  // latched
  converter_.Close();
  EXPECT_TRUE(Convert(64, 48));
  EXPECT_EQ(CountInLog("GPU NV12: D3DCompile failed 0x80004005 (no msg)"), 1u);
  EXPECT_EQ(CountInLog("[Sunshine] Step 4 GPU FALLBACK to scalar at frame 0 — "
                       "shader/upload/readback failed"),
            1u);
}

// The transform's threads use it too.
TEST_F(Degraded, TheDeviceMayBeUsedByManyThreads) {
  ComPtr<ID3D10Multithread> threads;
  ComPtr<ID3D11Device> device(device_.Device());
  ASSERT_EQ(device.As(&threads), S_OK);
  EXPECT_TRUE(threads->GetMultithreadProtected());
}

TEST_F(Degraded, AFrameLargerThanAnyTextureIsLeftToTheCpu) {
  EXPECT_TRUE(Convert(64, 48));
  EXPECT_FALSE(Convert(65536, 2));
  EXPECT_FALSE(Convert(64, 48));
  converter_.Close();
  EXPECT_TRUE(Convert(64, 48));
}

TEST_F(Degraded, AWaitForTheAdapterEndsWithAndWithoutAQuery) {
  device_.WaitIdle();
  device_.Fence().Create(device_.Device());
  device_.WaitIdle();
  device_.Fence().WaitForConversion(device_.Context());
  device_.Close();
  device_.WaitIdle();
  EXPECT_FALSE(Convert(64, 48));  // without a device
  EXPECT_FALSE(resident_.Setup(request_));
  EXPECT_EQ(resident_.Status(), "n/a (no D3D11 device/manager)");
}

// A Direct3D whose compiler doesn't know the shader and whose NV12 textures can't be written, as
// Wine's own is up to version 8.
using UnfinishedDriver = GpuTest;

TEST_F(UnfinishedDriver, RefusesTheShaderThenTheTextures) {
  const ResidentRequest request{true, true, true, 64, 48};
  ResidentSubmit resident(libraries_, device_, shader_);
  EXPECT_FALSE(resident.Setup(request));
  EXPECT_EQ(resident.Status(), "fallback (shader compile failed)");
  libraries_.compiler = ShaderCompilerApi{CompileIdle};
  EXPECT_FALSE(resident.Setup(request));
  EXPECT_EQ(resident.Status(),
            "fallback (InitializeSampleAllocatorEx E_INVALIDARG (0x80070057) — driver likely "
            "rejects UAV-bound NV12)");
}

}  // namespace
}  // namespace Veldrift
