#include "tools/pattern/pattern.h"

#include "tools/pattern/scene.h"

namespace Veldrift {

void PaintPattern(uint8_t* bgra, int width, int height, int strideBytes,
                  const PatternStamp& stamp) {
  thread_local Scene scene;  // keeps its tile from picture to picture
  scene.Paint(bgra, width, height, strideBytes, stamp.frameNumber);
  PaintStamp(bgra, width, height, strideBytes, stamp);
}

}  // namespace Veldrift
