#include "ui/win32/window_class.h"

#include "platform/win32/this_module.h"

namespace Veldrift {
namespace {

DWORD Register(const WNDCLASSW& kind) {
  return RegisterClassW(&kind) != 0 ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

DWORD RegisterOwnClass(WNDCLASSW kind) {
  kind.hInstance = ThisModule();
  const DWORD error = Register(kind);
  if (error != ERROR_CLASS_ALREADY_EXISTS) return error;
  if (!UnregisterClassW(kind.lpszClassName, kind.hInstance)) return error;
  return Register(kind);
}

}  // namespace Veldrift
