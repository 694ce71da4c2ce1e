#include "tests/support/terminal_picture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Veldrift {

namespace {

constexpr uint8_t kTerminalDark = 20;
constexpr uint8_t kTerminalLight = 190;

struct Colours {
  uint8_t foreground = kTerminalLight;
  uint8_t background = kTerminalDark;
};

struct Cell {
  uint8_t upper = kTerminalDark;
  uint8_t lower = kTerminalDark;
};

using Lines = std::vector<std::vector<Cell>>;

struct Sequence {
  std::string_view text;
  Colours colours;
};

constexpr Sequence kSequences[] = {
    {"\x1b[0m", {}},
    {"\x1b[38;5;16;48;5;16m", {0, 0}},
    {"\x1b[38;5;16;48;5;231m", {0, 255}},
    {"\x1b[38;5;231;48;5;16m", {255, 0}},
    {"\x1b[38;5;231;48;5;231m", {255, 255}},
};

// Takes an escape sequence off the front of `text`, which begins with one.
void TakeColours(std::string_view& text, Colours& colours) {
  for (const Sequence& known : kSequences) {
    if (!text.starts_with(known.text)) continue;
    colours = known.colours;
    text.remove_prefix(known.text.size());
    return;
  }
  ADD_FAILURE() << "an escape sequence that nobody expects: " << text.substr(1, 24);
  text.remove_prefix(1);
}

size_t LengthOfCharacter(std::string_view text) {
  const auto first = uint8_t(text.front());
  const size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  return std::min(length, text.size());
}

Cell CellOf(std::string_view character, const Colours& colours) {
  if (character == "\u2580") return {colours.foreground, colours.background};
  if (character == "\u2584") return {colours.background, colours.foreground};
  if (character == "\u2588") return {colours.foreground, colours.foreground};
  return {colours.background, colours.background};
}

Lines Interpret(std::string_view text, Colours colours) {
  Lines lines(1);
  while (!text.empty()) {
    if (text.front() == '\x1b') {
      TakeColours(text, colours);
      continue;
    }
    const std::string_view character = text.substr(0, LengthOfCharacter(text));
    text.remove_prefix(character.size());
    if (character == "\n") {
      lines.emplace_back();
    } else {
      lines.back().push_back(CellOf(character, colours));
    }
  }
  return lines;
}

}  // namespace

GrayPicture ShowOnTerminal(std::string_view text, int scale, Screen screen) {
  const Colours plain = screen == Screen::Paper ? Colours{0, 255} : Colours();
  const Lines lines = Interpret(text, plain);
  size_t columns = 0;
  for (const auto& line : lines) columns = std::max(columns, line.size());
  GrayPicture picture{int(columns) * scale, int(lines.size()) * 2 * scale, {}};
  for (int y = 0; y < picture.height; ++y) {
    const auto& line = lines[size_t(y / (2 * scale))];
    for (int x = 0; x < picture.width; ++x) {
      const auto column = size_t(x / scale);
      const Cell cell =
          column < line.size() ? line[column] : Cell{plain.background, plain.background};
      picture.pixels.push_back(y / scale % 2 == 0 ? cell.upper : cell.lower);
    }
  }
  return picture;
}

}  // namespace Veldrift
