// What a user does in the setup window, by mouse and keys, and what becomes of it.
#include "encoder/encoder_description.h"
#include "session/shared_transport.h"
#include "support/host_keys.h"
#include "tests/window/setup_fixture.h"
#include "ui/pairing_uri.h"
#include "ui/qr_code.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {
namespace {

TEST_F(SetupWindowTest, ASwitchIsWrittenAtOnce) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const struct {
    Control id;
    bool (*isOn)();
    const char* line;
  } switches[] = {
      {kDiscoverable, IsDiscoverable, "discoverable toggled -> "},
      {kHwEncoder, IsAsyncHwEncodersEnabled, "enableAsyncHwEncoders toggled -> "},
  };
  for (const auto& each : switches) {
    SCOPED_TRACE(each.line);
    const std::string on = each.line + std::string("1"), off = each.line + std::string("0");
    const size_t onBefore = CountInPluginLog(on), offBefore = CountInPluginLog(off);
    const Place place = PlaceOf(Item(each.id));
    const auto pill = [&] { return Shot().At(place.left + 490, place.top + 4); };
    const Picture before = Part(Shot(), place);
    EXPECT_EQ(pill(), 0x48484CU);
    Click(Item(each.id));
    EXPECT_TRUE(Soon([&] { return each.isOn(); }));
    EXPECT_TRUE(Soon([&] { return pill() == 0x0A84FFU; }));
    EXPECT_EQ(CountInPluginLog(on) - onBefore, 1U);
    // It has the focus now.
    TypeKey({VK_SPACE});
    EXPECT_TRUE(Soon([&] { return !each.isOn(); }));
    EXPECT_TRUE(Soon([&] { return pill() == 0x48484CU; }));
    EXPECT_EQ(CountInPluginLog(off) - offBefore, 1U);
    EXPECT_NE(Part(Shot(), place), before) << "nothing shows the focus";
  }
}

TEST_F(SetupWindowTest, SaveRenamesAndRenewsTheCode) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const char* const kLine = "setup_dialog:INFO] display name updated to Studio é & 編集";
  const size_t linesBefore = CountInPluginLog(kLine);
  const std::string id = LoadOrCreateInstallIdentity().id;
  const auto name = [] { return LoadOrCreateInstallIdentity().name; };
  const auto type = [&](const std::wstring& text) {
    Click(Item(kName));
    EXPECT_TRUE(Soon([&] { return FocusIn(window_) == Item(kName); }));
    TypeKey({VK_END});
    TypeKey({VK_SHIFT, VK_HOME});
    TypeKey({VK_DELETE});
    EXPECT_TRUE(AwaitText(kName, L""));
    TypeText(text);
    EXPECT_TRUE(AwaitText(kName, text));
  };
  const Picture before = Part(Shot(), {32, 94, 200, 200});
  type(L"Studio é & 編集");
  EXPECT_EQ(name(), "Cutting room") << "before anybody saved";
  Click(Item(kSave));
  EXPECT_TRUE(Soon([&] { return name() == "Studio é & 編集"; }));
  EXPECT_EQ(LoadOrCreateInstallIdentity().id, id);
  EXPECT_EQ(CountInPluginLog(kLine) - linesBefore, 1U);
  const auto bitmap = RenderQrToBitmap(EncodeQrText(BuildPairingUri({id, name()})), 200);
  Picture code = Part(Shot(), {32, 94, 200, 200});
  EXPECT_NE(code, before);
  for (uint32_t& pixel : code.pixels) pixel |= 0xFF000000;
  EXPECT_EQ(code.pixels, bitmap->pixels);

  // Enter in the edit saves as well.
  type(L"Second");
  TypeKey({VK_RETURN});
  EXPECT_TRUE(Soon([&] { return name() == "Second"; }));
  // What is empty isn't saved, and stays what the user made of it.
  type(L"");
  Click(Item(kSave));
  EXPECT_TRUE(Soon([&] { return FocusIn(window_) == Item(kSave); }));
  TypeKey({VK_TAB});  // behind the click
  EXPECT_TRUE(Soon([&] { return FocusIn(window_) == Item(kDiscoverable); }));
  EXPECT_EQ(name(), "Second");
  EXPECT_EQ(Text(kName), L"");
}

