// The choice of an adapter and the ways down from it, on adapters of the test's own: Wine has one
// at most, and without a screen none.
#include "encoder/mf/d3d_device.h"

#include <gmock/gmock.h>

#include <vector>

#include "encoder/mf/gpu_converter.h"
#include "encoder/mf/resident_submit.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;

// The operations of DXGI that nobody here calls.
template <typename Interface>
class Dxgi : public ComImplementation<Interface> {
 public:
  HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG WINAPI AddRef() override { return ++references; }
  ULONG WINAPI Release() override { return --references; }
  HRESULT WINAPI SetPrivateData(REFGUID, UINT, const void*) override { return E_NOTIMPL; }
  HRESULT WINAPI SetPrivateDataInterface(REFGUID, const IUnknown*) override { return E_NOTIMPL; }
  HRESULT WINAPI GetPrivateData(REFGUID, UINT*, void*) override { return E_NOTIMPL; }
  HRESULT WINAPI GetParent(REFIID, void**) override { return E_NOTIMPL; }

  ULONG references = 0;
};

class ScriptedAdapter final : public Dxgi<IDXGIAdapter1> {
 public:
  ScriptedAdapter(std::wstring name, UINT vendor, SIZE_T memory, UINT flags = 0)
      : name_(std::move(name)), vendor_(vendor), memory_(memory), flags_(flags) {}

  HRESULT WINAPI EnumOutputs(UINT, IDXGIOutput**) override { return E_NOTIMPL; }
  HRESULT WINAPI GetDesc(DXGI_ADAPTER_DESC*) override { return E_NOTIMPL; }
  HRESULT WINAPI CheckInterfaceSupport(REFGUID, LARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT WINAPI GetDesc1(DXGI_ADAPTER_DESC1* description) override {
    if (name_.empty()) return E_FAIL;
    name_.copy(description->Description, std::size(description->Description));
    description->VendorId = vendor_;
    description->DedicatedVideoMemory = memory_;
    description->Flags = flags_;
    return S_OK;
  }

 private:
  const std::wstring name_;  // empty: it can't be described
  const UINT vendor_;
  const SIZE_T memory_;
  const UINT flags_;
};

class ScriptedFactory final : public Dxgi<IDXGIFactory1> {
 public:
  HRESULT WINAPI EnumAdapters(UINT, IDXGIAdapter**) override { return E_NOTIMPL; }
  HRESULT WINAPI MakeWindowAssociation(HWND, UINT) override { return E_NOTIMPL; }
  HRESULT WINAPI GetWindowAssociation(HWND*) override { return E_NOTIMPL; }
  HRESULT WINAPI CreateSwapChain(IUnknown*, DXGI_SWAP_CHAIN_DESC*, IDXGISwapChain**) override {
    return E_NOTIMPL;
  }
  HRESULT WINAPI CreateSoftwareAdapter(HMODULE, IDXGIAdapter**) override { return E_NOTIMPL; }
  HRESULT WINAPI EnumAdapters1(UINT place, IDXGIAdapter1** adapter) override {
    if (place >= adapters.size()) return DXGI_ERROR_NOT_FOUND;
    *adapter = adapters[place];
    (*adapter)->AddRef();
    return S_OK;
  }
  WINBOOL WINAPI IsCurrent() override { return TRUE; }

  std::vector<ScriptedAdapter*> adapters;
};

struct Attempt {
  IDXGIAdapter* adapter;
  D3D_DRIVER_TYPE type;
  UINT flags;
  std::vector<D3D_FEATURE_LEVEL> levels;
};

// What stands behind the tables, whose functions have no argument to carry it.
struct Script {
  ScriptedFactory factory;
  std::vector<Attempt> attempts;
};
Script* script = nullptr;

HRESULT WINAPI GiveFactory(REFIID, void** factory) {
  script->factory.AddRef();
  *factory = static_cast<IDXGIFactory1*>(&script->factory);
  return S_OK;
}

HRESULT WINAPI RefuseDevice(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, HMODULE, UINT flags,
                            const D3D_FEATURE_LEVEL* levels, UINT count, UINT, ID3D11Device**,
                            D3D_FEATURE_LEVEL*, ID3D11DeviceContext**) {
  script->attempts.push_back({adapter, type, flags, {levels, levels + count}});
  return DXGI_ERROR_UNSUPPORTED;
}

class D3dDeviceTest : public testing::Test {
 protected:
  D3dDeviceTest() {
    script = &script_;
    libraries_.dxgi = DxgiApi{GiveFactory};
    libraries_.direct3d = Direct3dApi{RefuseDevice};
  }

  // The adapter on which the device is tried first, then it is tried on the system's own choice.
  IDXGIAdapter* FirstTried(const char* engine) {
    script_.attempts.clear();
    device_.Open(engine);
    EXPECT_EQ(script_.attempts.size(), 2u);
    if (script_.attempts.size() != 2) return nullptr;
    EXPECT_EQ(script_.attempts[0].type, D3D_DRIVER_TYPE_UNKNOWN);
    return script_.attempts[0].adapter;
  }

