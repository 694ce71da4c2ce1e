#include "tests/window/our_windows.h"

#include <ostream>

#include "tests/support/eventually.h"

namespace Veldrift {

HWND FindOurWindow(const std::wstring& kind, const std::wstring& title) {
  HWND window = nullptr;
  do {
    window = FindWindowExW(nullptr, window, kind.c_str(), title.empty() ? nullptr : title.c_str());
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    if (process == GetCurrentProcessId() && IsWindowVisible(window)) return window;
  } while (window != nullptr);
  return nullptr;
}

HWND AwaitOurWindow(const std::wstring& kind, const std::wstring& title) {
  HWND window = nullptr;
  Eventually([&] { return (window = FindOurWindow(kind, title)) != nullptr; });
  return window;
}

bool AwaitGone(HWND window) {
  return Eventually([&] { return !IsWindow(window); });
}

bool BringToFront(HWND window) {
  SetForegroundWindow(window);
  return Eventually([&] { return GetForegroundWindow() == window && FocusIn(window) != nullptr; });
}

void Settle(HWND window) { SendMessageW(window, WM_NULL, 0, 0); }

std::ostream& operator<<(std::ostream& out, const Place& place) {
  return out << place.left << "," << place.top << " " << place.width << "x" << place.height;
}

Place PlaceOf(HWND window) {
  RECT corners{};
  GetWindowRect(window, &corners);
  if (StyleOf(window) & WS_CHILD) {
    MapWindowPoints(nullptr, GetParent(window), reinterpret_cast<POINT*>(&corners), 2);
  }
  return {corners.left, corners.top, corners.right - corners.left, corners.bottom - corners.top};
}

Place ClientPlaceOf(HWND window) {
  RECT corners{};
  GetClientRect(window, &corners);
  MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&corners), 2);
  return {corners.left, corners.top, corners.right - corners.left, corners.bottom - corners.top};
}

POINT MiddleOf(HWND window) {
  RECT corners{};
  GetWindowRect(window, &corners);
  return {(corners.left + corners.right) / 2, (corners.top + corners.bottom) / 2};
}

std::ostream& operator<<(std::ostream& out, const FontLook& font) {
  return out << NarrowText(font.face) << " " << font.height << " weight " << font.weight
             << " quality " << int{font.quality};
}

FontLook FontOf(HWND control) {
  const auto font = reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0));
  LOGFONTW look{};
  if (GetObjectW(font, sizeof look, &look) == 0) return {};
  return {look.lfFaceName, look.lfHeight, look.lfWeight, look.lfQuality};
}

std::wstring KindOf(HWND window) {
  wchar_t kind[256] = {};
  GetClassNameW(window, kind, static_cast<int>(std::size(kind)));
  return kind;
}

std::wstring TextOf(HWND window) {
  std::wstring text(static_cast<size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
  text.resize(
      static_cast<size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
  return text;
}

DWORD StyleOf(HWND window) { return static_cast<DWORD>(GetWindowLongW(window, GWL_STYLE)); }

DWORD ExtendedStyleOf(HWND window) {
  return static_cast<DWORD>(GetWindowLongW(window, GWL_EXSTYLE));
}

HWND FocusIn(HWND window) {
  GUITHREADINFO info{};
  info.cbSize = sizeof info;
  GetGUIThreadInfo(GetWindowThreadProcessId(window, nullptr), &info);
  return info.hwndFocus;
}

}  // namespace Veldrift
