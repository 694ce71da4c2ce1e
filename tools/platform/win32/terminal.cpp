#include "tools/platform/terminal.h"

#include "platform/win32/handle.h"
#include "platform/win32/windows_headers.h"

namespace Veldrift {
namespace {

bool AskConsole(CONSOLE_SCREEN_BUFFER_INFO& info) {
  return GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) != 0;
}

// The console's, wherever standard output goes.
Handle OpenConsoleScreen() {
  return Handle(CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                            nullptr));
}

// The code page and the mode outlive the process, in the console: they are put back.
class ConsoleDrawing final : public TerminalDrawing {
 public:
  ConsoleDrawing(Handle screen, DWORD mode)
      : screen_(std::move(screen)), modeBefore_(mode), codePageBefore_(GetConsoleOutputCP()) {
    SetConsoleMode(screen_.Get(),
                   mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    SetConsoleOutputCP(CP_UTF8);
  }
  ~ConsoleDrawing() override {
    SetConsoleOutputCP(codePageBefore_);
    SetConsoleMode(screen_.Get(), modeBefore_);
  }

 private:
  const Handle screen_;
  const DWORD modeBefore_;
  const UINT codePageBefore_;
};

}  // namespace

bool StandardOutputIsTerminal() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  return AskConsole(info);
}

int TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  return AskConsole(info) ? info.srWindow.Right - info.srWindow.Left + 1 : 80;
}

std::unique_ptr<TerminalDrawing> PrepareTerminalForDrawing() {
  Handle screen = OpenConsoleScreen();
  DWORD mode = 0;
  if (!screen || !GetConsoleMode(screen.Get(), &mode)) return nullptr;
  return std::make_unique<ConsoleDrawing>(std::move(screen), mode);
}

}  // namespace Veldrift
