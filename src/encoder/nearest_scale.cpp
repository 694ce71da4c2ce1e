#include "encoder/nearest_scale.h"

#include <cstring>
#include <vector>

namespace Veldrift {
namespace {

constexpr size_t kPixelBytes = 4;

// The source position of every destination position: truncate((i + 0.5) x ratio).
std::vector<size_t> SamplePositions(int source, int destination) {
  const double ratio = static_cast<double>(source) / destination;
  std::vector<size_t> positions(static_cast<size_t>(destination));
  for (size_t i = 0; i < positions.size(); ++i) {
    positions[i] = static_cast<size_t>((static_cast<double>(i) + 0.5) * ratio);
  }
  return positions;
}

}  // namespace

void ScaleNearest(const uint8_t* source, size_t sourceStride, int sourceWidth, int sourceHeight,
                  uint8_t* destination, int destinationWidth, int destinationHeight) {
  const std::vector<size_t> columns = SamplePositions(sourceWidth, destinationWidth);
  const std::vector<size_t> rows = SamplePositions(sourceHeight, destinationHeight);
  for (const size_t row : rows) {
    const uint8_t* line = source + row * sourceStride;
    for (const size_t column : columns) {
      std::memcpy(destination, line + column * kPixelBytes, kPixelBytes);
      destination += kPixelBytes;
    }
  }
}

}  // namespace Veldrift
