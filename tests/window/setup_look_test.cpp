// What a person sees of the setup window.
#include <set>

#include "tests/window/setup_fixture.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"

namespace Veldrift {
namespace {

constexpr uint32_t kBackground = 0x1C1C1E;
constexpr uint32_t kCard = 0x2C2C2E;
constexpr uint32_t kBorder = 0x404044;
constexpr uint32_t kBlue = 0x0A84FF;

FontLook Segoe(LONG height, LONG weight = 400) {
  return {L"Segoe UI", height, weight, CLEARTYPE_QUALITY};
}
const FontLook kIcons = {L"Segoe Fluent Icons", -14, 400, CLEARTYPE_QUALITY};
const FontLook kMono = {L"Consolas", -12, 400, CLEARTYPE_QUALITY};

// The controls without an id, by their texts; those of the panel have their own tag.
HWND ByText(HWND window, const std::wstring& text, int nth = 0) {
  for (HWND child = GetWindow(window, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
    if (TextOf(child) == text && nth-- == 0) return child;
  }
  return nullptr;
}

TEST_F(SetupWindowTest, EveryControlIsInItsPlaceWithItsTextAndFont) {
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(TextOf(window_), L"Ombrette");
  constexpr DWORD kFrame =
      WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX | WS_MAXIMIZEBOX;
  EXPECT_EQ(StyleOf(window_) & kFrame, DWORD{WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX});
  const Place place = PlaceOf(window_);
  EXPECT_EQ(place.left, (1280 - 820) / 2);
  EXPECT_EQ(place.top, (1400 - 780) / 2);
  EXPECT_EQ(place.width, 820);
  EXPECT_EQ(SizeOfClient().cy, 594);

  const std::wstring id = WideText(LoadOrCreateInstallIdentity().id);
  const struct {
    int id;
    std::wstring kind;
    Place place;
    FontLook font;
    std::wstring text;
  } controls[] = {
      {kTitle, L"Static", {20, 20, 780, 30}, Segoe(-22, 600), L"Ombrette"},
      {kSubtitle,
       L"Static",
       {20, 54, 780, 20},
       Segoe(-13),
       L"Scan the QR code with the Ombrette iOS app to connect."},
      {kQr, L"Static", {32, 94, 200, 200}, Segoe(-14), L""},
      {kDot, L"Static", {270, 118, 14, 14}, Segoe(-14), L""},
      {kStatus, L"Static", {288, 116, 498, 18}, Segoe(-14), L"Transmit disabled"},
      {kName, L"Edit", {362, 146, 342, 26}, Segoe(-14), L"Cutting room"},
      {kSave, L"Button", {708, 146, 78, 26}, Segoe(-14), L"Save"},
      {kDiscoverable, L"Button", {270, 178, 516, 28}, Segoe(-14), L"Discoverable on network"},
      {kHwEncoder,
       L"Button",
       {270, 210, 516, 28},
       Segoe(-14),
       L"Use NVIDIA / Intel HW HEVC encoder"},
      {kEncoder, L"Static", {270, 242, 516, 36}, Segoe(-11), L"Active encoder: — (not configured)"},
      {kInstance, L"Static", {20, 478, 780, 16}, Segoe(-11), L"Instance ID: " + id},
      {kDisclosure, L"Button", {20, 502, 180, 28}, Segoe(-14), L"▶  Advanced info"},
      {kClose, L"Button", {700, 502, 100, 28}, Segoe(-14), L"Close"},
  };
  for (const auto& control : controls) {
    SCOPED_TRACE(control.id);
    const HWND item = Item(control.id);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(KindOf(item), control.kind);
    EXPECT_EQ(PlaceOf(item), control.place);
    // A picture has none.
    if (control.id != kQr) {
      EXPECT_EQ(FontOf(item), control.font);
    }
    EXPECT_EQ(TextOf(item), control.text);
    EXPECT_TRUE(IsWindowVisible(item));
  }
  const struct {
    std::wstring text;
    Place place;
    FontLook font;
  } labels[] = {
      {L"DEVICE", {270, 96, 516, 18}, Segoe(-11, 600)},
      {L"\uE770", {270, 150, 18, 18}, kIcons},
      {L"Name", {292, 150, 70, 18}, Segoe(-12)},
      {L"TRUSTED IPHONES", {270, 320, 516, 18}, Segoe(-11, 600)},
      {L"No iPhones paired yet.", {270, 348, 516, 18}, Segoe(-11)},
      {L"Streaming starts automatically when you play back in Premiere.\nEnable or disable this "
       L"device from Preferences → Playback → Video Device.",
       {0, 538, 780, 36},
       Segoe(-11)},
  };
  for (const auto& label : labels) {
    const HWND item = ByText(window_, label.text);
    ASSERT_NE(item, nullptr) << NarrowText(label.text);
    EXPECT_EQ(PlaceOf(item), label.place) << NarrowText(label.text);
    EXPECT_EQ(FontOf(item), label.font) << NarrowText(label.text);
    EXPECT_TRUE(IsWindowVisible(item)) << NarrowText(label.text);
  }
}

TEST_F(SetupWindowTest, ThePanelUnfoldsBelow) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const Place before = PlaceOf(window_);
  const struct {
    int id;
    Place value;
    std::wstring label;
    wchar_t icon;
  } rows[] = {
      {2101, {144, 574, 246, 18}, L"Status", 0xF5B0},
      {2104, {144, 640, 246, 18}, L"Bitrate", 0xF0E4},
      {2107, {144, 706, 246, 18}, L"FEC parity", 0xE72E},
      {2109, {144, 776, 246, 18}, L"Max resolution", 0xE740},
      {2137, {144, 824, 246, 18}, L"Engine", 0xE950},
      {2139, {144, 868, 246, 18}, L"GOP", 0xE714},
      {2110, {540, 574, 246, 18}, L"IP", 0xE968},
      {2112, {540, 618, 246, 18}, L"Ports", 0xE8AB},
      {2113, {540, 660, 246, 18}, L"Controller", 0xE9D9},
      {2119, {540, 792, 246, 18}, L"Rate mode", 0xEC48},
  };
  for (const auto& row : rows) EXPECT_FALSE(IsWindowVisible(Item(row.id))) << row.id;
  ASSERT_NO_FATAL_FAILURE(ToggleAdvanced());
  EXPECT_EQ(Text(kDisclosure), L"▼  Advanced info");
  const Place after = PlaceOf(window_);
  EXPECT_EQ(after.left, before.left);
  EXPECT_EQ(after.top, before.top);
  EXPECT_EQ(after.width, before.width);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    EXPECT_TRUE(IsWindowVisible(Item(row.id)));
    EXPECT_EQ(PlaceOf(Item(row.id)), row.value);
    EXPECT_EQ(FontOf(Item(row.id)), kMono);
    const Place& value = row.value;
    const HWND label = ByText(window_, row.label, row.id == 2139 ? 1 : 0);
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(PlaceOf(label), (Place{value.left - 88, value.top, 88, 18}));
    EXPECT_EQ(FontOf(label), Segoe(-12));
    const HWND icon = GetWindow(label, GW_HWNDPREV);
    EXPECT_EQ(TextOf(icon), std::wstring(1, row.icon));
    EXPECT_EQ(PlaceOf(icon), (Place{value.left - 110, value.top, 18, 18}));
    EXPECT_EQ(FontOf(icon), kIcons);
  }
  EXPECT_EQ(Text(2112), L"47100 control · 47101 video · 47102 audio");
  const HWND hint = ByText(window_,
                           L"Streaming starts automatically when you play back in Premiere."
                           L"\nEnable or disable this device from Preferences → Playback → "
                           L"Video Device.");
  EXPECT_EQ(PlaceOf(hint), (Place{0, 1010, 780, 36}));
  const Picture open = Shot();
  EXPECT_EQ(open.At(210, 950), kCard);
  EXPECT_EQ(open.At(410, 800), kBackground);
  KeepShot("setup-expanded", open);

