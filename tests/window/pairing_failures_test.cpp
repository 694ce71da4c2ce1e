// A pairing window that can't be had: the log says why, and the handshake goes on as without one.
#include <string>

#include "platform/win32/this_module.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"
#include "tests/window/pairing_fixture.h"
#include "tests/window/user_hands.h"

namespace Veldrift {
namespace {

class PairingFailures : public PairingWindowTest {
 protected:
  // A class of the window's name with another procedure, as an earlier life of the module leaves
  // it.
  static void LeaveClassBehind() {
    WNDCLASSW kind{};
    kind.lpfnWndProc = &DefWindowProcW;
    kind.lpszClassName = kPairingKind;
    kind.hInstance = ThisModule();
    ASSERT_NE(RegisterClassW(&kind), 0);
  }
  // Registration is once a process, and other tests have done it in this one.
  static void RunInChild(const std::string& test) {
    const ScratchFolder folder;
    const auto child = StartChild(test, folder.Path());
    ASSERT_TRUE(child);
    EXPECT_EQ(child->Wait(), 0);
  }
};

TEST_F(PairingFailures, AWindowThatIsRefusedIsLogged) {
  OpenOnce();
  const ClassTap tap(kPairingKind, [](HWND, UINT message, WPARAM, LPARAM) {
    if (message == WM_NCCREATE) SetLastError(ERROR_ACCESS_DENIED);
    return message == WM_NCCREATE ? std::optional<LRESULT>(FALSE) : std::nullopt;
  });
  ExpectNoWindow("pair_dialog:ERROR] CreateWindowExW failed: 5");
}

TEST_F(PairingFailures, DISABLED_WithTheClassInUse) {
  LeaveClassBehind();
  const HWND user = CreateWindowExW(0, kPairingKind, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                    ThisModule(), nullptr);
  ASSERT_NE(user, nullptr);
  ExpectNoWindow("pair_dialog:ERROR] RegisterClassW failed: 1410");
  DestroyWindow(user);
  ExpectNoWindow("pair_dialog:ERROR] RegisterClassW failed: 1410");  // not tried again
}
TEST_F(PairingFailures, AClassThatCantBeRegisteredIsLoggedAndNotTriedAgain) {
  RunInChild("PairingFailures.DISABLED_WithTheClassInUse");
}

TEST_F(PairingFailures, DISABLED_WithAClassLeftBehind) {
  LeaveClassBehind();
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  Click(Item(kCancel));
  EXPECT_TRUE(AwaitCancel());
}
TEST_F(PairingFailures, AClassThatTheModuleLeftBehindIsReplaced) {
  RunInChild("PairingFailures.DISABLED_WithAClassLeftBehind");
}

}  // namespace
}  // namespace Veldrift
