// When the pairing window closes, and what the handshake hears of it.
#include <objbase.h>

#include <stdexcept>
#include <string>

#include "tests/support/gate.h"
#include "tests/support/scratch.h"
#include "tests/window/pairing_fixture.h"
#include "tests/window/user_hands.h"

namespace Veldrift {
namespace {

// A point of the frame that the system takes for this part of it.
POINT PartOfFrame(HWND window, LRESULT part) {
  const Place place = PlaceOf(window);
  for (LONG y = place.top; y < place.top + 40; ++y) {
    for (LONG x = place.left + place.width - 1; x > place.left; --x) {
      if (SendMessageW(window, WM_NCHITTEST, 0, MAKELPARAM(x, y)) == part) return {x - 4, y + 4};
    }
  }
  ADD_FAILURE() << "the frame has no part " << part;
  return {};
}

class PairingRules : public PairingWindowTest {
 protected:
  // A tap whose windows wait at the gate when `message` comes to them.
  std::unique_ptr<ClassTap> TapHolding(UINT held) {
    OpenOnce();
    gate_.Shut();
    return std::make_unique<ClassTap>(kPairingKind,
                                      [this, held](HWND, UINT message, WPARAM, LPARAM) {
                                        if (message == held) gate_.Pass();
                                        return std::nullopt;
                                      });
  }