  ASSERT_NO_FATAL_FAILURE(ToggleAdvanced());
  EXPECT_EQ(Text(kDisclosure), L"▶  Advanced info");
  EXPECT_EQ(PlaceOf(window_), before);
  EXPECT_EQ(PlaceOf(hint), (Place{0, 538, 780, 36}));
  for (const auto& row : rows) EXPECT_FALSE(IsWindowVisible(Item(row.id))) << row.id;
}

// What an earlier window hid, the next one shows again.
TEST_F(SetupWindowTest, ItOpensCollapsedAndUnfoldsAgainWithItsCards) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_NO_FATAL_FAILURE(Open());
    EXPECT_EQ(SizeOfClient().cy, 594);
    EXPECT_EQ(Text(kDisclosure), L"▶  Advanced info");
    ASSERT_NO_FATAL_FAILURE(ToggleAdvanced());
    EXPECT_EQ(Shot().At(210, 950), kCard);
    EXPECT_EQ(Shot().At(600, 950), kCard);
    if (round == 1) {
      ASSERT_NO_FATAL_FAILURE(ToggleAdvanced());
    }
    CloseSetupDialog();
    ASSERT_TRUE(AwaitGone(window_));
  }
}

TEST_F(SetupWindowTest, ThePaintIsWhereItBelongs) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const Picture shot = Shot();
  KeepShot("setup", PictureOfWindow(window_));
  const struct {
    int x, y;
    uint32_t colour;
    const char* what;
  } points[] = {
      {10, 10, kBackground, "window"},
      {250, 200, kBackground, "between the cards"},
      {20, 82, kBackground, "outside a round corner"},
      {24, 200, 0xFFFFFF, "the card behind the code"},
      {500, 100, kCard, "device card"},
      {500, 300, kBackground, "below it"},
      {500, 430, kCard, "peers card"},
      {500, 35, kCard, "the title's band"},
      {712, 159, kBlue, "Save"},
      {704, 516, 0x48484C, "Close"},
      {24, 516, 0x343438, "the disclosure"},
      {600, 159, 0x3A3A3E, "the edit"},
      {770, 192, 0x48484C, "a switch that is off"},
      {277, 125, 0x696973, "the idle dot"},
      {751, 192, 0xFFFFFF, "its knob"},
  };
  for (const auto& point : points) {
    EXPECT_EQ(shot.At(point.x, point.y), point.colour) << point.what;
  }
  // Wine's rounding puts the border a pixel lower than it belongs.
  EXPECT_TRUE(shot.At(520, 82) == kBorder || shot.At(520, 83) == kBorder);
  // The longest texts stay within their controls.
  for (int id : {int{kTitle}, int{kSubtitle}, int{kStatus}, int{kInstance}, int{kEncoder}}) {
    const Place place = PlaceOf(Item(id));
    const Place drawn = DrawnPlace(shot, place);
    EXPECT_GT(drawn.width, 0) << id;
    EXPECT_LT(drawn.left + drawn.width, place.left + place.width) << id;
  }
}

