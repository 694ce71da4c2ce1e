// The setup window on the screen, and the user in front of it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "identity/install_identity.h"
#include "identity/trusted_peers.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tests/window/our_windows.h"
#include "tests/window/screenshot.h"
#include "tests/window/user_hands.h"
#include "ui/setup_window.h"

namespace Veldrift {

inline constexpr const wchar_t* kSetupKind = L"Veldrift.SetupDialog";

class SetupWindowTest : public testing::Test {
 protected:
  enum Control {
    kTitle = 2001,
    kSubtitle = 2002,
    kName = 2003,
    kSave = 2004,
    kDiscoverable = 2008,
    kClose = 2012,
    kHwEncoder = 2016,
    kDisclosure = 2018,
    kDot = 2200,
    kStatus = 2201,
    kEncoder = 2202,
    kInstance = 2204,
    kQr = 2205,
    kForget = 2500,  // the first; the next is 10 more
  };

  void SetUp() override {
    ASSERT_EQ(FindOurWindow(kSetupKind), nullptr);
    for (const TrustedPeer& peer : ListTrustedPeers()) RemoveTrustedPeer(peer.id);
    LoadOrCreateInstallIdentity();
    SetDisplayName("Cutting room");
    SetDiscoverable(false);
    SetEnableAsyncHwEncoders(false);
  }
  void TearDown() override {
    const HWND window = FindOurWindow(kSetupKind);
    CloseSetupDialog();
    EXPECT_TRUE(AwaitGone(window));
  }

  void Open() {
    ShowSetupDialog();
    window_ = AwaitOurWindow(kSetupKind);
    ASSERT_NE(window_, nullptr);
    Settle(window_);
    ASSERT_TRUE(BringToFront(window_));
  }
  HWND Item(int id) const { return GetDlgItem(window_, id); }
  std::wstring Text(int id) const { return TextOf(Item(id)); }
  bool AwaitText(int id, const std::wstring& text) const {
    return Eventually([&] { return Text(id) == text; });
  }
  // What a tick would do some time, at once.
  void Tick() const { SendMessageW(window_, WM_TIMER, 1, 0); }
  // Something that is done on the window's thread by what the hands did; and all of it is done
  // then.
  template <typename Condition>
  bool Soon(Condition&& condition) const {
    const bool done = Eventually([&] {
      Settle(window_);
      return condition();
    });
    Settle(window_);
    return done;
  }
  bool IsOpen() const { return SizeOfClient().cy == 1066; }
  SIZE SizeOfClient() const {
    RECT area{};
    GetClientRect(window_, &area);
    return {area.right, area.bottom};
  }
  void ToggleAdvanced() {
    const bool open = IsOpen();
    // Elsewhere each time: two clicks at one place are a double click, which does nothing.
    const POINT middle = MiddleOf(Item(kDisclosure));
    ClickAt({middle.x + (open ? 20 : -20), middle.y});
    ASSERT_TRUE(Soon([&] { return IsOpen() != open; }));
  }
  Picture Shot() const { return PictureOfClient(window_); }

  static void Pair(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string number = std::to_string(i);
      AddOrUpdateTrustedPeer({"id-" + number, "Phone " + number, std::string(64, 'a'),
                              "2026-03-0" + std::to_string(i % 9 + 1) + "T10:00:00Z"});
    }
  }

  HWND window_ = nullptr;
};

}  // namespace Veldrift
