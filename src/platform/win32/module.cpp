#include "platform/module.h"

#include "platform/win32/this_module.h"

namespace Veldrift {

void* FindLoadedSymbol(const std::string& fileName, const char* symbol) {
  const HMODULE module = GetModuleHandleW(WideText(fileName).c_str());
  return module == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(module, symbol));
}

HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&ThisModule), &module);
  return module;
}

bool PinThisModule() {
  if (ThisModule() == GetModuleHandleW(nullptr)) return true;
  HMODULE module = nullptr;
  return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            reinterpret_cast<const wchar_t*>(&ThisModule), &module) != 0;
}

}  // namespace Veldrift
