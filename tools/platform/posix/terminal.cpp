#include "tools/platform/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace Veldrift {

bool StandardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

int TerminalColumns() {
  winsize size{};
  const bool told = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return told ? size.ws_col : 80;
}

std::unique_ptr<TerminalDrawing> PrepareTerminalForDrawing() { return nullptr; }

}  // namespace Veldrift
