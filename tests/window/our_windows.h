// The windows of this process as the user sees them: found by class and title, described by what
// the system says of them.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "platform/win32/windows_headers.h"
#include "ui/setup_layout.h"

namespace Veldrift {

// A visible top-level window of this process; any title will do for an empty one. Null if there is
// none.
HWND FindOurWindow(const std::wstring& kind, const std::wstring& title = {});
// The same, as soon as there is one. Null if there was none for as long as a test waits.
HWND AwaitOurWindow(const std::wstring& kind, const std::wstring& title = {});
// As soon as it has been destroyed; false if it hasn't been for as long as a test waits.
bool AwaitGone(HWND window);
// Brings it to the front, with the input focus; false if the system didn't.
bool BringToFront(HWND window);
// Waits until the window's thread has done what was posted to it before.
void Settle(HWND window);

// Of a control: in its parent's client area. Of a top-level window: on the screen.
std::ostream& operator<<(std::ostream& out, const Place& place);
Place PlaceOf(HWND window);
// On the screen.
Place ClientPlaceOf(HWND window);
POINT MiddleOf(HWND window);

// As it was asked for; what it resolves to stands in fonts_test.cpp.
struct FontLook {
  std::wstring face;
  LONG height = 0;
  LONG weight = 0;
  BYTE quality = 0;

  bool operator==(const FontLook&) const = default;
};
std::ostream& operator<<(std::ostream& out, const FontLook& font);
FontLook FontOf(HWND control);

std::wstring KindOf(HWND window);  // its class
std::wstring TextOf(HWND window);
DWORD StyleOf(HWND window);
DWORD ExtendedStyleOf(HWND window);
// Which control of its thread has the input focus; null if none.
HWND FocusIn(HWND window);

}  // namespace Veldrift
