#include "platform/terminal.h"

#include "platform/win32/windows_headers.h"

namespace Veldrift {
namespace {

bool AskConsole(CONSOLE_SCREEN_BUFFER_INFO& info) {
  return GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) != 0;
}

}  // namespace

bool StandardOutputIsTerminal() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  return AskConsole(info);
}

int TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  return AskConsole(info) ? info.srWindow.Right - info.srWindow.Left + 1 : 80;
}

}  // namespace Veldrift
