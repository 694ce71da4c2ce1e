#include "encoder/mf/mf_libraries.h"

#include "platform/win32/system_library.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

template <typename Api>
std::optional<Api> FindOrLog(std::optional<Api> (*find)(const char*, std::string&),
                             const char* fileName) {
  std::string error;
  std::optional<Api> api = find(fileName, error);
  if (!api) PluginLog(kCategory, kLogInfo, "not there: %s", error.c_str());
  return api;
}

MfLibraries LoadAll() {
  MfLibraries libraries;
  libraries.media = FindOrLog(FindMediaApi, "mfplat.dll");
  libraries.direct3d = FindOrLog(FindDirect3dApi, "d3d11.dll");
  libraries.dxgi = FindOrLog(FindDxgiApi, "dxgi.dll");
  libraries.compiler = FindOrLog(FindShaderCompilerApi, "d3dcompiler_47.dll");
  return libraries;
}

}  // namespace

std::optional<MediaApi> FindMediaApi(const char* fileName, std::string& error) {
  SystemLibrary library;
  MediaApi api;
  const bool complete =
      library.Load(fileName, error) &&  //
      library.Find("MFStartup", api.startup, error) &&
      library.Find("MFShutdown", api.shutdown, error) &&
      library.Find("MFTEnumEx", api.enumTransforms, error) &&
      library.Find("MFCreateMediaType", api.createMediaType, error) &&
      library.Find("MFCreateSample", api.createSample, error) &&
      library.Find("MFCreateMemoryBuffer", api.createMemoryBuffer, error) &&
      library.Find("MFCreateAttributes", api.createAttributes, error) &&
      library.Find("MFCreateDXGIDeviceManager", api.createDeviceManager, error) &&
      library.Find("MFCreateVideoSampleAllocatorEx", api.createSampleAllocator, error);
  if (!complete) return std::nullopt;
  return api;
}

std::optional<Direct3dApi> FindDirect3dApi(const char* fileName, std::string& error) {
  SystemLibrary library;
  Direct3dApi api;
  if (!library.Load(fileName, error) || !library.Find("D3D11CreateDevice", api.createDevice, error))
    return std::nullopt;
  return api;
}

std::optional<DxgiApi> FindDxgiApi(const char* fileName, std::string& error) {
  SystemLibrary library;
  DxgiApi api;
  if (!library.Load(fileName, error) ||
      !library.Find("CreateDXGIFactory1", api.createFactory, error))
    return std::nullopt;
  return api;
}

std::optional<ShaderCompilerApi> FindShaderCompilerApi(const char* fileName, std::string& error) {
  SystemLibrary library;
  ShaderCompilerApi api;
  if (!library.Load(fileName, error) || !library.Find("D3DCompile", api.compile, error))
    return std::nullopt;
  return api;
}

const MfLibraries& MfLibraries::OfProcess() {
  static const MfLibraries libraries = LoadAll();
  return libraries;
}

}  // namespace Veldrift
