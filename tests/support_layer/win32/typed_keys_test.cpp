// A window with the input focus, of a host or of the plug-in, and the keys that reach it.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "platform/win32/this_module.h"
#include "support/host_keys.h"
#include "tests/support/manual_clock.h"

namespace Veldrift {
namespace {

// A key that went down, and whether Shift was held.
using Key = std::pair<int, bool>;

class TypedKeysTest : public testing::Test {
 protected:
  // Another library than the one that holds this code stands for the host.
  void SetUp() override { window_ = PutInFront(GetModuleHandleW(L"kernel32.dll"), nullptr); }
  void TearDown() override { DestroyWindow(window_); }

  // A window of a class of that library, with the focus; `owner` may be null.
  HWND PutInFront(HMODULE library, HWND owner) {
    WNDCLASSW kind{};
    kind.lpfnWndProc = &OnMessage;
    kind.lpszClassName = L"VeldriftKeyTest";
    kind.hInstance = library;
    RegisterClassW(&kind);
    const DWORD style = WS_VISIBLE | (owner != nullptr ? WS_POPUP : WS_OVERLAPPEDWINDOW);
    const HWND window = CreateWindowW(kind.lpszClassName, L"", style, 0, 0, 200, 100, owner,
                                      nullptr, library, nullptr);
    EXPECT_NE(window, nullptr) << SystemMessage(GetLastError());
    SetForegroundWindow(window);
    SetFocus(window);
    EXPECT_EQ(GetFocus(), window);
    down_.clear();
    up_ = 0;
    return window;
  }

  // What has come when as many keys have been released again.
  std::vector<Key> KeysUpTo(size_t released) {
    MSG message;
    while (up_ < released && GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    return std::exchange(down_, {});
  }

  static LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wide, LPARAM deep) {
    if (message == WM_KEYDOWN && wide != VK_SHIFT) {
      down_.emplace_back(int(wide), GetKeyState(VK_SHIFT) < 0);
    }
    if (message == WM_KEYUP) ++up_;
    return DefWindowProcW(window, message, wide, deep);
  }

  static inline std::vector<Key> down_;
  static inline size_t up_ = 0;  // Shift's among them
  HWND window_ = nullptr;
};

TEST_F(TypedKeysTest, EachTransportCommandHasItsShortcut) {
  for (uint8_t opcode = 0x1F; opcode <= 0x2A; ++opcode) SendHostKeys(opcode);
  const std::vector<Key> wanted = {
      {VK_SPACE, false}, {VK_RIGHT, false}, {VK_LEFT, false}, {VK_RIGHT, true}, {VK_LEFT, true},
      {'I', true},       {'O', true},       {'J', false},     {'K', false},     {'L', false}};
  EXPECT_EQ(KeysUpTo(wanted.size() + 4), wanted);
}

TEST_F(TypedKeysTest, TheNudgeStepsForthAndBackWithAPauseBetween) {
  ManualClock clock;
  const int64_t before = clock.NowNanos();
  NudgeHostByKeyboard(clock);
  EXPECT_EQ(clock.NowNanos() - before, 60'000'000);
  EXPECT_EQ(KeysUpTo(2), (std::vector<Key>{{VK_RIGHT, false}, {VK_LEFT, false}}));
}

// In front of the host stand a window of the plug-in, and then a question that this asks, whose own
// class is the system's. What is typed behind them shows that nothing was before.
TEST_F(TypedKeysTest, NoKeyReachesAWindowOfThePlugin) {
  ManualClock clock;
  const HWND own = PutInFront(ThisModule(), nullptr);
  const HWND question = PutInFront(GetModuleHandleW(L"kernel32.dll"), own);
  for (const HWND front : {question, own}) {
    SetForegroundWindow(front);
    SendHostKeys(0x20);
    NudgeHostByKeyboard(clock);
    DestroyWindow(front);
  }
  SetForegroundWindow(window_);
  SetFocus(window_);
  SendHostKeys(0x29);
  EXPECT_EQ(KeysUpTo(1), (std::vector<Key>{{'L', false}}));
}

}  // namespace
}  // namespace Veldrift
