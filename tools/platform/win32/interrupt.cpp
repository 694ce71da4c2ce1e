#include "tools/platform/interrupt.h"

#include "platform/win32/windows_headers.h"

namespace Veldrift {
namespace {

std::atomic<bool> interrupted{false};

BOOL WINAPI OnConsoleEvent(DWORD) {
  interrupted = true;
  return TRUE;
}

}  // namespace

const std::atomic<bool>& InstallInterruptFlag() {
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  return interrupted;
}

}  // namespace Veldrift