// What a phone's camera sees is the pairing URI, pixel by pixel.
TEST_F(SetupWindowTest, TheQrCodeIsThatOfThisInstallation) {
  ASSERT_NO_FATAL_FAILURE(Open());
  // For a reader that isn't ours, which another system has.
  KeepShot("setup-to-scan", PictureOfWindow(window_));
  KeepText("setup-to-scan", BuildPairingUri(LoadOrCreateInstallIdentity()));
  const auto shown = [&] { return Part(Shot(), {32, 94, 200, 200}); };
  const auto expected = [] {
    const auto bitmap =
        RenderQrToBitmap(EncodeQrText(BuildPairingUri(LoadOrCreateInstallIdentity())), 200);
    std::vector<uint32_t> pixels = bitmap->pixels;
    for (uint32_t& pixel : pixels) pixel &= 0xFFFFFF;
    return pixels;
  };
  EXPECT_EQ(shown().pixels, expected());
  SetDisplayName("Another room");
  EXPECT_NE(shown().pixels, expected()) << "before anybody saved";
}

TEST_F(SetupWindowTest, LongNamesEndInAnEllipsisAndStayInTheirRow) {
  const std::string longName(90, 'W');
  const char* names[] = {"Freigabe für die Schnittplätze im Erdgeschoß",
                         "株式会社プレビュー用アイフォン十五号", "Mac & Cheese"};
  for (const char* name : names) {
    AddOrUpdateTrustedPeer({name, name, std::string(64, 'a'), "2026-03-01T10:00:00Z"});
  }
  SetDisplayName(longName);
  ASSERT_NO_FATAL_FAILURE(Open());
  const Picture shot = Shot();
  KeepShot("setup-long-names", shot);
  for (const char* name : names) {
    const HWND label = ByText(window_, WideText(name));
    ASSERT_NE(label, nullptr) << name;
    const Place place = PlaceOf(label);
    const Place drawn = DrawnPlace(shot, place);
    EXPECT_GT(drawn.width, 50) << name;
    EXPECT_LE(drawn.left + drawn.width, place.left + place.width) << name;
  }
  RemoveTrustedPeer(names[2]);
  AddOrUpdateTrustedPeer({"long", std::string(70, 'M') + " W", std::string(64, 'a'), ""});
  Tick();
  const HWND label = ByText(window_, std::wstring(70, L'M') + L" W");
  ASSERT_NE(label, nullptr);
  const Place drawn = DrawnPlace(Shot(), PlaceOf(label));
  EXPECT_LT(drawn.height, 16) << "a second line shows: " << drawn;
  KeepShot("setup-longest-name", Shot());
}

}  // namespace
}  // namespace Veldrift