// The installation's file holds 255 characters at most, and no half of one.
TEST_F(SetupWindowTest, ALongNameIsKeptAsFarAsItCanBeTyped) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const std::wstring film = L"\xD83C\xDFAC";
  std::wstring text(254, L'x');
  SetWindowTextW(Item(kName), (text + film).c_str());
  Click(Item(kSave));
  EXPECT_TRUE(Soon([&] { return LoadOrCreateInstallIdentity().name == std::string(254, 'x'); }));
}

// As in every dialog: the keys go where a user expects them.
TEST_F(SetupWindowTest, TabGoesThroughTheControlsAsTheyAreRead) {
  Pair(2);
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(GetDlgCtrlID(FocusIn(window_)), int{kName});
  for (int id : {int{kSave}, int{kDiscoverable}, int{kHwEncoder}, int{kForget}, kForget + 10,
                 int{kDisclosure}, int{kClose}, int{kName}}) {
    TypeKey({VK_TAB});
    EXPECT_TRUE(Soon([&] { return GetDlgCtrlID(FocusIn(window_)) == id; })) << id;
  }
  TypeKey({VK_SHIFT, VK_TAB});
  EXPECT_TRUE(Soon([&] { return GetDlgCtrlID(FocusIn(window_)) == kClose; }));
  // A focused button shows it, and Enter presses it.
  TypeKey({VK_SHIFT, VK_TAB});
  EXPECT_TRUE(Soon([&] { return GetDlgCtrlID(FocusIn(window_)) == kDisclosure; }));
  TypeKey({VK_RETURN});
  EXPECT_TRUE(Soon([&] { return IsOpen(); }));
  TypeKey({VK_SPACE});
  EXPECT_TRUE(Soon([&] { return !IsOpen(); }));
}

TEST_F(SetupWindowTest, CloseEscAndTheCloseBoxCloseIt) {
  const auto closers = {
      +[](HWND window) { Click(GetDlgItem(window, kClose)); },
      +[](HWND) { TypeKey({VK_ESCAPE}); },
      +[](HWND) {
        TypeKey({VK_MENU, VK_F4});
      },
      +[](HWND window) { PostMessageW(window, WM_SYSCOMMAND, SC_CLOSE, 0); },
      // Whatever the button's notification says.
      +[](HWND window) { PostMessageW(window, WM_COMMAND, MAKEWPARAM(kClose, 5), 0); },
  };
  int way = 0;
  for (const auto close : closers) {
    SCOPED_TRACE(way++);
    ASSERT_NO_FATAL_FAILURE(Open());
    // A key or a click that came while the system was still giving it the focus is lost; a user
    // does it again.
    const int64_t patience = SteadyNanos() + kPatienceNanos;
    for (int64_t again = 0; IsWindow(window_) && SteadyNanos() < patience;) {
      SystemClock().SleepFor(kNanosPerMilli);
      if (SteadyNanos() < again) continue;
      close(window_);
      again = SteadyNanos() + 5 * kNanosPerSecond;
    }
    EXPECT_FALSE(IsWindow(window_));
  }
}

