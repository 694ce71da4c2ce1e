#include "tools/cli/terminal_qr.h"

#include <optional>

namespace Veldrift {

namespace {

constexpr int kQuietModules = 4;  // the standard's; around it the terminal may be dark
constexpr const char* kOwnColours = "\x1b[0m";
constexpr const char* kUpperHalf = "\u2580";
constexpr const char* kLowerHalf = "\u2584";
constexpr const char* kBlock = "\u2588";

// What lies outside is light.
bool IsDark(const QrCode& code, int column, int row) {
  const auto inside = [&code](int place) { return place >= 0 && place < code.size; };
  return inside(column) && inside(row) && code.modules[code.Index(column, row)] != 0;
}

struct Cell {
  bool upper = false;  // dark
  bool lower = false;

  bool operator==(const Cell&) const = default;
};

// The colours of both halves, as numbers of the 256: 16 is black, 231 white.
std::string Colours(const Cell& cell) {
  const auto number = [](bool dark) { return dark ? "16" : "231"; };
  return std::string("\x1b[38;5;") + number(cell.lower) + ";48;5;" + number(cell.upper) + "m";
}

}  // namespace

int TerminalQrColumns(const QrCode& code) { return code.size + 2 * kQuietModules; }

std::string DrawQrAsText(const QrCode& code) {
  std::string text;
  const int end = code.size + kQuietModules;
  for (int row = -kQuietModules; row < end; row += 2) {
    for (int column = -kQuietModules; column < end; ++column) {
      const bool upper = IsDark(code, column, row);
      const bool lower = IsDark(code, column, row + 1);
      text += upper && lower ? kBlock : upper ? kUpperHalf : lower ? kLowerHalf : " ";
    }
    text += '\n';
  }
  return text;
}

std::string DrawQrForTerminal(const QrCode& code) {
  std::string text;
  const int end = code.size + kQuietModules;
  for (int row = -kQuietModules; row < end; row += 2) {
    std::optional<Cell> before;
    for (int column = -kQuietModules; column < end; ++column) {
      const Cell cell{IsDark(code, column, row), IsDark(code, column, row + 1)};
      if (cell != before) text += Colours(cell);
      text += cell.upper == cell.lower ? " " : kLowerHalf;
      before = cell;
    }
    text += kOwnColours;
    text += '\n';
  }
  return text;
}

}  // namespace Veldrift
