// Where the stamp's cells lie and what they say: shared by the painter and the reader.
//
// A stamp is 128 cells: 16 that are known beforehand (white and black in turn, the reader's levels
// and its proof that there is a stamp at all) and 112 of data: the frame number (32 bits), the time
// (64) and a CRC-16 of both, most significant bit first, white for 1. Positions are fractions of
// the picture, so that a scaled picture has its cells where the scaling moved them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/pattern/pattern.h"

namespace Veldrift {

inline constexpr size_t kStampCells = 128;
inline constexpr size_t kStampKnownCells = 16;

// The cells in row order, true for white.
using StampCells = std::array<bool, kStampCells>;

StampCells EncodeStamp(const PatternStamp& stamp);

// Nothing if a known cell is wrong or the check fails.
std::optional<PatternStamp> DecodeStamp(const StampCells& cells);

// A cell's pixels: columns left to right - 1, rows top to bottom - 1.
struct CellRect {
  int left, top, right, bottom;
};

// The cells are a grid across the whole width at the picture's lower edge: a strip of a sixth of
// the height, or half of the height where the strip's cells would be too small to survive.
struct StampLayout {
  int columns;
  int heightDivisor;  // the grid takes 1 / heightDivisor of the picture's height

  int Rows() const { return int(kStampCells) / columns; }
  CellRect Cell(size_t index, int width, int height) const;
};

inline constexpr StampLayout kStripLayout{32, 6};
inline constexpr StampLayout kSmallLayout{16, 2};

// The layout that the painter uses for a picture of this size. A reader can't know the size that
// was painted, and tries both.
const StampLayout& LayoutFor(int width, int height);

}  // namespace Veldrift