  Gate gate_;
};

TEST_F(PairingRules, EveryWayOfTheUsersTellsTheHandshakeOnceAndOnTheWindowsThread) {
  const struct {
    const char* way;
    std::function<void()> end;
  } ways[] = {
      {"a click on Cancel", [this] { Click(Item(kCancel)); }},
      {"a click on the close box", [this] { ClickAt(PartOfFrame(window_, HTCLOSE)); }},
      {"the system menu", [this] { PostMessageW(window_, WM_SYSCOMMAND, SC_CLOSE, 0); }},
      {"Alt+F4",
       [] {
         TypeKey({VK_MENU, VK_F4});
       }},
  };
  for (const auto& [way, end] : ways) {
    SCOPED_TRACE(way);
    cancels_ = 0;
    ASSERT_NO_FATAL_FAILURE(ShowInFront());
    const DWORD thread = GetWindowThreadProcessId(window_, nullptr);
    EXPECT_NE(thread, GetCurrentThreadId());
    end();
    EXPECT_TRUE(AwaitCancel());
    EXPECT_EQ(canceller_, thread);
    EXPECT_FALSE(IsWindow(window_));
    dialog_->Close();
    EXPECT_EQ(CancelsInTheEnd(), 1);
  }
}

// What somebody types who works in the editor when the window comes up in front of it.
TEST_F(PairingRules, StrayKeysLeaveItAlone) {
  OpenOnce();
  ClassTap tap(kPairingKind, [](HWND, UINT, WPARAM, LPARAM) { return std::nullopt; });
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  EXPECT_EQ(FocusIn(window_), window_);
  const WORD keys[] = {VK_SPACE, VK_RETURN, VK_ESCAPE, VK_TAB, VK_SPACE, VK_RETURN,
                       VK_LEFT,  VK_RIGHT,  'C',       'J',    'K',      VK_DELETE};
  for (const WORD key : keys) TypeKey({key});
  EXPECT_TRUE(
      Eventually([&] { return tap.Done(WM_KEYUP) == int(std::size(keys)) || !IsWindow(window_); }));
  ASSERT_TRUE(IsWindow(window_));
  EXPECT_EQ(FocusIn(window_), window_);
  EXPECT_EQ(tap.Done(WM_CLOSE), 0);
  EXPECT_EQ(TextOf(Item(kCode)), L"1 2 3 4 5 6");
  EXPECT_EQ(CancelsInTheEnd(), 0);
}

// Somebody presses the button and thinks better of it: the next Space must not press it.
TEST_F(PairingRules, AClickThatIsPulledOffCancelLeavesNoFocusThere) {
  OpenOnce();
  ClassTap tap(kPairingKind, [](HWND, UINT, WPARAM, LPARAM) { return std::nullopt; });
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  MoveMouse(MiddleOf(Item(kCancel)));
  PressMouse();
  EXPECT_TRUE(Eventually([&] { return FocusIn(window_) == Item(kCancel); }));
  MoveMouse(MiddleOf(Item(kCode)));
  ReleaseMouse();
  EXPECT_TRUE(Eventually([&] { return FocusIn(window_) == window_; }));
  TypeKey({VK_SPACE});
  EXPECT_TRUE(Eventually([&] { return tap.Done(WM_KEYUP) == 1 || !IsWindow(window_); }));
  Settle(window_);
  EXPECT_TRUE(IsWindow(window_));
  EXPECT_EQ(CancelsInTheEnd(), 0);
}

TEST_F(PairingRules, CloseClosesOnceAndInSilence) {
  OpenOnce();
  // The window stays until all that was posted has been counted.
  std::atomic<bool> stay{true};
  ClassTap tap(kPairingKind, [&stay](HWND, UINT message, WPARAM, LPARAM) {
    return stay && message == WM_CLOSE ? std::optional<LRESULT>(0) : std::nullopt;
  });
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  dialog_->Close();
  dialog_->Close();
  PostMessageW(window_, WM_USER, 0, 0);
  EXPECT_TRUE(Eventually([&] { return tap.Done(WM_USER) == 1; }));
  EXPECT_EQ(tap.Done(WM_CLOSE), 1);
  stay = false;
  PostMessageW(window_, WM_CLOSE, 0, 0);
  EXPECT_TRUE(AwaitGone(window_));
  EXPECT_EQ(CancelsInTheEnd(), 0);
}

TEST_F(PairingRules, DestroyingItClosesTheWindowInSilence) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  dialog_.reset();
  EXPECT_FALSE(IsWindow(window_));
  EXPECT_EQ(cancels_, 0);
  CreatePairingDialog().reset();  // never shown
}

// From the window's creation to its first picture, Close finds no window that it could post to.
TEST_F(PairingRules, AnEarlyCloseIsKeptUntilThereIsAWindow) {
  for (const UINT held : {WM_NCCREATE, WM_CREATE, WM_SHOWWINDOW, WM_PAINT}) {
    SCOPED_TRACE(held);
    const auto tap = TapHolding(held);
    Show();
    gate_.AwaitSomebody();
    dialog_->Close();
    gate_.Open();
    EXPECT_TRUE(Eventually([&] { return tap->Done(WM_DESTROY) == 1; }));
    EXPECT_EQ(CancelsInTheEnd(), 0);
  }
}

// The handshake is done while the user's Cancel is on its way: it hears nothing of it any more.
TEST_F(PairingRules, ACloseThatCrossesACancelWins) {
  for (const UINT held : {WM_COMMAND, WM_CLOSE, WM_DESTROY}) {
    SCOPED_TRACE(held);
    const auto tap = TapHolding(held);
    ASSERT_NO_FATAL_FAILURE(ShowInFront());
    Click(Item(kCancel));
    gate_.AwaitSomebody();
    dialog_->Close();
    gate_.Open();
    EXPECT_TRUE(AwaitGone(window_));
    EXPECT_EQ(CancelsInTheEnd(), 0);
  }
}

TEST_F(PairingRules, TheCallbackComesBehindTheWindowWithItsThreadsComAndMayCloseItself) {
  dialog_ = CreatePairingDialog();
  dialog_->Show("123456", "Anna", [this] {
    APTTYPE apartment{};
    APTTYPEQUALIFIER qualifier{};
    EXPECT_EQ(CoGetApartmentType(&apartment, &qualifier), S_OK);
    EXPECT_TRUE(apartment == APTTYPE_STA || apartment == APTTYPE_MAINSTA) << apartment;
    EXPECT_EQ(FindOurWindow(kPairingKind), nullptr);
    dialog_->Close();
    ++cancels_;
  });
  window_ = AwaitOurWindow(kPairingKind);
  Click(Item(kCancel));
  EXPECT_TRUE(AwaitCancel());
  EXPECT_EQ(CancelsInTheEnd(), 1);
}

TEST_F(PairingRules, WhatTheCallbackThrowsOrLacksStaysOnTheWindowsThread) {
  const size_t before = CountInPluginLog("pair_dialog:ERROR] pairing dialog ended by an exception");
  for (const std::function<void()>& callback :
       {std::function<void()>(), std::function<void()>([] { throw std::runtime_error("no"); })}) {
    dialog_ = CreatePairingDialog();
    dialog_->Show("123456", "Anna", callback);
    window_ = AwaitOurWindow(kPairingKind);
    Click(Item(kCancel));
    EXPECT_TRUE(AwaitGone(window_));
    dialog_.reset();
  }
  EXPECT_EQ(CountInPluginLog("pair_dialog:ERROR] pairing dialog ended by an exception"),
            before + 1);
}

}  // namespace
}  // namespace Veldrift
