// A window of ours with the input focus, and the keys that reach it.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "platform/win32/windows_headers.h"
#include "support/host_keys.h"
#include "tests/support/manual_clock.h"

namespace Veldrift {
namespace {

// A key that went down, and whether Shift was held.
using Key = std::pair<int, bool>;

class TypedKeysTest : public testing::Test {
 protected:
  void SetUp() override {
    WNDCLASSW kind{};
    kind.lpfnWndProc = &OnMessage;
    kind.lpszClassName = L"VeldriftKeyTest";
    RegisterClassW(&kind);
    window_ = CreateWindowW(kind.lpszClassName, L"", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200,
                            100, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(window_, nullptr) << SystemMessage(GetLastError());
    SetForegroundWindow(window_);
    SetFocus(window_);
    ASSERT_EQ(GetFocus(), window_);
    down_.clear();
    up_ = 0;
  }
  void TearDown() override {
    if (window_ != nullptr) DestroyWindow(window_);
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

}  // namespace
}  // namespace Veldrift
