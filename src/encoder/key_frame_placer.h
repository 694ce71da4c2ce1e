// Which frames are forced to be key frames.
#pragma once

#include <atomic>
#include <cstdint>

namespace Veldrift {

// The system itself places key frames, and not only the codec: at a request, at every frame of an
// all-intra stream, and after `gopSize` frames that weren't one. So a GOP size of 3 has key frames
// at 0, 4, 8.
//
// Threads: Request from any; Place under the encoder's lock.
class KeyFramePlacer {
 public:
  // The next frame is to be a key frame. A new encoder starts with a request.
  void Request() { requested_ = true; }

  // Decides for one frame that goes to the codec now.
  bool Place(int32_t gopSize) {
    const bool due = gopSize > 1 && framesSinceKey_ >= gopSize;
    if (requested_.exchange(false) || gopSize == 1 || due) {
      framesSinceKey_ = 0;
      return true;
    }
    ++framesSinceKey_;
    return false;
  }

 private:
  std::atomic<bool> requested_{true};
  int32_t framesSinceKey_ = 0;
};

}  // namespace Veldrift
