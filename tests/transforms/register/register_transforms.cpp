// Makes the scripted encoders known to a prefix, and unknown again.
//
//   register_transforms add MODULE     MODULE: the module's file, as an absolute Windows path
//   register_transforms remove
//   register_transforms list           what an application sees
#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>
#include <objbase.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tests/transforms/common/com_ptr.h"
#include "tests/transforms/common/environment.h"
#include "tests/transforms/common/kinds.h"
#include "tests/transforms/common/vendor_attribute.h"

namespace {

using namespace Veldrift::Transforms;

const GUID kEncoders = MFT_CATEGORY_VIDEO_ENCODER;

std::wstring FriendlyName(const Kind& kind) {
  return std::wstring(kind.family.label) + (kind.hevc ? L" HEVC encoder" : L" H.264 encoder");
}

// Wine takes the flags as alternatives: with these, a request for hardware lists hardware, and one
// for synchronous software lists software.
UINT32 FlagsOf(const Kind& kind) {
  if (!kind.Hardware()) return MFT_ENUM_FLAG_SYNCMFT;
  return kind.family.async ? MFT_ENUM_FLAG_HARDWARE | MFT_ENUM_FLAG_ASYNCMFT
                           : MFT_ENUM_FLAG_HARDWARE;
}

std::wstring ClassKey(const Kind& kind) {
  constexpr int kRoom = 40;
  wchar_t text[kRoom] = {};
  StringFromGUID2(kind.clsid, text, kRoom);
  return std::wstring(L"Software\\Classes\\CLSID\\") + text;
}

bool SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
  return RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

bool AddClass(const Kind& kind, const std::wstring& module) {
  const std::wstring server = ClassKey(kind) + L"\\InprocServer32";
  return SetText(server, nullptr, module) && SetText(server, L"ThreadingModel", L"Both");
}

bool AddTransform(const Kind& kind) {
  MFT_REGISTER_TYPE_INFO input = {MFMediaType_Video, MFVideoFormat_NV12};
  MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video,
                                   kind.hevc ? MFVideoFormat_HEVC : MFVideoFormat_H264};
  ComPtr<IMFAttributes> attributes;
  if (kind.Hardware() && (FAILED(MFCreateAttributes(attributes.Put(), 1)) ||
                          FAILED(attributes->SetString(kVendorAttribute, kind.family.vendor)))) {
    return false;
  }
  std::wstring name = FriendlyName(kind);
  return SUCCEEDED(MFTRegister(kind.clsid, kEncoders, name.data(), FlagsOf(kind), 1, &input, 1,
                               &output, attributes.Get()));
}

int Add(const char* path) {
  const std::wstring module(path, path + std::strlen(path));
  for (const Kind& kind : kKinds) {
    if (AddClass(kind, module) && AddTransform(kind)) continue;
    std::fprintf(stderr, "register_transforms: %s can't be registered\n", NameOf(kind).c_str());
    return 1;
  }
  return 0;
}

int Remove() {
  for (const Kind& kind : kKinds) {
    MFTUnregister(kind.clsid);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, ClassKey(kind).c_str());
  }
  return 0;
}

std::string Text(IMFActivate& activation, REFGUID key) {
  LPWSTR text = nullptr;
  UINT32 length = 0;
  if (FAILED(activation.GetAllocatedString(key, &text, &length))) return "-";
  std::string narrow;
  for (UINT32 at = 0; at < length; ++at) narrow += static_cast<char>(text[at]);
  CoTaskMemFree(text);
  return narrow;
}

int List() {
  for (const UINT32 flags : {0x45U, 0x46U, 0x41U}) {
    IMFActivate** list = nullptr;
    UINT32 count = 0;
    if (FAILED(MFTEnumEx(kEncoders, flags, nullptr, nullptr, &list, &count))) return 1;
    std::printf("flags %02x\n", flags);
    for (UINT32 place = 0; place < count; ++place) {
      ComPtr<IMFActivate> activation;
      *activation.Put() = list[place];
      std::printf("  %s (%s)\n", Text(*activation.Get(), MFT_FRIENDLY_NAME_Attribute).c_str(),
                  Text(*activation.Get(), kVendorAttribute).c_str());
    }
    CoTaskMemFree(list);
  }
  return 0;
}

int Run(int count, char** words) {
  if (count == 3 && std::strcmp(words[1], "add") == 0) return Add(words[2]);
  if (count == 2 && std::strcmp(words[1], "remove") == 0) return Remove();
  if (count == 2 && std::strcmp(words[1], "list") == 0) return List();
  std::fprintf(stderr, "usage: register_transforms add MODULE | remove | list\n");
  return 2;
}

}  // namespace

int main(int count, char** words) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (FAILED(MFStartup(MF_VERSION, MFSTARTUP_LITE))) return 1;
  const int result = Run(count, words);
  MFShutdown();
  CoUninitialize();
  return result;
}