// The focus comes back to where the user left it.
TEST_F(SetupWindowTest, BackFromAnotherWindowTheFocusIsWhereItWas) {
  ASSERT_NO_FATAL_FAILURE(Open());
  Click(Item(kHwEncoder));
  EXPECT_TRUE(Soon([&] { return FocusIn(window_) == Item(kHwEncoder); }));
  const UniqueWindow other(CreateWindowExW(0, L"STATIC", L"", WS_VISIBLE | WS_POPUP, 0, 0, 50, 50,
                                           nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(other.get());
  EXPECT_TRUE(Eventually([&] { return GetForegroundWindow() == other.get(); }));
  Settle(window_);
  ASSERT_TRUE(BringToFront(window_));
  EXPECT_TRUE(Soon([&] { return FocusIn(window_) == Item(kHwEncoder); }));
}

// A phone that is steering while its owner looks at the window.
TEST_F(SetupWindowTest, ThePhonesKeysDontReachIt) {
  Pair(1);
  ASSERT_NO_FATAL_FAILURE(Open());
  for (uint8_t opcode = 0x20; opcode <= 0x29; ++opcode) SendHostKeys(opcode);
  NudgeHostByKeyboard();
  TypeText(L"!");  // a user's own, behind them
  EXPECT_TRUE(Soon([&] { return Text(kName).find(L'!') != std::wstring::npos; }));
  EXPECT_EQ(Text(kName).size(), std::wstring(L"Cutting room!").size());
  EXPECT_EQ(GetDlgCtrlID(FocusIn(window_)), int{kName});
}

// ---- What changes by itself --------------------------------------------------------------------

TEST_F(SetupWindowTest, TheTickShowsWhatHasChanged) {
  ASSERT_NO_FATAL_FAILURE(Open());
  ASSERT_NO_FATAL_FAILURE(ToggleAdvanced());
  SharedTransport& transport = SharedTransport::Get();
  EXPECT_EQ(Text(kStatus), L"Transmit disabled");
  transport.CountRunningInstances(+1);
  EncoderDescription encoder;
  encoder.Set("x264 [SW, 320x240]");
  transport.SetEncoderStatus({0, "The engine", 1, GopClass::Long, true});
  transport.Settings().RememberCodec(0);
  transport.Settings().RememberShortSideCap(720);
  // By its own timer.
  EXPECT_TRUE(AwaitText(kStatus, L"Ready · waiting for iPhone"));
  EXPECT_TRUE(AwaitText(2101, L"Idle · waiting for iPhone"));
  EXPECT_TRUE(AwaitText(kEncoder, L"Active encoder: x264 [SW, 320x240]"));
  EXPECT_TRUE(AwaitText(2137, L"The engine"));
  EXPECT_TRUE(AwaitText(2138, L"H.264"));
  EXPECT_TRUE(AwaitText(2139, L"Long-GOP"));
  EXPECT_TRUE(AwaitText(2103, L"HEVC (H.265)"));
  EXPECT_TRUE(AwaitText(2105, L"720p (short-side cap)"));
  EXPECT_TRUE(AwaitText(2109, L"720p (short side)"));
  KeepShot("setup-live", PictureOfWindow(window_));
  transport.CountRunningInstances(-1);
  EXPECT_TRUE(AwaitText(kStatus, L"Transmit disabled"));
}

// The edit is the user's while the figures beside it go on.
TEST_F(SetupWindowTest, ATickLeavesWhatIsBeingTyped) {
  ASSERT_NO_FATAL_FAILURE(Open());
  TypeText(L"abc");
  EXPECT_TRUE(Soon([&] { return Text(kName).find(L"abc") != std::wstring::npos; }));
  const std::wstring typed = Text(kName);
  SetDisplayName("Somebody else's");
  Tick();
  EXPECT_EQ(Text(kName), typed);
}

// Whoever looks while it is drawn sees the old picture or the new one. The classic check box would
// show itself while it is pressed.
TEST_F(SetupWindowTest, NothingFlickersWhileASwitchIsPressed) {
  ASSERT_NO_FATAL_FAILURE(Open());
  const HWND item = Item(kDiscoverable);
  Click(item);
  ASSERT_TRUE(Soon([&] { return IsDiscoverable(); }));
  const auto settled = [&] {
    Settle(window_);
    Shot();
    return PictureAsItIs(item);
  };
  const Picture on = settled();
  TypeKey({VK_SPACE});
  ASSERT_TRUE(Soon([&] { return !IsDiscoverable(); }));
  const Picture off = settled();
  ASSERT_NE(on, off);
  const auto look = [&] {
    const Picture seen = PictureAsItIs(item);
    ASSERT_TRUE(seen == on || seen == off) << (KeepShot("flicker", seen), "kept as flicker.png");
  };
  for (int press = 0; press < 10; ++press) {
    const bool before = IsDiscoverable();
    MoveMouse(MiddleOf(item));
    PressMouse();
    for (int i = 0; i < 10; ++i) ASSERT_NO_FATAL_FAILURE(look());
    ReleaseMouse();
    while (IsDiscoverable() == before) ASSERT_NO_FATAL_FAILURE(look());
    Settle(window_);
  }
}

}  // namespace
}  // namespace Veldrift
