// A frame on its way into a codec of another size, perhaps.
#pragma once

#include <cstdint>
#include <vector>

#include "encoder/nearest_scale.h"

namespace Veldrift {

// Gives a frame in the size that was configured. Keeps its memory from frame to frame.
//
// Threads: one at a time.
class FrameInput {
 public:
  // The frame that is asked for next, and the size that it is to have. The pixels stay with the
  // caller and are read until the next call. All sides are above 0.
  void Set(const BgraPicture& frame, int32_t width, int32_t height);

  // The frame's upper left `width` x `height` pixels, at most the size that was set, as NV12 in
  // packed planes (bgra_to_nv12.h). A frame of another size is scaled by a few rows at a time,
  // which the conversion then finds in the cache: that is much cheaper than a scaled picture.
  void ConvertToNv12(uint8_t* luma, uint8_t* chroma, int32_t width, int32_t height);

  // The whole frame as BGRA, for what converts elsewhere; valid until the next call.
  BgraPicture Picture();

 private:
  bool Fits() const { return frame_.width == width_ && frame_.height == height_; }
  BgraPicture Scaled(int32_t first, int32_t count);

  BgraPicture frame_;
  int32_t width_ = 0;
  int32_t height_ = 0;
  NearestScaler scaler_;
  std::vector<uint32_t> rows_;
};

}  // namespace Veldrift
