#include "encoder/mf/d3d_device.h"

#include <string>
#include <vector>

#include "encoder/adapter_choice.h"
#include "encoder/hresult_name.h"
#include "support/plugin_log.h"
#include "support/text.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};
constexpr HRESULT kLibraryMissing = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
constexpr size_t kMaxNameBytes = 255;

struct Adapter {
  ComPtr<IDXGIAdapter1> adapter;
  std::string name;
};

// Of UTF-8 as many whole characters as fit.
std::string CutName(std::string name) {
  if (name.size() <= kMaxNameBytes) return name;
  size_t end = 0;
  const std::string_view text = name;
  while (size_t length = Utf8CharacterLength(text.substr(end))) {
    if (end + length > kMaxNameBytes) break;
    end += length;
  }
  name.resize(end);
  return name;
}

// Those whose description can be read.
void ListAdapters(IDXGIFactory1& factory, std::vector<Adapter>& adapters,
                  std::vector<AdapterTraits>& traits) {
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT i = 0; SUCCEEDED(factory.EnumAdapters1(i, &adapter)); ++i) {
    DXGI_ADAPTER_DESC1 description{};
    if (FAILED(adapter->GetDesc1(&description))) continue;
    const size_t length = wcsnlen(description.Description, std::size(description.Description));
    adapters.push_back({adapter, CutName(NarrowText({description.Description, length}))});
    traits.push_back({.vendorId = description.VendorId,
                      .videoMemory = description.DedicatedVideoMemory,
                      .software = (description.Flags & DXGI_ADAPTER_FLAG_SOFTWARE) != 0});
  }
}

Adapter PickAdapter(const std::optional<DxgiApi>& dxgi, uint32_t preferredVendorId) {
  ComPtr<IDXGIFactory1> factory;
  if (!dxgi || FAILED(dxgi->createFactory(IID_PPV_ARGS(&factory)))) return {};
  std::vector<Adapter> adapters;
  std::vector<AdapterTraits> traits;
  ListAdapters(*factory.Get(), adapters, traits);
  const std::optional<size_t> chosen = ChooseAdapter(traits, preferredVendorId);
  return chosen ? adapters[*chosen] : Adapter{};
}

std::string NameOf(HRESULT result) { return HresultName(static_cast<uint32_t>(result)); }

}  // namespace

void D3dDevice::Open(std::string_view engineId) {
  Close();
  if (!CreateDevice(engineId)) return;
  Protect();
  Share();
}

void D3dDevice::Close() {
  fence_.Release();
  manager_.Reset();
  context_.Reset();
  device_.Reset();
}

void D3dDevice::WaitIdle() const {
  if (context_ != nullptr) fence_.WaitIdle(device_.Get(), context_.Get());
}

// Without an adapter on the system's own choice of hardware.
HRESULT D3dDevice::CreateOn(IDXGIAdapter1* adapter) {
  if (!libraries_.direct3d) return kLibraryMissing;
  constexpr UINT kFlags = D3D11_CREATE_DEVICE_VIDEO_SUPPORT | D3D11_CREATE_DEVICE_BGRA_SUPPORT;
  constexpr D3D_FEATURE_LEVEL kLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0,
                                           D3D_FEATURE_LEVEL_10_1};
  const D3D_DRIVER_TYPE type =
      adapter == nullptr ? D3D_DRIVER_TYPE_HARDWARE : D3D_DRIVER_TYPE_UNKNOWN;
  const HRESULT result = libraries_.direct3d->createDevice(
      adapter, type, nullptr, kFlags, kLevels, static_cast<UINT>(std::size(kLevels)),
      D3D11_SDK_VERSION, &device_, nullptr, &context_);
  if (FAILED(result)) {
    context_.Reset();
    device_.Reset();
  }
  return result;
}

bool D3dDevice::CreateDevice(std::string_view engineId) {
  const Adapter picked = PickAdapter(libraries_.dxgi, PreferredVendorId(engineId));
  if (picked.adapter != nullptr) {
    const HRESULT result = CreateOn(picked.adapter.Get());
    if (SUCCEEDED(result)) {
      PluginLog(kCategory, kLogInfo, "D3D11 device on adapter: \"%s\"", picked.name.c_str());
      return true;
    }
    PluginLog(kCategory, kLogInfo, "D3D11CreateDevice(explicit %s) failed %s — retrying default",
              picked.name.c_str(), NameOf(result).c_str());
  }
  const HRESULT result = CreateOn(nullptr);
  if (FAILED(result)) {
    PluginLog(kCategory, kLogInfo, "D3D11CreateDevice failed %s — continuing CPU-only",
              NameOf(result).c_str());
  }
  return SUCCEEDED(result);
}

void D3dDevice::Protect() {
  ComPtr<ID3D10Multithread> multithread;
  if (SUCCEEDED(device_.As(&multithread))) multithread->SetMultithreadProtected(TRUE);
}

void D3dDevice::Share() {
  UINT token = 0;
  HRESULT result =
      libraries_.media ? libraries_.media->createDeviceManager(&token, &manager_) : kLibraryMissing;
  if (SUCCEEDED(result)) result = manager_->ResetDevice(device_.Get(), token);
  if (SUCCEEDED(result)) return;
  manager_.Reset();
  PluginLog(kCategory, kLogInfo, "MFCreateDXGIDeviceManager failed %s — continuing without",
            NameOf(result).c_str());
}

}  // namespace Veldrift
