// What standard output is connected to.
#pragma once

namespace Veldrift {

bool StandardOutputIsTerminal();

// The terminal's width in columns; 80 where there is no terminal or it doesn't tell.
int TerminalColumns();

}  // namespace Veldrift
