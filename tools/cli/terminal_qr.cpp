#include "tools/cli/terminal_qr.h"

namespace Veldrift {

namespace {

constexpr int kQuietModules = 4;  // the standard's; around it the terminal may be dark
constexpr const char* kBlackOnWhite = "\x1b[38;5;16;48;5;231m";
constexpr const char* kOwnColours = "\x1b[0m";

// What lies outside is light.
bool IsDark(const QrCode& code, int column, int row) {
  const auto inside = [&code](int place) { return place >= 0 && place < code.size; };
  return inside(column) && inside(row) && code.modules[code.Index(column, row)] != 0;
}

const char* Character(bool upper, bool lower) {
  if (upper && lower) return "\u2588";
  if (upper) return "\u2580";
  return lower ? "\u2584" : " ";
}

}  // namespace

int TerminalQrColumns(const QrCode& code) { return code.size + 2 * kQuietModules; }

std::string DrawQrForTerminal(const QrCode& code) {
  std::string text;
  const int end = code.size + kQuietModules;
  for (int row = -kQuietModules; row < end; row += 2) {
    text += kBlackOnWhite;
    for (int column = -kQuietModules; column < end; ++column) {
      text += Character(IsDark(code, column, row), IsDark(code, column, row + 1));
    }
    text += kOwnColours;
    text += '\n';
  }
  return text;
}

}  // namespace Veldrift
