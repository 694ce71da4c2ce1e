// What the way from a frame to the codec's input costs.
#pragma once

#include <cstdint>

namespace Veldrift {

// Tells the mean of each 120 frames in the log, at debug level. Threads: one at a time.
class ConversionTimer {
 public:
  // A frame took that long. `path` is the way that it went; the line names that of its last frame.
  void Add(int64_t elapsedNs, const char* path);

 private:
  double micros_ = 0;
  uint32_t frames_ = 0;
};

}  // namespace Veldrift
