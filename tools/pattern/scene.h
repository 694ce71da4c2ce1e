// The moving scene behind the stamp: a textured ground that drifts and some bodies that move over
// it. Every row of the ground is one copy out of a tile that is made once, so that painting costs
// little more than writing the picture's memory.
//
// Threads: an object belongs to one thread.
#pragma once

#include <cstdint>
#include <vector>

namespace Veldrift {

class Scene {
 public:
  // Paints the picture of `frameNumber`: BGRA, opaque. The same number gives the same picture.
  void Paint(uint8_t* bgra, int width, int height, int strideBytes, uint32_t frameNumber);

 private:
  void MakeTile(int width);
  void PaintGround(uint8_t* bgra, int width, int height, int strideBytes, uint32_t frameNumber);

  int tileWidth_ = 0;
  std::vector<uint32_t> tile_;  // kTileRows rows of tileWidth_ pixels
};

}  // namespace Veldrift
