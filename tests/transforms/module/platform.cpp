#include "tests/transforms/module/platform.h"

namespace Veldrift::Transforms {
namespace {

// Loaded already, by whoever activated a transform: behind the shim, or where there is none,
// itself.
HMODULE Library() {
  HMODULE library = GetModuleHandleA("mfplat_wine.dll");
  return library ? library : GetModuleHandleA("mfplat.dll");
}

template <class Function, class... Arguments>
HRESULT Call(const char* name, Arguments... arguments) {
  const auto function =
      reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(Library(), name)));
  return function ? function(arguments...) : E_NOTIMPL;
}

using CreateAttributes = HRESULT(WINAPI*)(IMFAttributes**, UINT32);
using CreateMediaType = HRESULT(WINAPI*)(IMFMediaType**);
using CreateEventQueue = HRESULT(WINAPI*)(IMFMediaEventQueue**);
using CreateSample = HRESULT(WINAPI*)(IMFSample**);
using CreateMemoryBuffer = HRESULT(WINAPI*)(DWORD, IMFMediaBuffer**);

}  // namespace

ComPtr<IMFAttributes> MakeAttributes() {
  constexpr UINT32 kRoom = 8;
  ComPtr<IMFAttributes> attributes;
  Call<CreateAttributes>("MFCreateAttributes", attributes.Put(), kRoom);
  return attributes;
}

ComPtr<IMFMediaType> MakeMediaType() {
  ComPtr<IMFMediaType> type;
  Call<CreateMediaType>("MFCreateMediaType", type.Put());
  return type;
}

ComPtr<IMFMediaEventQueue> MakeEventQueue() {
  ComPtr<IMFMediaEventQueue> queue;
  Call<CreateEventQueue>("MFCreateEventQueue", queue.Put());
  return queue;
}

ComPtr<IMFSample> MakeSample(DWORD bytes, int buffers) {
  ComPtr<IMFSample> sample;
  if (FAILED(Call<CreateSample>("MFCreateSample", sample.Put()))) return {};
  for (int made = 0; made < buffers; ++made) {
    ComPtr<IMFMediaBuffer> buffer;
    if (FAILED(Call<CreateMemoryBuffer>("MFCreateMemoryBuffer", bytes, buffer.Put())) ||
        FAILED(sample->AddBuffer(buffer.Get()))) {
      return {};
    }
  }
  return sample;
}

}  // namespace Veldrift::Transforms
