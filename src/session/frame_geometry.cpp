#include "session/frame_geometry.h"

#include <algorithm>
#include <cstdlib>

namespace Veldrift {

namespace {

constexpr int64_t kToleranceDivisor = 20;

int32_t ScaledSide(int32_t side, double scale) {
  const int32_t rounded = int32_t(side * scale + 0.5);
  return std::max(rounded & ~1, kSmallestSide);
}

bool SideWithinTolerance(int32_t current, int32_t target) {
  return std::abs(int64_t{current} - target) * kToleranceDivisor <= current;
}

}  // namespace

FrameSize CappedSize(FrameSize source, int32_t shortSideCap) {
  const int32_t shortSide = std::min(source.width, source.height);
  if (shortSideCap <= 0 || shortSide <= shortSideCap) return source;
  const double scale = double(shortSideCap) / shortSide;
  return {ScaledSide(source.width, scale), ScaledSide(source.height, scale)};
}

bool WithinTolerance(FrameSize current, FrameSize target) {
  return SideWithinTolerance(current.width, target.width) &&
         SideWithinTolerance(current.height, target.height);
}

}  // namespace Veldrift
