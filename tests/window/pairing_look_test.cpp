// What a person sees of the pairing window.
#include <string>

#include "platform/win32/this_module.h"
#include "tests/window/pairing_fixture.h"
#include "tests/window/screenshot.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {
namespace {

const FontLook kTextFont = {L"Segoe UI", -16, 400, CLEARTYPE_QUALITY};
const FontLook kCodeFont = {L"Consolas", -56, 700, CLEARTYPE_QUALITY};

TEST_F(PairingWindowTest, EveryControlIsInItsPlaceWithItsTextAndFont) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  EXPECT_EQ(TextOf(window_), L"Ombrette — Pair iPhone");
  EXPECT_EQ(PlaceOf(window_), (Place{(1280 - 420) / 2, (1400 - 260) / 2, 420, 260}));
  constexpr DWORD kFrame =
      WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX;
  EXPECT_EQ(StyleOf(window_) & kFrame, DWORD{WS_CAPTION | WS_SYSMENU});
  EXPECT_TRUE(ExtendedStyleOf(window_) & WS_EX_TOPMOST);

  const struct {
    Control id;
    std::wstring kind;
    Place place;
    const FontLook& font;
    std::wstring text;
    DWORD alignment;
  } controls[] = {
      {kPrompt,
       L"Static",
       {10, 20, 384, 24},
       kTextFont,
       L"Enter this code on Anna's iPhone:",
       SS_CENTER},
      {kCode, L"Static", {10, 60, 384, 80}, kCodeFont, L"1 2 3 4 5 6", SS_CENTER},
      {kHint,
       L"Static",
       {10, 155, 384, 20},
       kTextFont,
       L"This window closes automatically when pairing completes.",
       SS_CENTER},
      {kCancel, L"Button", {160, 185, 100, 30}, kTextFont, L"Cancel", BS_PUSHBUTTON},
  };
  int children = 0;
  for (HWND child = GetWindow(window_, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
    ++children;
  }
  EXPECT_EQ(children, 4);
  for (const auto& control : controls) {
    SCOPED_TRACE(control.id);
    const HWND item = Item(control.id);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(KindOf(item), control.kind);
    EXPECT_EQ(PlaceOf(item), control.place);
    EXPECT_EQ(FontOf(item), control.font);
    EXPECT_EQ(TextOf(item), control.text);
    EXPECT_EQ(StyleOf(item) & SS_TYPEMASK, control.alignment);
    EXPECT_TRUE(IsWindowVisible(item));
  }
}

// Whatever the user has in front, and has just clicked at.
TEST_F(PairingWindowTest, ItStaysInFrontOfOtherWindows) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  const Place place = PlaceOf(window_);
  const UniqueWindow editor(CreateWindowExW(
      0, L"EDIT", L"editor", WS_OVERLAPPED | WS_VISIBLE, place.left - 50, place.top - 50,
      place.width + 100, place.height + 100, nullptr, nullptr, ThisModule(), nullptr));
  SetForegroundWindow(editor.get());
  EXPECT_EQ(GetForegroundWindow(), editor.get());
  EXPECT_EQ(WindowFromPoint({place.left - 20, place.top + 20}), editor.get());
  EXPECT_EQ(WindowFromPoint(MiddleOf(Item(kCancel))), Item(kCancel));
}

