// A picture as a scanner's camera would see it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Veldrift {

// `height` rows of `width` pixels, from the top down; 0 is black, 255 white.
struct GrayPicture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;

  uint8_t At(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
};

}  // namespace Veldrift
