#include "tools/pattern/stamp_layout.h"

#include <algorithm>

namespace Veldrift {

namespace {

constexpr size_t kDataBytes = 14;
constexpr size_t kCheckedBytes = 12;
constexpr int kSmallSide = 240;

using StampBytes = std::array<uint8_t, kDataBytes>;

// CRC-16 with the polynomial 0x1021, from 0xFFFF: an all-black picture isn't a valid stamp.
uint16_t Check(const StampBytes& bytes) {
  uint16_t crc = 0xFFFF;
  for (size_t i = 0; i < kCheckedBytes; ++i) {
    crc = uint16_t(crc ^ bytes[i] << 8);
    for (int bit = 0; bit < 8; ++bit) {
      crc = uint16_t((crc & 0x8000) != 0 ? crc << 1 ^ 0x1021 : crc << 1);
    }
  }
  return crc;
}

StampBytes Pack(const PatternStamp& stamp) {
  StampBytes bytes{};
  for (size_t i = 0; i < 4; ++i) bytes[i] = uint8_t(stamp.frameNumber >> (24 - 8 * i));
  for (size_t i = 0; i < 8; ++i) bytes[4 + i] = uint8_t(stamp.timeMicros >> (56 - 8 * i));
  const uint16_t crc = Check(bytes);
  bytes[12] = uint8_t(crc >> 8);
  bytes[13] = uint8_t(crc & 0xFF);
  return bytes;
}

bool KnownCell(size_t index) { return index % 2 == 0; }

}  // namespace

StampCells EncodeStamp(const PatternStamp& stamp) {
  const StampBytes bytes = Pack(stamp);
  StampCells cells{};
  for (size_t i = 0; i < kStampKnownCells; ++i) cells[i] = KnownCell(i);
  for (size_t i = kStampKnownCells; i < kStampCells; ++i) {
    const size_t bit = i - kStampKnownCells;
    cells[i] = (bytes[bit / 8] >> (7 - bit % 8) & 1) != 0;
  }
  return cells;
}

std::optional<PatternStamp> DecodeStamp(const StampCells& cells) {
  for (size_t i = 0; i < kStampKnownCells; ++i) {
    if (cells[i] != KnownCell(i)) return std::nullopt;
  }
  StampBytes bytes{};
  for (size_t i = kStampKnownCells; i < kStampCells; ++i) {
    const size_t bit = i - kStampKnownCells;
    if (cells[i]) bytes[bit / 8] = uint8_t(bytes[bit / 8] | 1 << (7 - bit % 8));
  }
  PatternStamp stamp;
  for (size_t i = 0; i < 4; ++i) stamp.frameNumber = stamp.frameNumber << 8 | bytes[i];
  for (size_t i = 4; i < kCheckedBytes; ++i) stamp.timeMicros = stamp.timeMicros << 8 | bytes[i];
  if (Pack(stamp) != bytes) return std::nullopt;
  return stamp;
}

CellRect StampLayout::Cell(size_t index, int width, int height) const {
  const int column = int(index) % columns;
  const int row = int(index) / columns;
  const int top = height - height / heightDivisor;
  const int span = height - top;
  return {column * width / columns, top + row * span / Rows(), (column + 1) * width / columns,
          top + (row + 1) * span / Rows()};
}

const StampLayout& LayoutFor(int width, int height) {
  return std::min(width, height) < kSmallSide ? kSmallLayout : kStripLayout;
}

}  // namespace Veldrift