  Script script_;
  MfLibraries libraries_ = MfLibraries::OfProcess();
  D3dDevice device_{libraries_};
};

using Device = D3dDeviceTest;

TEST_F(Device, IsTriedOnTheAdapterThatSuitsTheEngine) {
  ScriptedAdapter emulated(L"Basic Render Driver", 0x10DE, 1 << 30, DXGI_ADAPTER_FLAG_SOFTWARE);
  ScriptedAdapter unreadable(L"", 0x10DE, 1 << 30);
  ScriptedAdapter intel(L"Intel", 0x8086, 0);
  ScriptedAdapter amd(L"AMD", 0x1002, SIZE_T{1} << 33);
  ScriptedAdapter nvidia(L"NVIDIA", 0x10DE, 1 << 30);
  script_.factory.adapters = {&emulated, &unreadable, &intel, &amd, &nvidia};
  EXPECT_EQ(FirstTried("auto"), &nvidia);
  EXPECT_EQ(FirstTried("amd"), &amd);
  EXPECT_EQ(FirstTried("intel"), &intel);
  for (const ScriptedAdapter* adapter : script_.factory.adapters) {
    EXPECT_EQ(adapter->references, 0u);
  }
  EXPECT_EQ(script_.factory.references, 0u);
}

TEST_F(Device, IsTriedOnTheSystemsChoiceWhereTheAdapterRefuses) {
  ScriptedAdapter amd(L"Radeon™", 0x1002, 1);
  script_.factory.adapters = {&amd};
  device_.Open("auto");
  const auto levels =
      ElementsAre(D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_10_1);
  EXPECT_THAT(script_.attempts,
              ElementsAre(FieldsAre(&amd, D3D_DRIVER_TYPE_UNKNOWN, 0x820u, levels),
                          FieldsAre(nullptr, D3D_DRIVER_TYPE_HARDWARE, 0x820u, levels)));
  EXPECT_EQ(device_.Device(), nullptr);
  EXPECT_EQ(device_.Context(), nullptr);
  EXPECT_EQ(device_.Manager(), nullptr);
  EXPECT_EQ(
      CountInPluginLog("encoder:INFO] D3D11CreateDevice(explicit Radeon™) failed 0x887a0004 — "
                       "retrying default\r\n"),
      1u);
}

TEST_F(Device, WithoutAdaptersOnlyTheSystemsChoiceIsTried) {
  device_.Open("nvidia");
  EXPECT_THAT(script_.attempts,
              ElementsAre(FieldsAre(nullptr, D3D_DRIVER_TYPE_HARDWARE, 0x820u, testing::_)));
}

TEST_F(Device, WithoutTheLibrariesThereIsNone) {
  libraries_.dxgi.reset();
  libraries_.direct3d.reset();
  libraries_.media.reset();
  device_.Open("auto");
  device_.WaitIdle();
  EXPECT_FALSE(device_.Complete());
  EXPECT_EQ(CountInPluginLog("D3D11CreateDevice failed 0x8007007e — continuing CPU-only"), 1u);
}

// What Wine's null driver is: a Windows with the libraries and no adapter.
TEST_F(Device, WithoutOneTheCpuDoesTheWork) {
  libraries_ = MfLibraries::OfProcess();
  device_.Open("auto");
  ASSERT_EQ(device_.Context(), nullptr);
  ConversionShader shader(libraries_, device_);
  GpuConverter converter(device_, shader);
  const std::vector<uint8_t> frame(16 * 16 * 4);
  const BgraPicture picture{frame.data(), 16 * 4, 16, 16};
  std::vector<uint8_t> planes(16 * 16 * 2);
  EXPECT_FALSE(converter.Convert(picture, planes.data(), planes.data() + 256));
  EXPECT_EQ(CountInPluginLog("GPU FALLBACK"), 0u);
  ResidentSubmit resident(libraries_, device_, shader);
  EXPECT_EQ(resident.Status(), "");
  EXPECT_FALSE(resident.Setup({true, true, true, 16, 16}));
  EXPECT_EQ(resident.Status(), "n/a (no D3D11 device/manager)");
  EXPECT_TRUE(resident.Acquire(picture) == nullptr);
  EXPECT_FALSE(shader.Prepare());
}

TEST(GpuFence, ItsPollsEndWhenTheAdapterIsThereOrCantBeAsked) {
  struct Case {
    HRESULT early;  // of each poll but the last
    HRESULT last;
    BOOL reached;
    FencePoll end;
    uint32_t polls;
  };
  constexpr uint32_t kLimit = 5000;
  const Case cases[] = {
      {S_FALSE, S_OK, TRUE, FencePoll::Done, 3},
      {S_FALSE, DXGI_ERROR_DEVICE_REMOVED, FALSE, FencePoll::Failed, 3},
      {S_FALSE, S_OK, FALSE, FencePoll::OutOfPolls, kLimit},
      {S_FALSE, S_FALSE, TRUE, FencePoll::OutOfPolls, kLimit},
  };
  for (const Case& c : cases) {
    uint32_t polls = 0;
    const FencePoll end = PollFence(kLimit, [&](BOOL& reached) {
      if (++polls < 3) return c.early;
      reached = c.reached;
      return c.last;
    });
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(polls, c.polls);
  }
}

}  // namespace
}  // namespace Veldrift
