#include "encoder/mf/resident_submit.h"

#include "encoder/hresult_name.h"
#include "encoder/log_limit.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};
constexpr uint64_t kHeartbeat = 300;
constexpr uint32_t kEmptyPoolLines = 8;
constexpr DWORD kInitialSamples = 4;
constexpr DWORD kMaxSamples = 16;

// Under these a sample keeps the views of its planes: samples come back, so each makes them once.
constexpr GUID kLumaViewKey = {
    0x7E2B9A40, 0x1C3D, 0x4F5E, {0x8A, 0x6B, 0x10, 0x21, 0x32, 0x43, 0x54, 0x65}};
constexpr GUID kChromaViewKey = {
    0x7E2B9A41, 0x1C3D, 0x4F5E, {0x8A, 0x6B, 0x10, 0x21, 0x32, 0x43, 0x54, 0x65}};

std::string NameOf(HRESULT result) { return HresultName(static_cast<uint32_t>(result)); }

void LogEmptyPool(HRESULT result) {
  static LogLimit lines(kEmptyPoolLines);
  if (!lines.Take()) return;
  PluginLog(kCategory, kLogInfo, "[BigOne] allocator empty (%s) — dropping frame",
            NameOf(result).c_str());
}

// Textures that the shader writes and the transform reads, one to a sample.
HRESULT DescribeTextures(const MediaApi& media, ComPtr<IMFAttributes>& attributes) {
  const HRESULT result = media.createAttributes(&attributes, 3);
  if (FAILED(result)) return result;
  attributes->SetUINT32(MF_SA_D3D11_USAGE, D3D11_USAGE_DEFAULT);
  attributes->SetUINT32(MF_SA_D3D11_BINDFLAGS, D3D11_BIND_SHADER_RESOURCE |
                                                   D3D11_BIND_RENDER_TARGET |
                                                   D3D11_BIND_UNORDERED_ACCESS);
  attributes->SetUINT32(kMfBuffersPerSample, 1);
  return result;
}

HRESULT DescribePicture(const MediaApi& media, int32_t width, int32_t height,
                        ComPtr<IMFMediaType>& type) {
  const HRESULT result = media.createMediaType(&type);
  if (FAILED(result)) return result;
  type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_NV12);
  type->SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
  type->SetUINT64(MF_MT_FRAME_SIZE,
                  static_cast<uint64_t>(width) << 32 | static_cast<uint32_t>(height));
  return result;
}

// The texture behind a sample, and which of its slices.
bool FindTexture(IMFMediaBuffer& buffer, ComPtr<ID3D11Texture2D>& texture, UINT& slice) {
  ComPtr<IMFDXGIBuffer> dxgi;
  return SUCCEEDED(buffer.QueryInterface(IID_PPV_ARGS(&dxgi))) &&
         SUCCEEDED(dxgi->GetResource(IID_PPV_ARGS(&texture))) &&
         SUCCEEDED(dxgi->GetSubresourceIndex(&slice));
}

HRESULT MakePlaneView(ID3D11Device* device, ID3D11Texture2D* texture, UINT slice,
                      DXGI_FORMAT format, ComPtr<ID3D11UnorderedAccessView>& view) {
  D3D11_UNORDERED_ACCESS_VIEW_DESC description{};
  description.Format = format;
  if (slice == 0) {
    description.ViewDimension = D3D11_UAV_DIMENSION_TEXTURE2D;
  } else {
    description.ViewDimension = D3D11_UAV_DIMENSION_TEXTURE2DARRAY;
    description.Texture2DArray.FirstArraySlice = slice;
    description.Texture2DArray.ArraySize = 1;
  }
  return device->CreateUnorderedAccessView(texture, &description, &view);
}

}  // namespace

bool ResidentSubmit::Setup(const ResidentRequest& request) {
  Close();
  const Preparation preparation = Prepare(request);
  active_ = preparation.outcome == ResidentOutcome::Active;
  status_ = ResidentStatus(preparation.outcome, static_cast<uint32_t>(preparation.result),
                           request.transformAware);
  if (active_) {
    PluginLog(kCategory, kLogInfo,
              "[BigOne] GPU-resident NV12 submit ENABLED: %dx%d — no per-frame GPU->CPU readback, "
              "no MFT re-upload",
              request.width, request.height);
  }
  return active_;
}

void ResidentSubmit::Close() {
  ReleaseAllocator();
  device_.Fence().Release();
  upload_.Release();
  active_ = false;
  latched_ = false;
  status_.clear();
  frames_ = 0;
}

ComPtr<IMFSample> ResidentSubmit::Acquire(const BgraPicture& picture) {
  ComPtr<IMFSample> sample = Allocate();
  if (sample == nullptr) return nullptr;
  PlaneViews views;
  if (!FindViews(*sample.Get(), views) && !MakeViews(*sample.Get(), views)) {
    LatchWith("[BigOne] plane-UAV create failed — latching CPU fallback");
    return nullptr;
  }
  if (!Convert(picture, views)) {
    LatchWith("[BigOne] BGRA->NV12 dispatch failed — latching CPU fallback");
    return nullptr;
  }
  device_.Fence().WaitForConversion(device_.Context());
  if (++frames_ % kHeartbeat == 0) {
    PluginLog(kCategory, kLogInfo, "[BigOne] GPU-resident heartbeat: %llu frames, fallback=NO",
              static_cast<unsigned long long>(frames_));
  }
  return sample;
}

