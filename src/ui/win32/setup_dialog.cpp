#include "ui/win32/setup_dialog.h"

#include <dwmapi.h>

#include "platform/win32/this_module.h"
#include "support/guarded.h"
#include "ui/win32/drawn_controls.h"
#include "ui/win32/setup_log.h"
#include "ui/win32/window_class.h"

namespace Veldrift {
namespace {

constexpr wchar_t kClassName[] = L"Veldrift.SetupDialog";
constexpr wchar_t kTitle[] = L"Ombrette";
constexpr DWORD kStyle = WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
constexpr UINT_PTR kTimer = 1;
constexpr DWORD kDarkTitleBar = 20;  // an attribute that the headers don't name
constexpr LONG kAnySize = 32767;     // what a window's size holds

void RegisterOnce(WNDPROC procedure) {
  // A failure shows when the window can't be made.
  [[maybe_unused]] static const DWORD once = [procedure] {
    WNDCLASSW kind{};
    kind.lpfnWndProc = procedure;
    kind.lpszClassName = kClassName;
    kind.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    return RegisterOwnClass(kind);
  }();
}

int32_t OuterHeight(int clientHeight) {
  RECT area{0, 0, kWindowWidth, clientHeight};
  AdjustWindowRectEx(&area, kStyle, FALSE, 0);
  return area.bottom - area.top;
}

}  // namespace

HWND SetupDialog::Make() {
  RegisterOnce(WindowProcedure);
  const int left = (GetSystemMetrics(SM_CXSCREEN) - kWindowWidth) / 2;
  const int top = (GetSystemMetrics(SM_CYSCREEN) - kWindowHeight) / 2;
  state_.window = CreateWindowExW(0, kClassName, kTitle, kStyle, left, top, kWindowWidth,
                                  kWindowHeight, nullptr, nullptr, ThisModule(), this);
  if (state_.window == nullptr) return nullptr;
  const BOOL dark = TRUE;
  DwmSetWindowAttribute(state_.window, kDarkTitleBar, &dark, sizeof dark);
  MakeControls();
  MeasureHeights();
  SetAdvancedVisible(false);
  RefreshIdentity();
  RefreshPeers();
  RefreshStats();
  SetTimer(state_.window, kTimer, kTickMs, nullptr);
  return state_.window;
}

void SetupDialog::Appear() {
  ShowWindow(state_.window, SW_SHOW);
  UpdateWindow(state_.window);
}

void SetupDialog::MeasureHeights() {
  state_.outerHeightCollapsed = OuterHeight(state_.hintTopCollapsed + kBelowHintTop);
  state_.outerHeightExpanded = OuterHeight(state_.hintTopExpanded + kBelowHintTop);
}

// Nothing may be thrown through the window system.
LRESULT CALLBACK SetupDialog::WindowProcedure(HWND window, UINT message, WPARAM wParam,
                                              LPARAM lParam) {
  if (message == WM_NCCREATE) {
    const auto* made = reinterpret_cast<const CREATESTRUCTW*>(lParam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(made->lpCreateParams));
  }
  auto* dialog = reinterpret_cast<SetupDialog*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (dialog == nullptr) return DefWindowProcW(window, message, wParam, lParam);
  LRESULT answer = 0;
  RunGuarded(kSetupLog, "setup dialog",
             [&] { answer = dialog->OnMessage(window, message, wParam, lParam); });
  return answer;
}

LRESULT SetupDialog::OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_PAINT:
      PaintCards(window, state_.cards, state_.resources);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLOREDIT:
      return OnControlColour(message, reinterpret_cast<HDC>(wParam),
                             reinterpret_cast<HWND>(lParam));
    case WM_DRAWITEM:
      DrawButton(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam), state_.resources);
      return TRUE;
    case WM_COMMAND:
      OnCommand(LOWORD(wParam), HIWORD(wParam));
      return 0;
    case WM_TIMER:
      RefreshStats();
      RefreshPeers();
      return 0;
    case kRaiseSetupDialog:
      Raise();
      return 0;
    case WM_ACTIVATE:
      OnActivate(LOWORD(wParam) != WA_INACTIVE);
      return 0;
    case WM_SETFOCUS:
      RestoreFocus();
      return 0;
    case WM_GETMINMAXINFO:
      // Else the expanded window would be cut to a screen that is lower.
      reinterpret_cast<MINMAXINFO*>(lParam)->ptMaxTrackSize = {kAnySize, kAnySize};
      return 0;
    case WM_CLOSE:
      DestroyWindow(window);
      return 0;
    case WM_DESTROY:
      OnDestroy();
      return 0;
    default:
      return DefWindowProcW(window, message, wParam, lParam);
  }
}

LRESULT SetupDialog::OnControlColour(UINT message, HDC context, HWND control) const {
  if (message == WM_CTLCOLOREDIT) {
    SetBkMode(context, OPAQUE);
    SetBkColor(context, ColourOf(kEditBackground));
    SetTextColor(context, ColourOf(kPrimaryText));
    return reinterpret_cast<LRESULT>(state_.resources.Edit());
  }
  const auto tag = int(GetWindowLongPtrW(control, GWLP_USERDATA));
  const Rgb text =
      message == WM_CTLCOLORSTATIC ? StaticTextColour(GetDlgCtrlID(control), tag) : kPrimaryText;
  SetBkMode(context, TRANSPARENT);
  SetTextColor(context, ColourOf(text));
  return reinterpret_cast<LRESULT>(state_.resources.Card());
}

// The controls go behind this message, and with them what they draw with: fonts and brushes go with
// this object.
void SetupDialog::OnDestroy() {
  KillTimer(state_.window, kTimer);
  TakeQrBitmap(nullptr);
  events_.onDestroyed();
  PostQuitMessage(0);
}

}  // namespace Veldrift
