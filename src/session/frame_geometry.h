// Sizes of frames, and the limit that the phone sets to them.
#pragma once

#include <cstdint>

namespace Veldrift {

struct FrameSize {
  int32_t width = 0, height = 0;
  bool operator==(const FrameSize&) const = default;
};

// A source's size and rate, as the phone is told it.
struct FrameGeometry {
  int32_t width = 0, height = 0, fps = 0;
  bool operator==(const FrameGeometry&) const = default;
  bool Complete() const { return width >= 1 && height >= 1 && fps >= 1; }
};

inline constexpr int32_t kSmallestSide = 16;  // pixels

// The size to encode: `source` scaled so that its shorter side is at most `shortSideCap` (0: no
// limit). Scaled sides are even, and at least 16; an unscaled source stays as it is.
FrameSize CappedSize(FrameSize source, int32_t shortSideCap);

// Whether an encoder of `current` size may go on for `target`: both sides within a twentieth.
bool WithinTolerance(FrameSize current, FrameSize target);

}  // namespace Veldrift
