// A pairing window on the screen, and what its handshake hears of it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tests/window/class_tap.h"
#include "tests/window/our_windows.h"
#include "ui/pairing_window.h"

namespace Veldrift {

inline constexpr const wchar_t* kPairingKind = L"Veldrift.PairingDialog";

class PairingWindowTest : public testing::Test {
 protected:
  enum Control { kPrompt = 1001, kCode = 1002, kHint = 1003, kCancel = 1004 };

  void SetUp() override { ASSERT_EQ(FindOurWindow(kPairingKind), nullptr); }
  void TearDown() override {
    dialog_.reset();
    EXPECT_EQ(FindOurWindow(kPairingKind), nullptr);
  }

  void Show(const std::string& name = "Anna's iPhone", const std::string& code = "123456") {
    dialog_ = CreatePairingDialog();
    dialog_->Show(code, name, [this] {
      canceller_ = GetCurrentThreadId();
      ++cancels_;
    });
  }
  // The same, as far as the screen shows it, and in front.
  void ShowInFront(const std::string& name = "Anna's iPhone", const std::string& code = "123456") {
    Show(name, code);
    window_ = AwaitOurWindow(kPairingKind);
    ASSERT_NE(window_, nullptr);
    Settle(window_);
    ASSERT_TRUE(BringToFront(window_));
  }
  HWND Item(Control id) const { return GetDlgItem(window_, id); }
  bool AwaitCancel() {
    return Eventually([&] { return cancels_ > 0; });
  }
  // Waits for the dialog's thread, behind which no callback comes any more.
  int CancelsInTheEnd() {
    dialog_.reset();
    return cancels_;
  }
  // A window that can't be had: its log line, and nothing else.
  void ExpectNoWindow(const std::string& line) {
    const size_t before = CountInPluginLog(line);
    Show();
    EXPECT_TRUE(Eventually([&] { return CountInPluginLog(line) == before + 1; }))
        << ReadPluginLog();
    EXPECT_EQ(FindOurWindow(kPairingKind), nullptr);
    dialog_->Close();
    EXPECT_EQ(CancelsInTheEnd(), 0);
  }
  // The class is there from the first dialog on.
  void OpenOnce() {
    Show();
    EXPECT_NE(AwaitOurWindow(kPairingKind), nullptr);
    dialog_.reset();
  }

  std::unique_ptr<IPairingDialog> dialog_;
  HWND window_ = nullptr;
  std::atomic<int> cancels_{0};
  std::atomic<DWORD> canceller_{0};  // the callback's thread
};

}  // namespace Veldrift