// Names as they come from phones. Of each the whole line or its beginning with an ellipsis is seen,
// clear of the control's edges; "&" is a sign like others.
TEST_F(PairingWindowTest, NamesOfAllKindsAreShownOnOneLine) {
  const struct {
    const char* shot;
    std::string name;
    std::wstring prompt;
  } names[] = {
      {"pairing", "Anna's iPhone", L"Enter this code on Anna's iPhone:"},
      {"pairing-no-name", "", L"Enter this code on iPhone:"},
      {"pairing-ampersand", "Mac & Cheese && more", L"Enter this code on Mac & Cheese && more:"},
      {"pairing-long-name", "Christoph-Alexander's wonderful new iPhone 15 Pro Max (office)",
       L"Enter this code on Christoph-Alexander's wonderful new iPhone 15 Pro Max (office):"},
      {"pairing-one-long-word", std::string(200, 'W'),
       L"Enter this code on " + std::wstring(200, L'W') + L":"},
      {"pairing-lines", "first\r\nsecond", L"Enter this code on first  second:"},
      {"pairing-greek", "Το κινητό της Άννας", L"Enter this code on Το κινητό της Άννας:"},
      {"pairing-cyrillic", "Телефон Анны", L"Enter this code on Телефон Анны:"},
      {"pairing-hebrew", "הטלפון של חנה", L"Enter this code on הטלפון של חנה:"},
      {"pairing-emoji", "📱 電話", L"Enter this code on 📱 電話:"},
  };
  for (const auto& phone : names) {
    SCOPED_TRACE(phone.shot);
    ASSERT_NO_FATAL_FAILURE(ShowInFront(phone.name));
    EXPECT_EQ(TextOf(Item(kPrompt)), phone.prompt);
    const Picture picture = PictureOfClient(window_);
    KeepShot(phone.shot, PictureOfWindow(window_));
    const Place place = PlaceOf(Item(kPrompt));
    const Place drawn = DrawnPlace(picture, place);
    EXPECT_GT(drawn.width, 0);
    EXPECT_GT(drawn.top, place.top) << drawn;
    EXPECT_LT(drawn.top + drawn.height, place.top + place.height) << drawn;
    dialog_.reset();
  }
}

// A name that goes on beyond the edge isn't simply broken off: what is seen ends in three dots.
TEST_F(PairingWindowTest, ALongNameTakesTheWholeLine) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront("Christoph-Alexander's wonderful new iPhone 15 Pro Max"));
  const Place place = PlaceOf(Item(kPrompt));
  EXPECT_GT(DrawnPlace(PictureOfClient(window_), place).width, place.width * 9 / 10);
}

TEST_F(PairingWindowTest, AnAmpersandIsDrawnAndNoLetterUnderlined) {
  const auto drawn = [this](const std::string& name) {
    ShowInFront(name);
    const Place place = PlaceOf(Item(kPrompt));
    const Place ink = DrawnPlace(PictureOfClient(window_), place);
    dialog_.reset();
    return ink.width;
  };
  EXPECT_GT(drawn("A&B"), drawn("AB") + 5);
}

// Its control is lower than a line of the font: what is cut off is empty.
TEST_F(PairingWindowTest, TheHintsLettersAreWhole) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  const LONG seen = DrawnPlace(PictureOfClient(window_), PlaceOf(Item(kHint))).height;
  SetWindowTextW(Item(kPrompt), TextOf(Item(kHint)).c_str());
  EXPECT_EQ(seen, DrawnPlace(PictureOfClient(window_), PlaceOf(Item(kPrompt))).height);
}

// One window's ground stands behind all its texts.
TEST_F(PairingWindowTest, TextsStandOnTheWindowsOwnGround) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront());
  const Picture picture = PictureOfClient(window_);
  for (const Control id : {kPrompt, kCode, kHint}) {
    const Place place = PlaceOf(Item(id));
    EXPECT_EQ(picture.At(place.left, place.top), picture.At(2, 2)) << id;
  }
}

// The code is the window's reason: its digits are large, whole and apart.
TEST_F(PairingWindowTest, EveryDigitOfTheCodeStandsApart) {
  ASSERT_NO_FATAL_FAILURE(ShowInFront("Anna", "888888"));
  const Picture picture = PictureOfClient(window_);
  const Place place = PlaceOf(Item(kCode));
  const Place drawn = DrawnPlace(picture, place);
  int digits = 0;
  bool inside = false;
  for (LONG x = drawn.left; x < drawn.left + drawn.width; ++x) {
    const bool ink = DrawnPlace(picture, {x, place.top, 1, place.height}).width > 0;
    if (ink && !inside) ++digits;
    inside = ink;
  }
  EXPECT_EQ(digits, 6);
  EXPECT_GE(drawn.height, 36) << drawn;
  EXPECT_GT(drawn.left, place.left);
  EXPECT_LT(drawn.left + drawn.width, place.left + place.width);
}

}  // namespace
}  // namespace Veldrift
