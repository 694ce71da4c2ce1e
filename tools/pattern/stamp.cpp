#include <cstring>

#include "tools/pattern/pattern.h"
#include "tools/pattern/stamp_layout.h"

namespace Veldrift {

namespace {

// Two known cells closer than this are no black and white.
constexpr int kLeastContrast = 40;

void FillCell(uint8_t* bgra, int strideBytes, const CellRect& cell, bool white) {
  for (int y = cell.top; y < cell.bottom; ++y) {
    std::memset(bgra + std::ptrdiff_t(y) * strideBytes + cell.left * 4, white ? 0xFF : 0x00,
                size_t(cell.right - cell.left) * 4);
  }
  // Opaque, also where it is black.
  for (int y = cell.top; !white && y < cell.bottom; ++y) {
    uint8_t* row = bgra + std::ptrdiff_t(y) * strideBytes;
    for (int x = cell.left; x < cell.right; ++x) row[x * 4 + 3] = 0xFF;
  }
}

// The mean level of the cell's inner half, where its neighbours' blur doesn't reach.
int InnerLevel(const uint8_t* luma, int strideBytes, const CellRect& cell) {
  const int marginX = (cell.right - cell.left) / 4;
  const int marginY = (cell.bottom - cell.top) / 4;
  int64_t sum = 0;
  int64_t count = 0;
  for (int y = cell.top + marginY; y < cell.bottom - marginY; ++y) {
    for (int x = cell.left + marginX; x < cell.right - marginX; ++x) {
      sum += luma[std::ptrdiff_t(y) * strideBytes + x];
      ++count;
    }
  }
  return count > 0 ? int(sum / count) : 0;
}

// The level between the known cells' black and white; nothing if they aren't apart.
std::optional<int> Threshold(const std::array<int, kStampCells>& levels) {
  int white = 0;
  int black = 0;
  for (size_t i = 0; i < kStampKnownCells; ++i) (i % 2 == 0 ? white : black) += levels[i];
  constexpr int kEach = int(kStampKnownCells) / 2;
  if (white - black < kLeastContrast * kEach) return std::nullopt;
  return (white + black) / (2 * kEach);
}

std::optional<PatternStamp> ReadWith(const StampLayout& layout, const uint8_t* luma, int width,
                                     int height, int strideBytes) {
  if (width < layout.columns || height / layout.heightDivisor < layout.Rows()) return std::nullopt;
  std::array<int, kStampCells> levels{};
  for (size_t i = 0; i < kStampCells; ++i) {
    levels[i] = InnerLevel(luma, strideBytes, layout.Cell(i, width, height));
  }
  const std::optional<int> threshold = Threshold(levels);
  if (!threshold) return std::nullopt;
  StampCells cells{};
  for (size_t i = 0; i < kStampCells; ++i) cells[i] = levels[i] > *threshold;
  return DecodeStamp(cells);
}

}  // namespace

void PaintStamp(uint8_t* bgra, int width, int height, int strideBytes, const PatternStamp& stamp) {
  const StampLayout& layout = LayoutFor(width, height);
  const StampCells cells = EncodeStamp(stamp);
  for (size_t i = 0; i < kStampCells; ++i) {
    FillCell(bgra, strideBytes, layout.Cell(i, width, height), cells[i]);
  }
}

std::optional<PatternStamp> ReadStamp(const uint8_t* luma, int width, int height, int strideBytes) {
  const std::optional<PatternStamp> stamp =
      ReadWith(kStripLayout, luma, width, height, strideBytes);
  return stamp ? stamp : ReadWith(kSmallLayout, luma, width, height, strideBytes);
}

}  // namespace Veldrift
