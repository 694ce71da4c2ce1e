// What a user's hands do: the mouse and the keyboard, by way of the system's input. What is done
// reaches whichever window is under the pointer, or has the focus, and takes a moment to get there.
#pragma once

#include <initializer_list>
#include <string_view>

#include "platform/win32/windows_headers.h"

namespace Veldrift {

// Points on the screen.
void MoveMouse(POINT to);
void PressMouse();
void ReleaseMouse();
void ClickAt(POINT point);
// In the middle of it.
void Click(HWND control);

// Presses the keys in this order and releases them the other way round: {VK_MENU, VK_F4} is Alt+F4.
void TypeKey(std::initializer_list<WORD> keys);
// Any characters, as if there were keys for them.
void TypeText(std::wstring_view text);

}  // namespace Veldrift