void ResidentSubmit::Latch(HRESULT error) {
  LatchWith("[BigOne] ProcessInput(D3D sample) failed " + NameOf(error) +
            " — latching CPU fallback");
}

ResidentSubmit::Preparation ResidentSubmit::Prepare(const ResidentRequest& request) {
  const std::optional<ResidentOutcome> obstacle =
      ResidentObstacle({.wanted = request.wanted,
                        .deviceComplete = device_.Complete(),
                        .transformOnGpu = request.transformOnGpu,
                        .width = request.width,
                        .height = request.height});
  if (obstacle) return {*obstacle};
  if (!shader_.Prepare()) return {ResidentOutcome::NoShader};
  if (!upload_.Create(device_.Device(), request.width, request.height)) {
    return {ResidentOutcome::NoUploadTexture};
  }
  device_.Fence().Create(device_.Device());
  const Preparation prepared = PrepareAllocator(request.width, request.height);
  if (prepared.outcome != ResidentOutcome::Active) ReleaseAllocator();
  return prepared;
}

ResidentSubmit::Preparation ResidentSubmit::PrepareAllocator(int32_t width, int32_t height) {
  // There is a manager, so there is the library that made it.
  const MediaApi& media = *libraries_.media;
  HRESULT result = media.createSampleAllocator(IID_PPV_ARGS(&allocator_));
  if (FAILED(result)) return {ResidentOutcome::NoAllocator, result};
  // Without the manager its samples aren't textures, which shows with the first one.
  allocator_->SetDirectXManager(device_.Manager());
  ComPtr<IMFAttributes> attributes;
  if (FAILED(DescribeTextures(media, attributes))) return {ResidentOutcome::NoAttributes};
  ComPtr<IMFMediaType> type;
  if (FAILED(DescribePicture(media, width, height, type))) return {ResidentOutcome::NoMediaType};
  result = allocator_->InitializeSampleAllocatorEx(kInitialSamples, kMaxSamples, attributes.Get(),
                                                   type.Get());
  if (FAILED(result)) return {ResidentOutcome::AllocatorRefused, result};
  return {};
}

void ResidentSubmit::ReleaseAllocator() {
  if (allocator_ != nullptr) allocator_->UninitializeSampleAllocator();
  allocator_.Reset();
}

ComPtr<IMFSample> ResidentSubmit::Allocate() {
  if (allocator_ == nullptr) return nullptr;
  ComPtr<IMFSample> sample;
  const HRESULT result = allocator_->AllocateSample(&sample);
  if (SUCCEEDED(result) && sample != nullptr) return sample;
  LogEmptyPool(result);
  return nullptr;
}

bool ResidentSubmit::FindViews(IMFSample& sample, PlaneViews& views) const {
  return SUCCEEDED(sample.GetUnknown(kLumaViewKey, IID_PPV_ARGS(&views.luma))) &&
         SUCCEEDED(sample.GetUnknown(kChromaViewKey, IID_PPV_ARGS(&views.chroma)));
}

bool ResidentSubmit::MakeViews(IMFSample& sample, PlaneViews& views) const {
  ComPtr<IMFMediaBuffer> buffer;
  ComPtr<ID3D11Texture2D> texture;
  UINT slice = 0;
  if (FAILED(sample.GetBufferByIndex(0, &buffer)) || !FindTexture(*buffer.Get(), texture, slice)) {
    return false;
  }
  ID3D11Device* device = device_.Device();
  if (FAILED(MakePlaneView(device, texture.Get(), slice, DXGI_FORMAT_R8_UNORM, views.luma)) ||
      FAILED(MakePlaneView(device, texture.Get(), slice, DXGI_FORMAT_R8G8_UNORM, views.chroma)) ||
      FAILED(sample.SetUnknown(kLumaViewKey, views.luma.Get())) ||
      FAILED(sample.SetUnknown(kChromaViewKey, views.chroma.Get()))) {
    return false;
  }
  // A buffer over a texture says that nothing is in it, which some transforms believe.
  DWORD length = 0;
  if (SUCCEEDED(buffer->GetMaxLength(&length))) buffer->SetCurrentLength(length);
  return true;
}

bool ResidentSubmit::Convert(const BgraPicture& picture, const PlaneViews& views) {
  if (!shader_.Ready() || !upload_.Write(device_.Context(), picture)) return false;
  shader_.Run(upload_.View(), views.luma.Get(), views.chroma.Get(), picture.width, picture.height);
  return true;
}

void ResidentSubmit::LatchWith(const std::string& line) {
  if (latched_) return;
  latched_ = true;
  PluginLog(kCategory, kLogError, "%s", line.c_str());
}

}  // namespace Veldrift
