// A transform platform with a clock at its seams, around another one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "encoder/transform_platform.h"

namespace Veldrift {

// When the newest frame was where, in nanoseconds of SystemClock.
struct FrameMarks {
  std::atomic<int64_t> input{0};       // ProcessInput was called
  std::atomic<int64_t> output{0};      // a transform had its unit ready
  std::atomic<int64_t> conversion{0};  // how long the colour conversion took, scaling with it
  std::atomic<int64_t> sample{0};      // how long making the sample took that it goes in by
  std::atomic<int64_t> noMore{0};      // how long the transform took to say that it has no more
};

// Passes everything on and keeps `marks`, which outlive it. Frames are converted as the encoder
// does it, on the device or on the processor, but always inside ConvertOnGpu, where it can be
// timed. `width` and `height`: what the encoder is configured for.
std::unique_ptr<TransformPlatform> MakeTimedPlatform(std::unique_ptr<TransformPlatform> inner,
                                                     int32_t width, int32_t height,
                                                     FrameMarks& marks);

}  // namespace Veldrift
