// The generated picture: something to look at (a moving scene), and in it a block of large black
// and white cells that carry the frame's number and time stamp, with a check, so that a receiver
// can tell after compression and scaling which frame it sees and whether it is right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Veldrift {

struct PatternStamp {
  uint32_t frameNumber = 0;
  uint64_t timeMicros = 0;  // steady clock at painting; both tools run on one machine

  bool operator==(const PatternStamp&) const = default;
};

// Paints the whole frame: BGRA, rows `strideBytes` apart, at least 64 x 64 pixels.
void PaintPattern(uint8_t* bgra, int width, int height, int strideBytes, const PatternStamp& stamp);

// Paints only the stamp's cells over an existing picture.
void PaintStamp(uint8_t* bgra, int width, int height, int strideBytes, const PatternStamp& stamp);

// Reads the stamp from the luma plane of a decoded picture of any size with the same aspect; the
// range of the levels (full or limited) doesn't matter. Nothing if there is none or its check
// fails.
std::optional<PatternStamp> ReadStamp(const uint8_t* luma, int width, int height, int strideBytes);

}  // namespace Veldrift
