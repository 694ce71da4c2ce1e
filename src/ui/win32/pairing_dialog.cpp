#include "ui/win32/pairing_dialog.h"

#include "platform/win32/this_module.h"
#include "support/guarded.h"
#include "ui/pairing_texts.h"
#include "ui/pairing_window.h"
#include "ui/win32/com_apartment.h"
#include "ui/win32/gdi_handles.h"
#include "ui/win32/window_class.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "pair_dialog"};
constexpr const wchar_t* kClassName = L"Veldrift.PairingDialog";
constexpr const wchar_t* kTitle = L"Ombrette — Pair iPhone";
constexpr const wchar_t* kHint = L"This window closes automatically when pairing completes.";
constexpr int kWidth = 420;
constexpr int kHeight = 260;
constexpr int kCancelId = 1004;

// What the window owns, and finds by its user data.
struct WindowRecord {
  UniqueFont textFont;
  UniqueFont codeFont;
};

void Adopt(HWND window, const CREATESTRUCTW& creation) {
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(creation.lpCreateParams));
}

void DeleteFonts(HWND window) {
  auto* const record = reinterpret_cast<WindowRecord*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (record != nullptr) *record = {};
}

// The system's own answer has the colour of buttons, which would stand as bands on the window's.
LRESULT ColourText(HWND window, WPARAM wide, LPARAM deep) {
  DefWindowProcW(window, WM_CTLCOLORSTATIC, wide, deep);
  SetBkColor(reinterpret_cast<HDC>(wide), GetSysColor(COLOR_WINDOW));
  return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM wide, LPARAM deep) {
  switch (message) {
    case WM_CREATE:
      Adopt(window, *reinterpret_cast<const CREATESTRUCTW*>(deep));
      return 0;
    case WM_CTLCOLORSTATIC:
      return ColourText(window, wide, deep);
    case WM_COMMAND:
      if (LOWORD(wide) != kCancelId) break;
      PostMessageW(window, WM_CLOSE, 0, 0);
      return 0;
    case WM_CLOSE:
      DestroyWindow(window);
      return 0;
    case WM_DESTROY:
      DeleteFonts(window);
      PostQuitMessage(0);
      return 0;
    default:
      break;
  }
  return DefWindowProcW(window, message, wide, deep);
}

// Once for all dialogs of the process, also if it fails: 0, or the system's error number.
DWORD RegisterDialogClass() {
  static const DWORD error = [] {
    WNDCLASSW kind{};
    kind.lpfnWndProc = OnMessage;
    kind.lpszClassName = kClassName;
    kind.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    kind.hbrBackground = reinterpret_cast<HBRUSH>(INT_PTR{COLOR_WINDOW + 1});
    return RegisterOwnClass(kind);
  }();
  return error;
}

HWND MakeWindow(WindowRecord& record) {
  const int left = (GetSystemMetrics(SM_CXSCREEN) - kWidth) / 2;
  const int top = (GetSystemMetrics(SM_CYSCREEN) - kHeight) / 2;
  return CreateWindowExW(WS_EX_TOPMOST, kClassName, kTitle, WS_CAPTION | WS_SYSMENU, left, top,
                         kWidth, kHeight, nullptr, nullptr, ThisModule(), &record);
}

struct ControlPlace {
  int id, left, top, width, height;
};

void AddControl(HWND window, const wchar_t* kind, DWORD style, const ControlPlace& place,
                const UniqueFont& font, const std::wstring& text) {
  const HWND control = CreateWindowExW(
      0, kind, text.c_str(), WS_CHILD | WS_VISIBLE | style, place.left, place.top, place.width,
      place.height, window, reinterpret_cast<HMENU>(INT_PTR{place.id}), ThisModule(), nullptr);
  SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font.get()), FALSE);
}

