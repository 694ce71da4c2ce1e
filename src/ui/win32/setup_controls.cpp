// SetupDialog: making its controls, and showing and hiding the panel.
#include <algorithm>

#include "platform/win32/this_module.h"
#include "ui/win32/drawn_controls.h"
#include "ui/win32/setup_dialog.h"

namespace Veldrift {
namespace {

constexpr wchar_t kStatic[] = L"STATIC";
constexpr wchar_t kButton[] = L"BUTTON";
constexpr int kNameLimit = 255;  // characters, as many as are read

// What the panel's cards were before they were hidden. They outlive the window: the next one is
// hidden before it is shown.
std::array<Card, 2> savedPanelCards{};  // the dialog thread's; there is one at a time

std::wstring IconText(char16_t icon) { return {wchar_t(icon)}; }

HMENU MenuOf(int id) { return reinterpret_cast<HMENU>(LONG_PTR{id}); }

}  // namespace

HWND SetupDialog::MakeChild(const Child& child, const std::wstring& text) {
  const Place& place = child.place;
  const HWND made = CreateWindowExW(
      0, child.kind, text.c_str(), WS_CHILD | WS_VISIBLE | child.style, place.left, place.top,
      place.width, place.height, state_.window, MenuOf(child.id), ThisModule(), nullptr);
  SendMessageW(made, WM_SETFONT, reinterpret_cast<WPARAM>(state_.resources.Font(child.font)),
               FALSE);
  SetWindowLongPtrW(made, GWLP_USERDATA, child.tag);
  return made;
}

HWND SetupDialog::MakeControl(const ControlTraits& traits) {
  Child child{kStatic, SS_LEFT | SS_NOPREFIX, traits.id, traits.place, traits.font, traits.tag};
  switch (traits.kind) {
    case ControlKind::Static:
    case ControlKind::Dot:
      break;
    case ControlKind::Bitmap:
      child.style = SS_BITMAP;
      break;
    case ControlKind::Edit:
      child.kind = L"EDIT";
      child.style = WS_TABSTOP | ES_AUTOHSCROLL;
      break;
    case ControlKind::Button:
      child.kind = kButton;
      child.style = WS_TABSTOP | BS_OWNERDRAW;
      break;
    case ControlKind::Switch:
      child.kind = kButton;
      child.style = WS_TABSTOP | BS_AUTOCHECKBOX;
      break;
  }
  const HWND made = MakeChild(child, WideText(traits.text));
  if (traits.kind == ControlKind::Dot) DrawAsDot(made, state_.resources);
  if (traits.kind == ControlKind::Switch) DrawAsSwitch(made, traits.icon, state_.resources);
  if (traits.kind == ControlKind::Edit) SendMessageW(made, EM_SETLIMITTEXT, kNameLimit, 0);
  return made;
}

void SetupDialog::MakeControls() {
  for (const ControlTraits& traits : MainControls()) {
    const HWND made = MakeControl(traits);
    if (traits.tag == kHintTag) state_.hint = made;
    if (traits.tag == kHeadingTag) state_.peersHeading = made;  // the last of them
  }
  MakePanel();
}

void SetupDialog::MakePanel() {
  constexpr DWORD kText = SS_LEFT | SS_NOPREFIX;
  for (const PanelHeading& heading : PanelHeadings()) {
    MakeChild({kStatic, kText, kNoId, PlaceOf(heading), FontRole::Section, kPanelTag},
              WideText(heading.text));
  }
  for (const PanelRow& row : PanelRows()) {
    const PanelRowPlaces places = PlacesOf(row);
    MakeChild({kStatic, kText, kNoId, places.icon, FontRole::Icon, kPanelTag}, IconText(row.icon));
    MakeChild({kStatic, kText | SS_ENDELLIPSIS, kNoId, places.label, FontRole::Small, kPanelTag},
              WideText(row.label));
    MakeChild(
        {kStatic, kText | SS_ENDELLIPSIS, IdOf(row.value), places.value, FontRole::Mono, kPanelTag},
        WideText(kNothing));
  }
}

void SetupDialog::SetAdvancedVisible(bool show) {
  EnumChildWindows(
      state_.window,
      [](HWND child, LPARAM visible) -> BOOL {
        if (GetWindowLongPtrW(child, GWLP_USERDATA) == kPanelTag) ShowWindow(child, int(visible));
        return TRUE;
      },
      show ? SW_SHOW : SW_HIDE);
  for (size_t i = 0; i < savedPanelCards.size(); ++i) {
    Card& card = state_.cards[kPanelLeftCard + i];
    if (!show && card.right > card.left) savedPanelCards[i] = card;
    card = show ? savedPanelCards[i] : Card{0, 0, 0, 0, card.colour, card.bordered};
  }
  // At the window's very edge, left of where it was made.
  SetWindowPos(state_.hint, nullptr, 0, show ? state_.hintTopExpanded : state_.hintTopCollapsed, 0,
               0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
  RECT outer{};
  GetWindowRect(state_.window, &outer);
  SetWindowPos(state_.window, nullptr, 0, 0, outer.right - outer.left,
               show ? state_.outerHeightExpanded : state_.outerHeightCollapsed,
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  InvalidateRect(state_.window, nullptr, TRUE);
}

// ---- The trusted phones ------------------------------------------------------------------------

void SetupDialog::DestroyPeerRows() {
  for (const PeerRow& row : state_.rows) {
    for (HWND control : {row.icon, row.name, row.paired, row.forget}) DestroyWindow(control);
  }
  state_.rows.clear();
  if (state_.noPeers != nullptr) DestroyWindow(state_.noPeers);
  state_.noPeers = nullptr;
}

void SetupDialog::MakePeerRows() {
  const Card& card = state_.cards[kPeersCard];
  constexpr DWORD kText = SS_LEFT | SS_NOPREFIX | SS_ENDELLIPSIS;
  if (state_.peers.empty()) {
    state_.noPeers =
        MakeChild({kStatic, kText, kNoId, NoPeersPlace(card), FontRole::Fine, kNoPeersTag},
                  WideText(kNoPeersText));
    return;
  }
  HWND above = state_.peersHeading;
  // Behind their heading, for Tab and for what they run over.
  const auto behind = [&above](HWND made) {
    SetWindowPos(made, above, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    return above = made;
  };
  for (size_t i = 0; i < std::min(state_.peers.size(), kMaxPeerRows); ++i) {
    const TrustedPeer& peer = state_.peers[i];
    const PeerRowPlaces places = PlacesOfPeerRow(card, i);
    PeerRow row;
    row.id = peer.id;
    row.icon = behind(MakeChild({kStatic, kText, kNoId, places.icon, FontRole::Icon, kIconTag},
                                IconText(kPeerIcon)));
    row.name = behind(MakeChild({kStatic, kText, kNoId, places.name, FontRole::BodyStrong, kNoTag},
                                WideText(PeerName(peer))));
    row.paired =
        behind(MakeChild({kStatic, kText, kNoId, places.paired, FontRole::Fine, kPairedTag},
                         WideText(PairedLine(peer))));
    row.forget = behind(MakeChild(
        {kButton, WS_TABSTOP | BS_OWNERDRAW, ForgetId(i), places.forget, FontRole::Body, kNoTag},
        L"Forget"));
    state_.rows.push_back(std::move(row));
  }
}

}  // namespace Veldrift
