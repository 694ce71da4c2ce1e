#include "ui/qr_matrix.h"

#include <algorithm>
#include <cstdlib>

#include "ui/qr_codewords.h"

namespace Veldrift {
namespace {

constexpr int kFirstVersionThatTells = 7;
constexpr int kFormatBits = 15;
constexpr int kVersionBits = 18;

void DrawFunction(QrCode& code, int column, int row, bool dark) {
  code.modules[code.Index(column, row)] = dark ? 1 : 0;
  code.isFunction[code.Index(column, row)] = 1;
}

void DrawTiming(QrCode& code) {
  for (int i = 0; i < code.size; ++i) {
    DrawFunction(code, 6, i, i % 2 == 0);
    DrawFunction(code, i, 6, i % 2 == 0);
  }
}

// Squares around a centre by turns: ring 0 is the centre itself. What lies outside isn't drawn.
void DrawRings(QrCode& code, int column, int row, int radius, bool (*isDark)(int ring)) {
  for (int y = std::max(row - radius, 0); y <= std::min(row + radius, code.size - 1); ++y) {
    for (int x = std::max(column - radius, 0); x <= std::min(column + radius, code.size - 1); ++x) {
      DrawFunction(code, x, y, isDark(std::max(std::abs(x - column), std::abs(y - row))));
    }
  }
}

// With the light separator around it.
void DrawFinder(QrCode& code, int column, int row) {
  DrawRings(code, column, row, 4, [](int ring) { return ring != 2 && ring != 4; });
}

void DrawAlignment(QrCode& code) {
  const std::vector<int> positions = QrAlignmentPositions(code.version);
  const auto atFinder = [&](int column, int row) {
    const int last = code.size - 7;
    return (column == 6 && row == 6) || (column == 6 && row == last) ||
           (column == last && row == 6);
  };
  for (const int row : positions) {
    for (const int column : positions) {
      if (atFinder(column, row)) continue;
      DrawRings(code, column, row, 2, [](int ring) { return ring != 1; });
    }
  }
}

// `bits`, the lowest first, once around the finder at the top left and once beside the two others.
void DrawFormatBits(QrCode& code, unsigned bits) {
  const auto bit = [bits](int i) { return (bits >> i & 1) != 0; };
  for (int i = 0; i < 8; ++i) {
    DrawFunction(code, 8, i < 6 ? i : i + 1, bit(i));
    DrawFunction(code, code.size - 1 - i, 8, bit(i));
  }
  for (int i = 8; i < kFormatBits; ++i) {
    DrawFunction(code, i == 8 ? 7 : 14 - i, 8, bit(i));
    DrawFunction(code, 8, code.size - kFormatBits + i, bit(i));
  }
}

// The same six by three modules at the top right and, mirrored, at the bottom left.
void DrawVersionBits(QrCode& code, unsigned bits) {
  for (int i = 0; i < kVersionBits; ++i) {
    const int along = code.size - 11 + i % 3;
    const int across = i / 3;
    DrawFunction(code, along, across, (bits >> i & 1) != 0);
    DrawFunction(code, across, along, (bits >> i & 1) != 0);
  }
}

// `data` with the remainder of its division by `polynomial` behind it, `remainderBits` long.
unsigned WithBchRemainder(unsigned data, unsigned polynomial, int remainderBits) {
  unsigned remainder = data;
  for (int i = 0; i < remainderBits; ++i) {
    remainder <<= 1;
    if ((remainder >> remainderBits & 1) != 0) remainder ^= polynomial;
  }
  return data << remainderBits | remainder;
}

bool IsMasked(int mask, int column, int row) {
  switch (mask) {
    case 0:
      return (column + row) % 2 == 0;
    case 1:
      return row % 2 == 0;
    case 2:
      return column % 3 == 0;
    case 3:
      return (column + row) % 3 == 0;
    case 4:
      return (column / 3 + row / 2) % 2 == 0;
    case 5:
      return column * row % 2 + column * row % 3 == 0;
    case 6:
      return (column * row % 2 + column * row % 3) % 2 == 0;
    default:
      return ((column + row) % 2 + column * row % 3) % 2 == 0;
  }
}

// Along one row or column, from its first module on.
int RunsPenalty(const QrCode& code, int column, int row, int columnStep, int rowStep) {
  constexpr int kShortestRun = 5;
  constexpr int kRunPenalty = 3;
  int penalty = 0;
  int length = 0;
  uint8_t before = 0;
  for (int i = 0; i < code.size; ++i, column += columnStep, row += rowStep) {
    const uint8_t module = code.modules[code.Index(column, row)];
    length = i > 0 && module == before ? length + 1 : 1;
    before = module;
    if (length == kShortestRun) penalty += kRunPenalty;
    if (length > kShortestRun) ++penalty;
  }
  return penalty;
}

int SquaresPenalty(const QrCode& code) {
  constexpr int kSquarePenalty = 3;
  int penalty = 0;
  for (int row = 0; row + 1 < code.size; ++row) {
    for (int column = 0; column + 1 < code.size; ++column) {
      const size_t here = code.Index(column, row);
      const size_t below = code.Index(column, row + 1);
      const int dark = code.modules[here] + code.modules[here + 1] + code.modules[below] +
                       code.modules[below + 1];
      if (dark % 4 == 0) penalty += kSquarePenalty;
    }
  }
  return penalty;
}

}  // namespace

QrCode DrawFunctionPatterns(int version) {
  QrCode code;
  code.version = version;
  code.size = 17 + 4 * version;
  code.modules.resize(size_t(code.size) * size_t(code.size));
  code.isFunction.resize(code.modules.size());
  DrawTiming(code);
  DrawFinder(code, 3, 3);
  DrawFinder(code, code.size - 4, 3);
  DrawFinder(code, 3, code.size - 4);
  DrawAlignment(code);
  DrawFormatBits(code, 0);
  DrawFunction(code, 8, code.size - 8, true);
  if (version >= kFirstVersionThatTells) DrawVersionBits(code, 0);
  return code;
}

void PlaceCodewords(QrCode& code, std::span<const uint8_t> codewords) {
  size_t next = 0;
  const auto place = [&](int column, int row) {
    const size_t index = code.Index(column, row);
    if (code.isFunction[index] != 0 || next == 8 * codewords.size()) return;
    code.modules[index] = codewords[next / 8] >> (7 - next % 8) & 1;
    ++next;
  };
  bool upwards = true;
  for (int right = code.size - 1; right > 0; right -= 2, upwards = !upwards) {
    if (right == 6) --right;  // the column of the timing pattern belongs to no pair
    for (int i = 0; i < code.size; ++i) {
      const int row = upwards ? code.size - 1 - i : i;
      place(right, row);
      place(right - 1, row);
    }
  }
}

void ToggleMask(QrCode& code, int mask) {
  for (int row = 0; row < code.size; ++row) {
    for (int column = 0; column < code.size; ++column) {
      const size_t index = code.Index(column, row);
      if (code.isFunction[index] == 0 && IsMasked(mask, column, row)) code.modules[index] ^= 1;
    }
  }
}

void DrawFormatInformation(QrCode& code, int mask) {
  constexpr unsigned kLevelH = 16;
  DrawFormatBits(code, WithBchRemainder(kLevelH + unsigned(mask), 0x537, 10) ^ 0x5412);
}

void DrawVersionInformation(QrCode& code) {
  if (code.version < kFirstVersionThatTells) return;
  DrawVersionBits(code, WithBchRemainder(unsigned(code.version), 0x1F25, 12));
}

int QrPenalty(const QrCode& code) {
  int penalty = 0;
  for (int i = 0; i < code.size; ++i) {
    penalty += RunsPenalty(code, 0, i, 1, 0) + RunsPenalty(code, i, 0, 0, 1);
  }
  return penalty + SquaresPenalty(code);
}

int LowestPenaltyMask(const std::array<int, kQrMasks>& penalties) {
  return int(std::min_element(penalties.begin(), penalties.end()) - penalties.begin());
}

}  // namespace Veldrift
