#include "encoder/frame_input.h"

#include <algorithm>

#include "encoder/bgra_to_nv12.h"

namespace Veldrift {
namespace {

// An even number, as chroma needs it; 120 KB of a picture 1920 pixels wide.
constexpr int32_t kBandRows = 16;

}  // namespace

void FrameInput::Set(const BgraPicture& frame, int32_t width, int32_t height) {
  frame_ = frame;
  width_ = width;
  height_ = height;
  if (!Fits()) scaler_.SetSizes(frame.width, frame.height, width, height);
}

BgraPicture FrameInput::Scaled(int32_t first, int32_t count) {
  const auto pixels = static_cast<size_t>(width_) * static_cast<size_t>(count);
  if (rows_.size() < pixels) rows_.resize(pixels);
  scaler_.ScaleRows(frame_, first, count, rows_.data());
  return {reinterpret_cast<const uint8_t*>(rows_.data()), ptrdiff_t{4} * width_, width_, count};
}

void FrameInput::ConvertToNv12(uint8_t* luma, uint8_t* chroma, int32_t width, int32_t height) {
  if (Fits()) {
    ConvertBgraToNv12(frame_.pixels, frame_.strideBytes, luma, chroma, width, height);
    return;
  }
  for (int32_t first = 0; first < height; first += kBandRows) {
    const BgraPicture band = Scaled(first, std::min(kBandRows, height - first));
    ConvertBgraToNv12(band.pixels, band.strideBytes, luma + ptrdiff_t{first} * width,
                      chroma + ptrdiff_t{first / 2} * width, width, band.height);
  }
}

BgraPicture FrameInput::Picture() { return Fits() ? frame_ : Scaled(0, height_); }

}  // namespace Veldrift
