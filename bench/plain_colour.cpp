#include "bench/plain_colour.h"

#include "encoder/bt709.h"

namespace Veldrift {
namespace {

using namespace bt709;

uint8_t Luma(const uint8_t* pixel) {
  return static_cast<uint8_t>(((kYB * pixel[0] + kYG * pixel[1] + kYR * pixel[2] + kRound) >> 8) +
                              kYOff);
}

// The mean of a block of 2 x 2 pixels, of one channel.
int Mean(const uint8_t* top, const uint8_t* bottom, int channel) {
  return (top[channel] + top[channel + 4] + bottom[channel] + bottom[channel + 4]) >> 2;
}

}  // namespace

void ConvertPlainly(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma, uint8_t* chroma,
                    int width, int height) {
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = bgra + y * strideBytes;
    for (int x = 0; x < width; ++x) *luma++ = Luma(row + x * 4);
  }
  for (int y = 0; y + 1 < height; y += 2) {
    const uint8_t* top = bgra + y * strideBytes;
    const uint8_t* bottom = top + strideBytes;
    for (int x = 0; x + 1 < width; x += 2, top += 8, bottom += 8) {
      const int b = Mean(top, bottom, 0);
      const int g = Mean(top, bottom, 1);
      const int r = Mean(top, bottom, 2);
      *chroma++ = static_cast<uint8_t>(((kCbB * b + kCbG * g + kCbR * r + kRound) >> 8) + kCOff);
      *chroma++ = static_cast<uint8_t>(((kCrR * r + kCrG * g + kCrB * b + kRound) >> 8) + kCOff);
    }
  }
}

}  // namespace Veldrift
