// The in-process server: makes the transform that a class identifier stands for, in the scenario
// that the environment describes at that moment.
#include <mfidl.h>
#include <mftransform.h>
#include <objbase.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "tests/transforms/common/environment.h"
#include "tests/transforms/common/kinds.h"
#include "tests/transforms/module/platform.h"
#include "tests/transforms/module/transform.h"

namespace Veldrift::Transforms {
namespace {

// Activations fail by their number in the process, and so are counted beyond the objects' lives.
HRESULT CountActivation(const Kind& kind, const std::string& traits) {
  static std::mutex mutex;
  static std::array<LastingFailures, kKindCount> failures;
  const std::lock_guard lock(mutex);
  return failures[static_cast<size_t>(&kind - kKinds.data())].Count(traits,
                                                                    "fail=", "ActivateObject");
}

HRESULT MakeTransform(const Kind& kind, REFIID iid, void** object) {
  static std::atomic<int> made{0};
  const std::string text = ReadTraits(kind);
  Traits traits;
  std::string unknown;
  // A scenario with a slip of the pen must not pass for the usual one.
  if (!ReadTraitsOf(kind, text, traits, unknown)) {
    std::fprintf(stderr, "%s: no trait is \"%s\"\n", NameOf(kind).c_str(), unknown.c_str());
    return E_INVALIDARG;
  }
  const HRESULT activation = CountActivation(kind, text);
  if (FAILED(activation)) {
    Trace(NameOf(kind), "ActivateObject", "", activation);
    return activation;
  }
  const std::string who = NameOf(kind) + "#" + std::to_string(++made);
  Trace(who, "ActivateObject", "", S_OK);
  auto* transform = new Transform(kind, traits, who);
  const HRESULT result = transform->QueryInterface(iid, object);
  transform->Release();
  return result;
}

// Lives as long as the module.
class Factory final : public IClassFactory {
 public:
  explicit constexpr Factory(const Kind& kind) : kind_(kind) {}
  virtual ~Factory() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    const bool known = IsEqualGUID(iid, kUnknownId) || IsEqualGUID(iid, kClassFactoryId);
    *object = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
    return outer ? CLASS_E_NOAGGREGATION : MakeTransform(kind_, iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  const Kind& kind_;
};

template <size_t... Places>
Factory* FactoryAt(size_t place, std::index_sequence<Places...>) {
  static Factory factories[] = {Factory(kKinds[Places])...};
  return &factories[place];
}

}  // namespace
}  // namespace Veldrift::Transforms

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
  using namespace Veldrift::Transforms;
  const Kind* kind = FindKind(clsid);
  if (!kind) return CLASS_E_CLASSNOTAVAILABLE;
  const auto place = static_cast<size_t>(kind - kKinds.data());
  return FactoryAt(place, std::make_index_sequence<kKindCount>())->QueryInterface(iid, object);
}

// Objects are alive on other threads; the module stays.
extern "C" HRESULT WINAPI DllCanUnloadNow() { return S_FALSE; }

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
