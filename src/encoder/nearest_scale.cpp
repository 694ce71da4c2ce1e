#include "encoder/nearest_scale.h"

#include <cstring>

namespace Veldrift {
namespace {

constexpr size_t kPixelBytes = 4;

uint32_t Pixel(const uint8_t* row, size_t column) {
  uint32_t pixel;
  std::memcpy(&pixel, row + column * kPixelBytes, kPixelBytes);
  return pixel;
}

}  // namespace

void NearestScaler::Axis::Set(int32_t newSource, int32_t newSize) {
  if (newSource == source && newSize == size) return;
  source = newSource;
  size = newSize;
  const double ratio = static_cast<double>(source) / size;
  positions.resize(static_cast<size_t>(size));
  for (size_t i = 0; i < positions.size(); ++i) {
    positions[i] = static_cast<uint32_t>((static_cast<double>(i) + 0.5) * ratio);
  }
}

void NearestScaler::SetSizes(int32_t sourceWidth, int32_t sourceHeight, int32_t width,
                             int32_t height) {
  columns_.Set(sourceWidth, width);
  rows_.Set(sourceHeight, height);
}

void NearestScaler::ScaleRows(const BgraPicture& source, int32_t first, int32_t count,
                              uint32_t* out) const {
  const size_t width = columns_.positions.size();
  for (int32_t i = 0; i < count; ++i, out += width) {
    const auto y = static_cast<size_t>(first + i);
    if (i > 0 && rows_.positions[y] == rows_.positions[y - 1]) {
      std::memcpy(out, out - width, width * kPixelBytes);
    } else {
      ScaleRow(source.pixels + rows_.positions[y] * source.strideBytes, out);
    }
  }
}

void NearestScaler::ScaleRow(const uint8_t* row, uint32_t* out) const {
  const std::vector<uint32_t>& positions = columns_.positions;
  if (columns_.source == columns_.size * 2) {
    // The half size, the usual one: every second pixel needs no table.
    for (size_t x = 0; x < positions.size(); ++x) out[x] = Pixel(row, 2 * x + 1);
    return;
  }
  for (size_t x = 0; x < positions.size(); ++x) out[x] = Pixel(row, positions[x]);
}

}  // namespace Veldrift
