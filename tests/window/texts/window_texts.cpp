// Prints what the plug-in's windows show, of whichever process: for each a line "[class] title",
// then one for each control that has an id and is visible, "id text". Line ends in a text become "
// / ".
#include <cstdio>
#include <string>
#include <vector>

#include "platform/win32/windows_headers.h"

namespace Veldrift {
namespace {

// Another process's control tells its text by the message alone.
std::string TextOf(HWND window) {
  const auto length = size_t(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0));
  std::vector<wchar_t> text(length + 1);
  const auto copied =
      size_t(SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data())));
  std::string narrow = NarrowText({text.data(), copied});
  for (size_t at = narrow.find('\n'); at != narrow.npos; at = narrow.find('\n', at)) {
    narrow.replace(at, 1, " / ");
  }
  return narrow;
}

BOOL CALLBACK PrintControl(HWND control, LPARAM) {
  const int id = GetDlgCtrlID(control);
  if (id > 0 && IsWindowVisible(control)) std::printf("%d %s\n", id, TextOf(control).c_str());
  return TRUE;
}

BOOL CALLBACK PrintWindow(HWND window, LPARAM) {
  wchar_t kind[256] = {};
  GetClassNameW(window, kind, int(std::size(kind)));
  const std::string name = NarrowText(kind);
  if (!name.starts_with("Veldrift.") || !IsWindowVisible(window)) return TRUE;
  std::printf("[%s] %s\n", name.c_str(), TextOf(window).c_str());
  EnumChildWindows(window, PrintControl, 0);
  return TRUE;
}

}  // namespace
}  // namespace Veldrift

int main() {
  EnumWindows(Veldrift::PrintWindow, 0);
  return 0;
}
