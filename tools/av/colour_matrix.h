// By which matrix and range a decoded picture's colours are turned to RGB.
#pragma once

#include "tools/av/av_handles.h"

namespace Veldrift {

// What the picture says, or what its size implies: standard definition has the older matrix.
inline int MatrixOf(const AVFrame& picture) {
  constexpr int kSmallestHdHeight = 720;
  if (picture.colorspace != AVCOL_SPC_UNSPECIFIED) return picture.colorspace;
  return picture.height >= kSmallestHdHeight ? SWS_CS_ITU709 : SWS_CS_ITU601;
}

// For a scaler from the picture's format to full-range RGB.
inline void SetColours(SwsContext& scaler, const AVFrame& picture) {
  const int fullRange = picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
  sws_setColorspaceDetails(&scaler, sws_getCoefficients(MatrixOf(picture)), fullRange,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
}

}  // namespace Veldrift
