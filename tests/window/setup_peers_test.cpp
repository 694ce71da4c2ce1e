// The trusted phones in the setup window.
#include "tests/window/setup_fixture.h"
#include "tests/window/window_objects.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {
namespace {

constexpr const wchar_t* kQuestionKind = L"#32770";
constexpr const wchar_t* kQuestionTitle = L"Forget paired iPhone";

class SetupPeersTest : public SetupWindowTest {
 protected:
  struct Row {
    std::wstring icon, name, paired;
    Place iconPlace, namePlace, pairedPlace;
  };
  // By its button: the controls in front of it, in the order of Tab.
  Row RowAt(int index) const {
    const HWND paired = GetWindow(Item(kForget + 10 * index), GW_HWNDPREV);
    const HWND name = GetWindow(paired, GW_HWNDPREV);
    const HWND icon = GetWindow(name, GW_HWNDPREV);
    return {TextOf(icon),  TextOf(name),  TextOf(paired),
            PlaceOf(icon), PlaceOf(name), PlaceOf(paired)};
  }
  size_t Rows() const {
    size_t rows = 0;
    for (int id = 2500; id <= 2799; ++id) rows += Item(id) != nullptr ? 1 : 0;
    return rows;
  }
  bool SaysNone() const {
    for (HWND child = GetWindow(window_, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
      if (TextOf(child) == L"No iPhones paired yet.") return true;
    }
    return false;
  }
  // Presses a row's button; the question that it asks.
  HWND Ask(int index) {
    Click(Item(kForget + 10 * index));
    const HWND question = AwaitOurWindow(kQuestionKind, kQuestionTitle);
    EXPECT_NE(question, nullptr);
    Settle(question);
    return question;
  }
  static bool IsTrusted(const std::string& id) { return FindTrustedPeer(id).has_value(); }
};

TEST_F(SetupPeersTest, ThreeFitTheirCardAndThirtyAreShown) {
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_TRUE(SaysNone());
  EXPECT_EQ(Rows(), 0U);
  Pair(3);
  EXPECT_TRUE(Soon([&] { return Rows() == 3; }));
  EXPECT_FALSE(SaysNone());
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const Row row = RowAt(i);
    EXPECT_EQ(row.icon, L"\uE8EA");
    EXPECT_EQ(row.name, L"Phone " + std::to_wstring(i));
    EXPECT_EQ(row.paired, L"paired 2026-03-0" + std::to_wstring(i + 1) + L"T10:00:00Z");
    const int top = 344 + 40 * i;
    EXPECT_EQ(row.iconPlace, (Place{270, top + 6, 22, 22}));
    EXPECT_EQ(row.namePlace, (Place{300, top + 2, 406, 18}));
    EXPECT_EQ(row.pairedPlace, (Place{300, top + 20, 406, 16}));
    const HWND forget = Item(kForget + 10 * i);
    EXPECT_EQ(PlaceOf(forget), (Place{716, top + 8, 70, 24}));
    EXPECT_EQ(TextOf(forget), L"Forget");
    EXPECT_EQ(Shot().At(720, top + 20), 0xFF453AU);
  }
  KeepShot("setup-three-phones", Shot());
  Pair(31);
  EXPECT_TRUE(Soon([&] { return Rows() == 30; }));
  EXPECT_NE(Item(2790), nullptr);
  KeepShot("setup-many-phones", Shot());
  // A name that changes shows; one without a name or a date says so.
  AddOrUpdateTrustedPeer({"id-0", "", std::string(64, 'a'), ""});
  EXPECT_TRUE(Soon([&] { return RowAt(0).name == L"(unnamed iPhone)"; }));
  EXPECT_EQ(RowAt(0).paired, L"");
}

TEST_F(SetupPeersTest, ForgetAsksFirst) {
  const char* const kLine = "setup_dialog:INFO] unpaired peer id-1";
  const size_t linesBefore = CountInPluginLog(kLine);
  Pair(2);
  ASSERT_NO_FATAL_FAILURE(Open());
  HWND question = Ask(1);
  EXPECT_EQ(GetWindow(question, GW_OWNER), window_);
  EXPECT_FALSE(IsWindowEnabled(window_));
  Click(GetDlgItem(question, IDCANCEL));
  EXPECT_TRUE(AwaitGone(question));
  Tick();
  EXPECT_TRUE(IsTrusted("id-1"));
  EXPECT_EQ(Rows(), 2U);

  question = Ask(1);
  Click(GetDlgItem(question, IDOK));
  EXPECT_TRUE(AwaitGone(question));
  EXPECT_TRUE(Soon([&] { return Rows() == 1; }));
  EXPECT_FALSE(IsTrusted("id-1"));
  EXPECT_TRUE(IsTrusted("id-0"));
  EXPECT_EQ(RowAt(0).name, L"Phone 0");
  EXPECT_EQ(CountInPluginLog(kLine) - linesBefore, 1U);
  // The keys still have somewhere to go.
  EXPECT_TRUE(Soon([&] { return IsChild(window_, FocusIn(window_)) != FALSE; }));

  question = Ask(0);
  TypeKey({VK_RETURN});
  EXPECT_TRUE(AwaitGone(question));
  EXPECT_TRUE(Soon([&] { return SaysNone(); }));
}

// A phone comes while the question stands: the list is another one then.
TEST_F(SetupPeersTest, TheQuestionIsAboutThePhoneThatItWasAskedOf) {
  Pair(2);
  ASSERT_NO_FATAL_FAILURE(Open());
  const HWND question = Ask(0);
  RemoveTrustedPeer("id-0");
  Pair(3);
  ASSERT_EQ(ListTrustedPeers().front().id, "id-1");
  EXPECT_TRUE(Eventually([&] { return Rows() == 3; }));
  EXPECT_TRUE(Eventually([&] { return RowAt(0).name == L"Phone 1"; }));
  Click(GetDlgItem(question, IDOK));
  EXPECT_TRUE(AwaitGone(question));
  EXPECT_TRUE(Soon([&] { return Rows() == 2; }));
  EXPECT_TRUE(IsTrusted("id-1"));
  EXPECT_TRUE(IsTrusted("id-2"));
  EXPECT_FALSE(IsTrusted("id-0"));
}

TEST_F(SetupPeersTest, TheWindowMayGoUnderTheQuestion) {
  Pair(1);
  ASSERT_NO_FATAL_FAILURE(Open());
  const HWND question = Ask(0);
  CloseSetupDialog();
  EXPECT_TRUE(AwaitGone(window_));
  EXPECT_TRUE(AwaitGone(question));
  EXPECT_TRUE(IsTrusted("id-0"));
  ASSERT_NO_FATAL_FAILURE(Open());
  EXPECT_EQ(Rows(), 1U);
}

// While it asks, a second Show raises the question, not the window behind it.
TEST_F(SetupPeersTest, ShownAgainItBringsItsQuestionToTheFront) {
  Pair(1);
  ASSERT_NO_FATAL_FAILURE(Open());
  const HWND question = Ask(0);
  const UniqueWindow other(CreateWindowExW(0, L"STATIC", L"", WS_VISIBLE | WS_POPUP, 0, 0, 50, 50,
                                           nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(other.get());
  ShowSetupDialog();
  EXPECT_TRUE(Eventually([&] { return GetForegroundWindow() == question; }));
  TypeKey({VK_ESCAPE});
  EXPECT_TRUE(AwaitGone(question));
}

// An unchanged list isn't touched; a changed one leaves nothing of the old.
TEST_F(SetupPeersTest, ATickTouchesTheRowsOnlyForANewList) {
  Pair(3);
  ASSERT_NO_FATAL_FAILURE(Open());
  const HWND button = Item(kForget);
  for (int i = 0; i < 20; ++i) Tick();
  EXPECT_EQ(Item(kForget), button);
  const auto change = [&](int i) {
    AddOrUpdateTrustedPeer({"id-0", "Name " + std::to_string(i), std::string(64, 'a'), ""});
    Tick();
  };
  for (int i = 0; i < 5; ++i) change(i);
  const WindowObjects before = CountWindowObjects();
  for (int i = 5; i < 200; ++i) change(i);
  // The system keeps one now and then; one a change would be ours.
  const WindowObjects after = CountWindowObjects();
  EXPECT_LE(after.gdi, before.gdi + 20);
  EXPECT_EQ(after.user, before.user);
  EXPECT_EQ(RowAt(0).name, L"Name 199");
}

}  // namespace
}  // namespace Veldrift
