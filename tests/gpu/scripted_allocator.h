// A pool of samples in the place of the platform's.
#pragma once

#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_headers.h"

namespace Veldrift {

// A pool that does as it is told, and notes what it is asked for.
class ScriptedAllocator final : public ComImplementation<IMFVideoSampleAllocatorEx> {
 public:
  HRESULT initializeResult = S_OK;
  HRESULT allocateResult = S_OK;
  ComPtr<IMFSample> next;  // null: success, and no sample
  IUnknown* manager = nullptr;
  DWORD initial = 0;
  DWORD most = 0;
  UINT32 usage = 99;
  UINT32 bindFlags = 0;
  UINT32 buffersPerSample = 0;
  UINT32 interlace = 0;
  UINT64 size = 0;
  GUID subtype{};
  int initialized = 0;
  int uninitialized = 0;

  HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG WINAPI AddRef() override { return 1; }
  ULONG WINAPI Release() override { return 1; }
  HRESULT WINAPI SetDirectXManager(IUnknown* given) override {
    manager = given;
    return S_OK;
  }
  HRESULT WINAPI UninitializeSampleAllocator() override {
    ++uninitialized;
    return S_OK;
  }
  HRESULT WINAPI InitializeSampleAllocator(DWORD, IMFMediaType*) override { return E_NOTIMPL; }
  HRESULT WINAPI AllocateSample(IMFSample** sample) override {
    *sample = nullptr;
    if (SUCCEEDED(allocateResult) && next != nullptr) next.CopyTo(sample);
    return allocateResult;
  }
  HRESULT WINAPI InitializeSampleAllocatorEx(DWORD initialSamples, DWORD maxSamples,
                                             IMFAttributes* attributes,
                                             IMFMediaType* type) override {
    ++initialized;
    initial = initialSamples;
    most = maxSamples;
    attributes->GetUINT32(MF_SA_D3D11_USAGE, &usage);
    attributes->GetUINT32(MF_SA_D3D11_BINDFLAGS, &bindFlags);
    attributes->GetUINT32(kMfBuffersPerSample, &buffersPerSample);
    type->GetUINT32(MF_MT_INTERLACE_MODE, &interlace);
    type->GetUINT64(MF_MT_FRAME_SIZE, &size);
    type->GetGUID(MF_MT_SUBTYPE, &subtype);
    return initializeResult;
  }
};

// The one that the tables' functions hand out; they have no argument to carry it.
inline ScriptedAllocator* scriptedAllocator = nullptr;

inline HRESULT WINAPI GiveScriptedAllocator(REFIID, void** allocator) {
  *allocator = static_cast<IMFVideoSampleAllocatorEx*>(scriptedAllocator);
  return S_OK;
}

}  // namespace Veldrift
