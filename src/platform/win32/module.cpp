#include "platform/module.h"

#include "platform/win32/windows_headers.h"

namespace Veldrift {

void* FindLoadedSymbol(const std::string& fileName, const char* symbol) {
  const HMODULE module = GetModuleHandleW(WideText(fileName).c_str());
  return module == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(module, symbol));
}

bool PinThisModule() {
  const auto* here = reinterpret_cast<const char*>(&PinThisModule);
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          here, &module)) {
    return false;
  }
  if (module == GetModuleHandleW(nullptr)) return true;
  return GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                            here, &module) != 0;
}

}  // namespace Veldrift
