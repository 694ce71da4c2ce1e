#include "tests/window/user_hands.h"

#include <gtest/gtest.h>

#include <ranges>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/window/our_windows.h"

namespace Veldrift {
namespace {

void Send(std::vector<INPUT> inputs) {
  const auto count = static_cast<UINT>(inputs.size());
  EXPECT_EQ(SendInput(count, inputs.data(), sizeof(INPUT)), count) << SystemMessage(GetLastError());
}

INPUT Mouse(DWORD what, POINT place = {}) {
  INPUT input{};
  input.type = INPUT_MOUSE;
  input.mi.dx = place.x;
  input.mi.dy = place.y;
  input.mi.dwFlags = what;
  return input;
}

INPUT Key(WORD key, DWORD flags) {
  INPUT input{};
  input.type = INPUT_KEYBOARD;
  input.ki.wVk = key;
  input.ki.dwFlags = flags;
  return input;
}

INPUT Character(wchar_t character, DWORD flags) {
  INPUT input = Key(0, KEYEVENTF_UNICODE | flags);
  input.ki.wScan = character;
  return input;
}

// The system takes places in parts of the screen: the least number that means this pixel.
LONG Part(LONG pixel, int screen) { return (pixel * 65'536 + screen - 1) / screen; }

bool PointerIsAt(POINT place) {
  POINT found{};
  return GetCursorPos(&found) && found.x == place.x && found.y == place.y;
}

}  // namespace

// A window that has just come up beneath the pointer reports where that was, behind our back: only
// when the pointer has stayed for a while it is there.
void MoveMouse(POINT to) {
  constexpr int kLooks = 20;
  const POINT parts = {Part(to.x, GetSystemMetrics(SM_CXSCREEN)),
                       Part(to.y, GetSystemMetrics(SM_CYSCREEN))};
  int there = 0;
  EXPECT_TRUE(Eventually([&] {
    there = PointerIsAt(to) ? there + 1 : 0;
    if (there == 0) Send({Mouse(MOUSEEVENTF_MOVE | MOUSEEVENTF_ABSOLUTE, parts)});
    return there == kLooks;
  }));
}

void PressMouse() { Send({Mouse(MOUSEEVENTF_LEFTDOWN)}); }

void ReleaseMouse() { Send({Mouse(MOUSEEVENTF_LEFTUP)}); }

void ClickAt(POINT point) {
  MoveMouse(point);
  PressMouse();
  ReleaseMouse();
}

void Click(HWND control) { ClickAt(MiddleOf(control)); }

void TypeKey(std::initializer_list<WORD> keys) {
  std::vector<INPUT> inputs;
  for (const WORD key : keys) inputs.push_back(Key(key, 0));
  for (const WORD key : std::vector(keys) | std::views::reverse) {
    inputs.push_back(Key(key, KEYEVENTF_KEYUP));
  }
  Send(std::move(inputs));
}

void TypeText(std::wstring_view text) {
  std::vector<INPUT> inputs;
  for (const wchar_t character : text) {
    inputs.push_back(Character(character, 0));
    inputs.push_back(Character(character, KEYEVENTF_KEYUP));
  }
  Send(std::move(inputs));
}

}  // namespace Veldrift
