// The platform's media layer, Direct3D, DXGI and the shader compiler, loaded at run time: on a
// Windows without them the module still loads, and has no encoder.
#pragma once

#include <optional>
#include <string>

#include "encoder/mf/mf_headers.h"

namespace Veldrift {

// mfplat.dll
struct MediaApi {
  decltype(&MFStartup) startup = nullptr;
  decltype(&MFShutdown) shutdown = nullptr;
  decltype(&MFTEnumEx) enumTransforms = nullptr;
  decltype(&MFCreateMediaType) createMediaType = nullptr;
  // The header of mfapi.h and that of mfidl.h differ in what they say of the linkage.
  HRESULT(WINAPI* createSample)(IMFSample** sample) = nullptr;
  decltype(&MFCreateMemoryBuffer) createMemoryBuffer = nullptr;
  decltype(&MFCreateAttributes) createAttributes = nullptr;
  decltype(&MFCreateDXGIDeviceManager) createDeviceManager = nullptr;
  decltype(&MFCreateVideoSampleAllocatorEx) createSampleAllocator = nullptr;
};

// d3d11.dll
struct Direct3dApi {
  decltype(&D3D11CreateDevice) createDevice = nullptr;
};

// dxgi.dll
struct DxgiApi {
  decltype(&CreateDXGIFactory1) createFactory = nullptr;
};

// d3dcompiler_47.dll
struct ShaderCompilerApi {
  decltype(&D3DCompile) compile = nullptr;
};

// What this process has of them; plain pointers that never expire. A test supplies a table of its
// own.
struct MfLibraries {
  std::optional<MediaApi> media;
  std::optional<Direct3dApi> direct3d;
  std::optional<DxgiApi> dxgi;
  std::optional<ShaderCompilerApi> compiler;

  // Loaded when it is first asked for; each library that isn't there is told in the log then.
  // Threads: any.
  static const MfLibraries& OfProcess();
};

// The functions of one library of the system's folder. Nothing, with the reason in `error`, if it
// isn't there or lacks one of them.
std::optional<MediaApi> FindMediaApi(const char* fileName, std::string& error);
std::optional<Direct3dApi> FindDirect3dApi(const char* fileName, std::string& error);
std::optional<DxgiApi> FindDxgiApi(const char* fileName, std::string& error);
std::optional<ShaderCompilerApi> FindShaderCompilerApi(const char* fileName, std::string& error);

}  // namespace Veldrift
