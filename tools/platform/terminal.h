// What standard output is connected to.
#pragma once

#include <memory>

namespace Veldrift {

bool StandardOutputIsTerminal();

// The terminal's width in columns; 80 where there is no terminal or it doesn't tell.
int TerminalColumns();

// Keeps the terminal ready for UTF-8 and escape sequences for colours while it lives.
class TerminalDrawing {
 public:
  virtual ~TerminalDrawing() = default;
};

// Null where there is no terminal, or where it needs no preparation.
std::unique_ptr<TerminalDrawing> PrepareTerminalForDrawing();

}  // namespace Veldrift
