#include "platform/keyboard.h"

#include <algorithm>
#include <array>

#include "platform/win32/this_module.h"

namespace Veldrift {

bool CanTypeKeys() { return true; }

// A message box belongs to the window that asks; whose that is, its class tells.
bool OwnWindowInFront() {
  const HWND front = GetForegroundWindow();
  DWORD process = 0;
  if (front == nullptr || GetWindowThreadProcessId(front, &process) == 0) return false;
  if (process != GetCurrentProcessId()) return false;
  const HWND asking = GetAncestor(front, GA_ROOTOWNER);
  const ULONG_PTR module = GetClassLongPtrW(asking != nullptr ? asking : front, GCLP_HMODULE);
  return module == reinterpret_cast<ULONG_PTR>(ThisModule());
}

TypedKeys TypeKeys(std::span<const KeyEvent> events) {
  std::array<INPUT, 4> inputs{};
  const size_t count = std::min(events.size(), inputs.size());
  for (size_t i = 0; i < count; ++i) {
    inputs[i].type = INPUT_KEYBOARD;
    inputs[i].ki.wVk = events[i].virtualKey;
    inputs[i].ki.dwFlags = events[i].up ? KEYEVENTF_KEYUP : 0;
  }
  TypedKeys typed;
  typed.sent = SendInput(static_cast<UINT>(count), inputs.data(), sizeof(INPUT));
  if (typed.sent != count) typed.error = GetLastError();
  return typed;
}

}  // namespace Veldrift
