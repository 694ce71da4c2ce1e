// SetupDialog: what the user does.
#include "ui/win32/setup_dialog.h"
#include "ui/win32/setup_log.h"

namespace Veldrift {
namespace {

bool IsChecked(HWND checkBox) { return SendMessageW(checkBox, BM_GETCHECK, 0, 0) == BST_CHECKED; }

bool IsHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit < 0xDC00; }

// At most 255 characters, none of them cut in two.
std::string NameIn(HWND edit) {
  std::array<wchar_t, 256> text;
  auto length = size_t(GetWindowTextW(edit, text.data(), int(text.size())));
  if (length > 0 && IsHighSurrogate(text[length - 1])) --length;
  return NarrowText({text.data(), length});
}

}  // namespace

void SetupDialog::OnCommand(int id, int code) {
  if (id == kCloseId) {
    PostMessageW(state_.window, WM_CLOSE, 0, 0);
    return;
  }
  if (code != 0) return;
  switch (id) {
    case kSaveId:
      return SaveName();
    case kDiscoverableId:
      return ToggleDiscoverable();
    case kEncoderSwitchId:
      return ToggleHwEncoders();
    case kDisclosureId:
      return ToggleAdvanced();
    // What keys mean in every dialog.
    case IDOK:
      return OnEnter();
    case IDCANCEL:
      PostMessageW(state_.window, WM_CLOSE, 0, 0);
      return;
    default:
      break;
  }
  if (const std::optional<size_t> row = RowOfForgetId(id, state_.rows.size())) Forget(*row);
}

// Enter presses the button that has the focus, and saves a name that is being typed.
void SetupDialog::OnEnter() {
  const HWND focus = GetFocus();
  if (focus == nullptr || GetParent(focus) != state_.window) return;
  if (GetDlgCtrlID(focus) == kNameEditId) return SaveName();
  if ((GetWindowLongPtrW(focus, GWL_STYLE) & BS_TYPEMASK) == BS_OWNERDRAW) {
    SendMessageW(focus, BM_CLICK, 0, 0);
  }
}

void SetupDialog::SaveName() {
  const std::string name = NameIn(Control(kNameEditId));
  if (name.empty()) return;
  SetDisplayName(name);
  PluginLog(kSetupLog, kLogInfo, "display name updated to %{public}s", name.c_str());
  RefreshIdentity();
}

void SetupDialog::ToggleDiscoverable() {
  const HWND checkBox = Control(kDiscoverableId);
  const bool on = IsChecked(checkBox);
  SetDiscoverable(on);
  PluginLog(kSetupLog, kLogInfo, "discoverable toggled -> %d", on ? 1 : 0);
  InvalidateRect(checkBox, nullptr, FALSE);
}

void SetupDialog::ToggleHwEncoders() {
  const HWND checkBox = Control(kEncoderSwitchId);
  const bool on = IsChecked(checkBox);
  SetEnableAsyncHwEncoders(on);
  PluginLog(kSetupLog, kLogInfo, "enableAsyncHwEncoders toggled -> %d", on ? 1 : 0);
  InvalidateRect(checkBox, nullptr, FALSE);
}

void SetupDialog::ToggleAdvanced() {
  state_.advancedOpen = !state_.advancedOpen;
  SetTextIfChanged(Control(kDisclosureId),
                   state_.advancedOpen ? kDisclosureOpen : kDisclosureClosed);
  SetAdvancedVisible(state_.advancedOpen);
}

// While the question stands, the window goes on: rows are made anew under it, and the window itself
// may be gone when it is answered.
void SetupDialog::Forget(size_t row) {
  const std::string id = state_.rows[row].id;
  const int answer = MessageBoxW(
      state_.window,
      L"The iPhone will need to re-pair (scan QR / enter code) the next time it connects.\n\n"
      L"Forget this iPhone?",
      L"Forget paired iPhone", MB_OKCANCEL | MB_ICONQUESTION);
  if (answer != IDOK) return;
  RemoveTrustedPeer(id);
  PluginLog(kSetupLog, kLogInfo, "unpaired peer %{public}s", id.c_str());
  if (!IsWindow(state_.window)) return;
  state_.peersSignature.reset();
  RefreshPeers();
  InvalidateRect(state_.window, nullptr, TRUE);
}

void SetupDialog::Raise() {
  events_.onRaised();
  ShowWindow(state_.window, SW_RESTORE);
  // A question of its own is in front of it.
  SetForegroundWindow(GetLastActivePopup(state_.window));
}

// ---- The focus ---------------------------------------------------------------------------------

void SetupDialog::OnActivate(bool active) {
  if (!active) {
    state_.lastFocus = GetFocus();
  } else if (!IsIconic(state_.window)) {
    RestoreFocus();
  }
}

// To where it was, or to the first control that takes it, if nothing of the window has it.
void SetupDialog::RestoreFocus() {
  const HWND present = GetFocus();
  if (present != nullptr && IsChild(state_.window, present)) return;
  const bool known = state_.lastFocus != nullptr && IsChild(state_.window, state_.lastFocus);
  SetFocus(known ? state_.lastFocus : GetNextDlgTabItem(state_.window, nullptr, FALSE));
}

}  // namespace Veldrift
