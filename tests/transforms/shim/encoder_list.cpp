#include "tests/transforms/shim/encoder_list.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tests/transforms/common/com_ptr.h"
#include "tests/transforms/common/environment.h"
#include "tests/transforms/common/kinds.h"
#include "tests/transforms/common/vendor_attribute.h"

namespace Veldrift::Transforms {
namespace {

using Activations = std::vector<ComPtr<IMFActivate>>;
using EnumFunction = decltype(&MFTEnumEx);
using InfoFunction = decltype(&MFTGetInfo);

// Null: it isn't one of ours.
const Kind* KindOf(IMFActivate& activation) {
  GUID clsid = {};
  if (FAILED(activation.GetGUID(MFT_TRANSFORM_CLSID_Attribute, &clsid))) return nullptr;
  return FindKind(clsid);
}

// What was registered, and what Windows copies where Wine doesn't.
void Complete(IMFActivate& activation) {
  GUID clsid = {};
  LPWSTR name = nullptr;
  ComPtr<IMFAttributes> attributes;
  const auto info = reinterpret_cast<InfoFunction>(BuiltinFunction("MFTGetInfo"));
  if (!info || FAILED(activation.GetGUID(MFT_TRANSFORM_CLSID_Attribute, &clsid)) ||
      FAILED(info(clsid, &name, nullptr, nullptr, nullptr, nullptr, attributes.Put()))) {
    return;
  }
  if (name) activation.SetString(MFT_FRIENDLY_NAME_Attribute, name);
  CoTaskMemFree(name);
  LPWSTR vendor = nullptr;
  UINT32 length = 0;
  if (attributes && SUCCEEDED(attributes->GetAllocatedString(kVendorAttribute, &vendor, &length))) {
    activation.SetString(kVendorAttribute, vendor);
    CoTaskMemFree(vendor);
  }
}

// The flags as words that all have to fit, and not as alternatives: hardware or none, synchronous
// or not.
bool FitsExactly(const Kind& kind, UINT32 flags) {
  const bool hardware = (flags & MFT_ENUM_FLAG_HARDWARE) != 0;
  const UINT32 wanted = flags & (MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_ASYNCMFT);
  const UINT32 own = kind.family.async ? MFT_ENUM_FLAG_ASYNCMFT : MFT_ENUM_FLAG_SYNCMFT;
  return kind.Hardware() == hardware && (wanted == 0 || (wanted & own) != 0);
}

void Filter(Activations& activations, UINT32 flags) {
  if (ReadVariable(kExactListVariable).empty()) return;
  std::erase_if(activations, [flags](const auto& activation) {
    const Kind* kind = KindOf(*activation.Get());
    return kind && !FitsExactly(*kind, flags);
  });
}

// Those that the words list, in the order of the words; "others" is what isn't ours.
Activations Choose(const Activations& activations, const std::vector<std::string>& words) {
  Activations chosen;
  for (const std::string& word : words) {
    for (const auto& activation : activations) {
      const Kind* kind = KindOf(*activation.Get());
      if (kind ? Means(word, *kind) : word == "others") chosen.push_back(activation);
    }
  }
  return chosen;
}

HRESULT HandOut(Activations& activations, IMFActivate*** list, UINT32* count) {
  *list = nullptr;
  *count = static_cast<UINT32>(activations.size());
  if (activations.empty()) return S_OK;
  *list = static_cast<IMFActivate**>(CoTaskMemAlloc(activations.size() * sizeof(IMFActivate*)));
  if (!*list) return E_OUTOFMEMORY;
  std::transform(activations.begin(), activations.end(), *list,
                 [](auto& activation) { return activation.Detach(); });
  return S_OK;
}

}  // namespace

void* BuiltinFunction(const char* name) {
  static const HMODULE builtin = LoadLibraryA("mfplat_wine.dll");
  return builtin ? reinterpret_cast<void*>(GetProcAddress(builtin, name)) : nullptr;
}

HRESULT ListTransforms(const GUID& category, UINT32 flags, const MFT_REGISTER_TYPE_INFO* input,
                       const MFT_REGISTER_TYPE_INFO* output, IMFActivate*** list, UINT32* count) {
  const auto real = reinterpret_cast<EnumFunction>(BuiltinFunction("MFTEnumEx"));
  if (!real) return E_NOTIMPL;
  const HRESULT result = real(category, flags, input, output, list, count);
  if (FAILED(result) || !IsEqualGUID(category, MFT_CATEGORY_VIDEO_ENCODER)) return result;
  Activations activations(*count);
  for (UINT32 place = 0; place < *count; ++place) *activations[place].Put() = (*list)[place];
  CoTaskMemFree(*list);
  Filter(activations, flags);
  const std::vector<std::string> words = SplitWords(ReadVariable(kListVariable));
  if (!words.empty()) activations = Choose(activations, words);
  for (auto& activation : activations) Complete(*activation.Get());
  return HandOut(activations, list, count);
}

}  // namespace Veldrift::Transforms