void Furnish(HWND window, WindowRecord& record, const std::string& code,
             const std::string& peerName) {
  record.textFont = MakeFont({"Segoe UI", -16, FW_NORMAL}, DEFAULT_PITCH);
  record.codeFont = MakeFont({"Consolas", -56, FW_BOLD}, FIXED_PITCH);
  // An "&" in a phone's name is one. A line that is too long ends in an ellipsis; without that its
  // second half would stand below the control's edge. The middle of its control has room for all of
  // a letter, also where the control is lower than the font's lines.
  constexpr DWORD kText = SS_CENTER | SS_NOPREFIX;
  constexpr DWORD kLine = kText | SS_ENDELLIPSIS | SS_CENTERIMAGE;
  AddControl(window, L"STATIC", kLine, {1001, 10, 20, 384, 24}, record.textFont,
             WideText(PairingPrompt(peerName)));
  AddControl(window, L"STATIC", kText, {1002, 10, 60, 384, 80}, record.codeFont,
             WideText(SpacedCode(code)));
  AddControl(window, L"STATIC", kLine, {1003, 10, 155, 384, 20}, record.textFont, kHint);
  AddControl(window, L"BUTTON", BS_PUSHBUTTON, {kCancelId, 160, 185, 100, 30}, record.textFont,
             L"Cancel");
}

// A click that was pulled off the button again leaves the focus on it, where the next Space would
// press it.
void TakeFocusBack(HWND window, const MSG& message) {
  if (message.message == WM_LBUTTONUP && GetFocus() == message.hwnd) SetFocus(window);
}

// IsDialogMessage would give Cancel to Space, Enter and Esc.
void RunMessageLoop(HWND window) {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
    TakeFocusBack(window, message);
  }
}

void RequestClose(std::atomic<bool>& requested, const std::atomic<HWND>& handle) {
  if (requested.exchange(true)) return;
  if (const HWND window = handle) PostMessageW(window, WM_CLOSE, 0, 0);
}

}  // namespace

Win32PairingDialog::~Win32PairingDialog() {
  RequestClose(closeRequested_, windowHandle_);
  if (thread_.joinable()) thread_.join();
  MutexLock lock(callbackMutex_);
  onCancel_ = nullptr;
}

void Win32PairingDialog::Show(const std::string& code, const std::string& peerName,
                              std::function<void()> onCancel) {
  {
    MutexLock lock(callbackMutex_);
    onCancel_ = std::move(onCancel);
  }
  cancelFired_ = false;
  closeRequested_ = false;
  // Without a thread there is no window; the handshake doesn't depend on it.
  RunGuarded(kLog, "pairing dialog's start", [&] {
    thread_ = std::thread([this, code, peerName] {
      RunGuarded(kLog, "pairing dialog", [&] { RunDialog(code, peerName); });
    });
  });
}

void Win32PairingDialog::Close() { RequestClose(closeRequested_, windowHandle_); }

void Win32PairingDialog::RunDialog(const std::string& code, const std::string& peerName) {
  const ComApartment apartment;
  if (const DWORD error = RegisterDialogClass()) {
    PluginLog(kLog, kLogError, "RegisterClassW failed: %lu", error);
    return;
  }
  WindowRecord record;  // outlives the window
  UniqueWindow window(MakeWindow(record));
  if (window == nullptr) {
    PluginLog(kLog, kLogError, "CreateWindowExW failed: %lu", GetLastError());
    return;
  }
  Furnish(window.get(), record, code, peerName);
  ShowWindow(window.get(), SW_SHOW);
  UpdateWindow(window.get());
  // In this order: a Close that found no window yet is seen here.
  windowHandle_ = window.get();
  if (closeRequested_) PostMessageW(window.get(), WM_CLOSE, 0, 0);
  RunMessageLoop(window.get());
  windowHandle_ = nullptr;
  window.reset();
  TellOfCancel();
}

void Win32PairingDialog::TellOfCancel() {
  if (closeRequested_ || cancelFired_.exchange(true)) return;
  std::function<void()> callback;
  {
    MutexLock lock(callbackMutex_);
    callback = onCancel_;
  }
  if (callback) callback();
}

std::unique_ptr<IPairingDialog> CreatePairingDialog() {
  return std::make_unique<Win32PairingDialog>();
}

}  // namespace Veldrift
