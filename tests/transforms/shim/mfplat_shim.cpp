// Stands before Wine's mfplat.dll in the test prefix. Almost every export is forwarded to it (the
// builtin lies beside as mfplat_wine.dll); those below fail where a test says so, and the list of
// encoders shows what a Windows with hardware would show: Wine stores an encoder's friendly name
// and its maker, but doesn't give them to the activation object.
#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>
#include <windows.h>

#include <mutex>
#include <string>
#include <type_traits>

#include "tests/transforms/common/call_failures.h"
#include "tests/transforms/common/environment.h"
#include "tests/transforms/shim/encoder_list.h"

namespace {

using namespace Veldrift::Transforms;

HRESULT Ordered(const char* call) {
  static std::mutex mutex;
  static LastingFailures failures;
  const std::lock_guard lock(mutex);
  return failures.Count(ReadVariable(kPlatformFailVariable), "", call);
}

template <class Argument>
void AddNumber(std::string& details, Argument argument) {
  if constexpr (std::is_integral_v<Argument>) {
    details += (details.empty() ? "" : " ") + std::to_string(argument);
  }
}

// The builtin's function of this name, unless the call is to fail. Numbers show in the trace.
template <class... Parameters>
HRESULT Forward(HRESULT(WINAPI*)(Parameters...), const char* name,
                std::type_identity_t<Parameters>... arguments) {
  HRESULT result = Ordered(name);
  if (SUCCEEDED(result)) {
    const auto real = reinterpret_cast<HRESULT(WINAPI*)(Parameters...)>(BuiltinFunction(name));
    result = real ? real(arguments...) : E_NOTIMPL;
  }
  std::string details;
  (AddNumber(details, arguments), ...);
  Trace("platform", name, details, result);
  return result;
}

}  // namespace

extern "C" {

HRESULT WINAPI MFStartup(ULONG version, DWORD flags) {
  return Forward(&MFStartup, "MFStartup", version, flags);
}

HRESULT WINAPI MFShutdown() { return Forward(&MFShutdown, "MFShutdown"); }

HRESULT WINAPI MFCreateAttributes(IMFAttributes** attributes, UINT32 room) {
  return Forward(&MFCreateAttributes, "MFCreateAttributes", attributes, room);
}

HRESULT WINAPI MFCreateMediaType(IMFMediaType** type) {
  return Forward(&MFCreateMediaType, "MFCreateMediaType", type);
}

HRESULT WINAPI MFCreateSample(IMFSample** sample) {
  return Forward(&MFCreateSample, "MFCreateSample", sample);
}

HRESULT WINAPI MFCreateMemoryBuffer(DWORD bytes, IMFMediaBuffer** buffer) {
  return Forward(&MFCreateMemoryBuffer, "MFCreateMemoryBuffer", bytes, buffer);
}

HRESULT WINAPI MFCreateDXGIDeviceManager(UINT* token, IMFDXGIDeviceManager** manager) {
  return Forward(&MFCreateDXGIDeviceManager, "MFCreateDXGIDeviceManager", token, manager);
}

HRESULT WINAPI MFCreateVideoSampleAllocatorEx(REFIID iid, void** allocator) {
  return Forward(&MFCreateVideoSampleAllocatorEx, "MFCreateVideoSampleAllocatorEx", iid, allocator);
}

HRESULT WINAPI MFTEnumEx(GUID category, UINT32 flags, const MFT_REGISTER_TYPE_INFO* input,
                         const MFT_REGISTER_TYPE_INFO* output, IMFActivate*** list, UINT32* count) {
  const HRESULT ordered = Ordered("MFTEnumEx");
  const HRESULT result =
      FAILED(ordered) ? ordered : ListTransforms(category, flags, input, output, list, count);
  Trace(
      "platform", "MFTEnumEx",
      "flags=" + std::to_string(flags) + " count=" + std::to_string(SUCCEEDED(result) ? *count : 0),
      result);
  return result;
}

}  // extern "C"
